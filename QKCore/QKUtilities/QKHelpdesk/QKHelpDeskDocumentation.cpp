#include "QKHelpDeskDocumentation.h"
#include "ui_QKHelpDeskDocumentation.h"

#include "QKHelpDesk.h"
#include "QKHelpDeskDates.h"

#include <QKAlert.h>
#include <QKApplication.h>
#include <QKApplicationLog.h>
#include <QKClock.h>
#include <QKUserDefaults.h>
#include <QKWorkspace.h>

#include <QUrl>

namespace {

const QString NotifyKey = QStringLiteral("Notify Documentation Updates");
const QString LastDownloadKey = QStringLiteral("Last Documentation Download");

/** The cast's publication date; invalid when it has none or it cannot be read (logged). */
QDateTime publishedDate(const QVariantMap &docCast)
{
    const QString text = docCast.value(QStringLiteral("published")).toString();
    if (text.isEmpty())
        return QDateTime();
    const QDateTime date =
        QKHelpDeskDates::dateWithCalendarFormat(text, QKHelpDeskDocumentation::PublishedCastFormat);
    if (!date.isValid()) {
        QKApplicationLog::sharedLog()->warning(
            QKApplicationLogContext(QStringLiteral("QKHelpDesk")),
            QStringLiteral("the documentation cast's publication date \"%1\" is not a date")
                .arg(text));
    }
    return date;
}

} // namespace

const QString QKHelpDeskDocumentation::PublishedCastFormat =
    QStringLiteral("%a, %d %b %Y %I:%M:%S %z");
const QString QKHelpDeskDocumentation::PublishedTextFormat =
    QStringLiteral("%a, %b %d %Y %1I:%M %p");

QKHelpDeskDocumentation::QKHelpDeskDocumentation(QWidget *parent)
    : QKHelpDeskView(parent), ui(std::make_unique<Ui::QKHelpDeskDocumentation>())
{
    ui->setupUi(this);
    connect(ui->downloadButton, &QPushButton::clicked, this, [this] { download(this); });
    connect(ui->viewOnlineButton, &QPushButton::clicked, this, [this] { viewOnline(this); });
    connect(ui->notifyButton, &QCheckBox::clicked, this, [this] { notifyChanged(this); });
}

QKHelpDeskDocumentation::~QKHelpDeskDocumentation() = default;

QString QKHelpDeskDocumentation::identifier() const
{
    return QStringLiteral("documentation");
}

QString QKHelpDeskDocumentation::title() const
{
    return QStringLiteral("Documentation");
}

void QKHelpDeskDocumentation::awakeFromNib()
{
    QKHelpDeskView::awakeFromNib();
    ui->notifyButton->setChecked(QKUserDefaults::standardUserDefaults()->boolForKey(NotifyKey));
}

void QKHelpDeskDocumentation::castsDidLoad()
{
    const QVariantMap docCast = helpDesk() ? helpDesk()->docCast() : QVariantMap();
    const QDateTime published = publishedDate(docCast);
    const QDateTime last =
        QKHelpDeskDates::storedDate(LastDownloadKey, QKHelpDeskDates::referenceDate());

    // Without a value the lines keep their text, so the pane never looks broken.
    ui->versionText->setText(QStringLiteral("The current version of the documentation is %1")
                                 .arg(docCast.value(QStringLiteral("version")).toString()));
    ui->publishedText->setText(
        QStringLiteral("Published on %1")
            .arg(published.isValid()
                     ? QKHelpDeskDates::stringWithCalendarFormat(published, PublishedTextFormat)
                     : QString()));

    if (!QKUserDefaults::standardUserDefaults()->boolForKey(NotifyKey) || !published.isValid() ||
        published <= last)
        return;
    const int answer = QKAlert::runModal(
        QStringLiteral("A documentation update is available"),
        QStringLiteral("You can disable this alert from the Documentation section of the Help "
                       "Desk."),
        {QStringLiteral("Help Desk"), QStringLiteral("Later")});
    if (answer == 0 && helpDesk())
        helpDesk()->_openWindow(title());
}

void QKHelpDeskDocumentation::download(QObject *)
{
    QKHelpDesk *desk = helpDesk();
    if (!desk)
        return;
    const QString name = QKApplication::currentName().remove(u' ');
    const int tag = ui->fileTypePopup->selectedTag();
    const QString type = tag == 0   ? QStringLiteral("pdf")
                         : tag == 1 ? QStringLiteral("zip")
                                    : QString();
    const QString folder =
        QStringLiteral("%1/manuals/%2/%3/").arg(desk->baseURL(), desk->appCode(), desk->version());
    const QString file = QStringLiteral("%1_%2.x_Manual.%3").arg(name, desk->version(), type);
    // Counted when the download starts, so a failed download still silences the alert.
    QKUserDefaults::standardUserDefaults()->setObject(QKHelpDeskDates::description(QKClock::now()),
                                                      LastDownloadKey);
    // The folder ends in a slash already; the server expects the double slash.
    desk->downloadFromPath(QStringLiteral("%1/%2/%3").arg(folder, type, file));
}

void QKHelpDeskDocumentation::viewOnline(QObject *)
{
    const QKHelpDesk *desk = helpDesk();
    if (!desk)
        return;
    QKWorkspace::openURL(QUrl(QStringLiteral("%1/manuals.php?appCode=%2&version=%3")
                                  .arg(desk->baseURL(), desk->appCode(), desk->version())));
}

void QKHelpDeskDocumentation::notifyChanged(QObject *)
{
    QKUserDefaults::standardUserDefaults()->setBool(ui->notifyButton->isChecked(), NotifyKey);
}
