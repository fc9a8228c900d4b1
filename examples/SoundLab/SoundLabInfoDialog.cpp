#include "SoundLabInfoDialog.h"

#include <QKApplication.h>
#include <QKApplicationLog.h>
#include <QKBundle.h>
#include <QKFile.h>
#include <QKSupportSite.h>
#include <QKUserDefaults.h>
#include <QKWorkspace.h>

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>

SoundLabInfoDialog::SoundLabInfoDialog(QWidget *parent) : QDialog(parent)
{
    setWindowTitle(tr("System Information"));
    QKApplication *app = QKApplication::sharedApplication();
    const QKContactCard me = QKWorkspace::meCard();
    const QString none = tr("(none)");
    auto orNone = [&none](const QString &text) {
        return text.isEmpty() ? none : text;
    };

    auto *form = new QFormLayout;
    auto addRow = [form](const QString &label, const QString &value) {
        auto *field = new QLabel(value);
        field->setTextInteractionFlags(Qt::TextSelectableByMouse);
        form->addRow(label, field);
    };
    addRow(tr("Application"), app->name());
    addRow(tr("Code"), app->code());
    addRow(tr("Version"), app->applicationVersion() + QStringLiteral(" (") +
                              QKBundle::mainBundle()
                                  ->objectForInfoDictionaryKey(QStringLiteral("CFBundleVersion"))
                                  .toString() +
                              QLatin1Char(')'));
    addRow(tr("QKUtilities"),
           QKBundle::libraryBundle()
               ->objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString"))
               .toString());
    addRow(tr("Pre-release"), app->delegate()->isBetaVersion() ? tr("yes") : tr("no"));
    // An empty temporary folder was refused as unsafe; the debug log says why.
    addRow(tr("Temporary folder"), orNone(app->tempDirectory()));
    addRow(tr("Settings file"), QKUserDefaults::standardUserDefaults()->filePath());
    addRow(tr("Data folder"),
           QKFile::conformPath(QStringLiteral("~/Library/Application Support/Velmora")));
    addRow(tr("Logs folder"), QKFile::conformPath(QStringLiteral("~/Library/Logs/Velmora")));
    addRow(tr("Caches folder"), QKFile::conformPath(QStringLiteral("~/Library/Caches/Velmora")));
    addRow(tr("Debug log"), QKApplicationLog::sharedLog()->logFilePath());
    addRow(tr("Download folder"), orNone(QKWorkspace::downloadDirectory()));
    addRow(tr("Your name"), orNone((me.firstName + QLatin1Char(' ') + me.lastName).trimmed()));
    addRow(tr("Your phone"), orNone(me.phone));
    addRow(tr("Your e-mail"), orNone(me.email));
    addRow(tr("Machine"), orNone(QKWorkspace::machineIdentifier()));
    addRow(tr("Support site"), QKSupportSite::baseURL());
    addRow(tr("Help desk API"), QKSupportSite::helpDeskAPIURL());

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    form->addRow(buttons);
    setLayout(form);
}
