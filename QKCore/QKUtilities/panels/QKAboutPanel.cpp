#include "QKAboutPanel.h"

#include "QKAboutPanelContentView.h"
#include "QKFadingWindow.h"
#include "QKSplashScreen.h"
#include "ui_QKAboutPanel.h"

#include <QKApplication.h>
#include <QKApplicationLog.h>
#include <QKBundle.h>
#include <QKClock.h>
#include <QKEvents.h>
#include <QKWorkspace.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QPointer>
#include <QTimeZone>

#include <cmath>

namespace {

QPointer<QKAboutPanel> s_sharedPanel;
QKBundle *s_bundle = nullptr;
int s_fadeDuration = 250;

// A year of 356 days: the line has always counted this way.
constexpr double secondsPerYear = 30758400.0;

void destroySharedPanel()
{
    delete s_sharedPanel.data();
}

QKBundle *bundle()
{
    return s_bundle ? s_bundle : QKBundle::mainBundle();
}

// A viewer cannot read the application's compiled-in resources: such a document is
// handed over as a copy in the application's temporary folder.
QString extractedResource(const QString &resourcePath)
{
    const QString temporary = QKApplication::currentTempDirectory();
    if (temporary.isEmpty())
        return QString();
    const QDir folder(temporary);
    const QString copy = folder.filePath(QFileInfo(resourcePath).fileName());
    QFile::remove(copy);
    if (!folder.mkpath(QStringLiteral(".")) || !QFile::copy(resourcePath, copy)) {
        QKApplicationLog::sharedLog()->warning(
            QKApplicationLogContext(QStringLiteral("QKAboutPanel"), nullptr),
            QStringLiteral("Cannot copy %1 to %2").arg(resourcePath, copy));
        return QString();
    }
    QFile::setPermissions(copy, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                    QFileDevice::ReadGroup | QFileDevice::ReadOther);
    return copy;
}

} // namespace

struct QKAboutPanel::Private
{
    // A plain window, not a dialog: dialogs keep their keys from the shortcuts.
    QKFadingWindow fading{Qt::Window, QStringLiteral("QKAboutPanel")};
    QKAboutPanelContentView *view = nullptr;
    Ui::QKAboutPanel ui;
};

QKAboutPanel *QKAboutPanel::aboutPanel()
{
    if (!s_sharedPanel) {
        s_sharedPanel = new QKAboutPanel;
        QKFadingWindow::keepUntilApplicationEnds(s_sharedPanel, destroySharedPanel);
    }
    return s_sharedPanel;
}

void QKAboutPanel::openPanel()
{
    aboutPanel()->open();
}

QString QKAboutPanel::birthdayString(const QDateTime &now)
{
    const QDateTime birth(QDate(2006, 7, 22), QTime(19, 30), QTimeZone(6 * 3600));
    const double years = birth.msecsTo(now) / 1000.0 / secondsPerYear;
    double whole = 0;
    const double months = std::modf(years, &whole) * 12;
    return QString::asprintf("Kestrin is %.0f year%s and %.0f months old today!", whole,
                             whole == 1 ? "" : "s", months);
}

void QKAboutPanel::setBundle(QKBundle *bundle)
{
    s_bundle = bundle;
}

int QKAboutPanel::fadeDuration()
{
    return s_fadeDuration;
}

void QKAboutPanel::setFadeDuration(int msecs)
{
    s_fadeDuration = std::max(0, msecs);
}

QKAboutPanel::QKAboutPanel() : d(std::make_unique<Private>())
{
    d->view = new QKAboutPanelContentView(d->fading.window());
    d->ui.setupUi(d->view);
    awakeFromNib();
    d->fading.setContentView(d->view);
}

QKAboutPanel::~QKAboutPanel() = default;

void QKAboutPanel::awakeFromNib()
{
    const QKApplication *app = QKApplication::sharedApplication();
    const QString name = app ? app->name() : QCoreApplication::applicationName();
    d->fading.window()->setWindowTitle(name);
    d->ui.appNameText->setText(name);
    d->ui.versionText->setText(QKSplashScreen::versionString(
        bundle()
            ->objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString"))
            .toString()));
    d->ui.buildText->setText(
        bundle()->objectForInfoDictionaryKey(QStringLiteral("CFBundleVersion")).toString());
    d->ui.copyrightText->setText(QKSplashScreen::copyrightString(
        bundle()->objectForInfoDictionaryKey(QStringLiteral("NSHumanReadableCopyright")).toString(),
        QKClock::now().date().year()));

    // The title and the document's name are spelled differently, and both on purpose.
    d->ui.legalButton->setText(QStringLiteral("Legal"));
    d->ui.legalButton->setEnabled(
        !bundle()->pathForResource(QStringLiteral("legal"), QStringLiteral("pdf")).isEmpty());
    connect(d->ui.legalButton, &QAbstractButton::clicked, this, [this] { openLegal(); });
    d->ui.acknowledgementsButton->setText(QStringLiteral("Acknowledgements"));
    d->ui.acknowledgementsButton->setEnabled(
        !bundle()
             ->pathForResource(QStringLiteral("acknowledgments"), QStringLiteral("pdf"))
             .isEmpty());
    connect(d->ui.acknowledgementsButton, &QAbstractButton::clicked, this,
            [this] { openAcknowledgements(); });
}

void QKAboutPanel::open()
{
    if (d->fading.isVisible())
        return;
    const quint32 wanted =
        QKEvents::CommandKeyMask | QKEvents::AlternateKeyMask | QKEvents::ShiftKeyMask;
    const bool birthday =
        (QKEvents::modifierFlags(QGuiApplication::keyboardModifiers()) & wanted) == wanted;
    const QString extra = birthday ? birthdayString(QKClock::now()) : QString();
    d->ui.additionalText->setText(extra);
    d->ui.additionalText->setTextInteractionFlags(extra.isEmpty() ? Qt::NoTextInteraction
                                                                  : Qt::TextSelectableByMouse);

    d->fading.open(s_fadeDuration);
}

void QKAboutPanel::close()
{
    d->fading.close(s_fadeDuration);
}

bool QKAboutPanel::isVisible() const
{
    return d->fading.isVisible();
}

void QKAboutPanel::openLegal(QObject *)
{
    openDocument(QStringLiteral("legal"));
}

void QKAboutPanel::openAcknowledgements(QObject *)
{
    openDocument(QStringLiteral("acknowledgments"));
}

void QKAboutPanel::openDocument(const QString &name)
{
    const QString path = bundle()->pathForResource(name, QStringLiteral("pdf"));
    if (path.isEmpty())
        return;
    QKWorkspace::openFile(path.startsWith(QLatin1Char(':')) ? extractedResource(path) : path);
}

QWidget *QKAboutPanel::window() const
{
    return d->fading.window();
}

QWidget *QKAboutPanel::view() const
{
    return d->view;
}
