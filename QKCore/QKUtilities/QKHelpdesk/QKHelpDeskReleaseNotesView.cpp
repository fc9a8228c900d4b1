#include "QKHelpDeskReleaseNotesView.h"
#include "ui_QKHelpDeskReleaseNotesView.h"

#include "QKHelpDesk.h"
#include "SUAppcastItem.h"

#include <QKApplication.h>
#include <QKBundle.h>
#include <QKWorkspace.h>

#include <QUrl>

namespace {

constexpr double textSizeMultiplier = 0.75;

bool isBetaVersion()
{
    const QKApplication *app = QKApplication::sharedApplication();
    return app && app->delegate() && app->delegate()->isBetaVersion();
}

} // namespace

QKHelpDeskReleaseNotesView::QKHelpDeskReleaseNotesView(QWidget *parent)
    : QKHelpDeskView(parent), ui(std::make_unique<Ui::QKHelpDeskReleaseNotesView>())
{
    ui->setupUi(this);
    connect(ui->typePopup, &QComboBox::activated, this, [this] { changeType(ui->typePopup); });
    connect(ui->appcastButton, &QPushButton::clicked, this, [this] { appcast(ui->appcastButton); });
    // Links in the notes belong in the browser, not in the pane.
    connect(ui->notesView, &QTextBrowser::anchorClicked, this,
            [](const QUrl &url) { QKWorkspace::openURL(url); });
}

QKHelpDeskReleaseNotesView::~QKHelpDeskReleaseNotesView() = default;

QString QKHelpDeskReleaseNotesView::identifier() const
{
    return QStringLiteral("releaseNotes");
}

QString QKHelpDeskReleaseNotesView::title() const
{
    return QStringLiteral("Release Notes");
}

bool QKHelpDeskReleaseNotesView::isResizable() const
{
    return true;
}

double QKHelpDeskReleaseNotesView::minimumHeight() const
{
    return 200.0;
}

void QKHelpDeskReleaseNotesView::awakeFromNib()
{
    QKHelpDeskView::awakeFromNib();
    QFont font = ui->notesView->font();
    font.setPointSizeF(font.pointSizeF() * textSizeMultiplier);
    ui->notesView->setFont(font);
    loadHTMLString(QStringLiteral("Please wait for the release notes to load..."));
}

void QKHelpDeskReleaseNotesView::castsDidLoad()
{
    updateNotes();
}

void QKHelpDeskReleaseNotesView::updateNotes()
{
    const QList<SUAppcastItem> items = helpDesk() ? helpDesk()->appCast() : QList<SUAppcastItem>();
    if (items.isEmpty())
        return;
    QString html = QStringLiteral("<font face='Lucida Grande' size=2>");
    const qsizetype current = indexOfItemForCurrentVersion(items);
    switch (ui->typePopup->currentIndex()) {
    case NewestVersion:
        html += items[0].title() + QStringLiteral("<hr>") + items[0].description();
        break;
    case ThisVersion:
        html += items[current].title() + QStringLiteral("<hr>") + items[current].description();
        break;
    case OlderVersions:
        for (qsizetype i = current + 1; i < items.size(); ++i)
            html += items[i].title() + QStringLiteral("<hr>") + items[i].description() +
                    QStringLiteral("<hr>");
        break;
    default:
        break;
    }
    html += QStringLiteral("</font>");
    loadHTMLString(html);
}

void QKHelpDeskReleaseNotesView::changeType(QObject *)
{
    updateNotes();
}

void QKHelpDeskReleaseNotesView::appcast(QObject *)
{
    const QKHelpDesk *desk = helpDesk();
    if (!desk)
        return;
    if (!isBetaVersion()) {
        QKWorkspace::openURL(QUrl(QStringLiteral("%1/appcasts/%2/%3/index.xml")
                                      .arg(desk->baseURL(), desk->appCode(), desk->version())));
        return;
    }
    const QString siteRoot = QUrl(desk->baseURL())
                                 .toString(QUrl::RemoveUserInfo | QUrl::RemovePath |
                                           QUrl::RemoveQuery | QUrl::RemoveFragment);
    QKWorkspace::openURL(QUrl(QStringLiteral("%1/users/beta/appcasts/%2/%3/index.php")
                                  .arg(siteRoot, desk->appCode(), desk->version())));
}

qsizetype
QKHelpDeskReleaseNotesView::indexOfItemForCurrentVersion(const QList<SUAppcastItem> &items)
{
    const QString build = QKBundle::mainBundle()
                              ->objectForInfoDictionaryKey(QStringLiteral("CFBundleVersion"))
                              .toString();
    for (qsizetype i = 0; i < items.size(); ++i) {
        if (items[i].versionString() == build)
            return i;
    }
    return 0;
}

QString QKHelpDeskReleaseNotesView::pageSource() const
{
    return m_pageSource;
}

void QKHelpDeskReleaseNotesView::loadHTMLString(const QString &html)
{
    m_pageSource = html;
    ui->notesView->setHtml(html);
}
