#include "QKHelpDesk.h"
#include "ui_QKHelpDesk.h"

#include "HSResults.h"
#include "QKCrashReporter.h"
#include "QKHelpDeskCasts.h"
#include "QKHelpDeskDebug.h"
#include "QKHelpDeskDocumentation.h"
#include "QKHelpDeskDownload.h"
#include "QKHelpDeskForumView.h"
#include "QKHelpDeskKnowledgeBaseView.h"
#include "QKHelpDeskProgressPanel.h"
#include "QKHelpDeskReleaseNotesView.h"
#include "QKHelpDeskSoftwareUpdate.h"
#include "QKHelpDeskSupport.h"
#include "QKHelpDeskTutorials.h"
#include "QKHelpDeskWindow.h"
#include "QKSupportSite.h"
#include "SUAppcastItem.h"
#include "SUConstants.h"
#include "SUUpdater.h"

#include <QKAlert.h>
#include <QKApplication.h>
#include <QKApplicationLog.h>
#include <QKBundle.h>
#include <QKFile.h>
#include <QKMenus.h>
#include <QKSynchronousRequest.h>
#include <QKUserDefaults.h>
#include <QKWorkspace.h>

#include <QAction>
#include <QDir>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QPointer>
#include <QScreen>

#include <mutex>
#include <thread>

namespace {

QKHelpDesk *s_helpDesk = nullptr;
const QString OnlineDocumentationTitle = QStringLiteral("Online Documentation");

// The name a download is saved under: the URL's last path component, decoded (an escaped
// slash decodes into a separator first, so the name never leaves the folder). A URL without
// a name has nothing to save as.
QString downloadFileName(const QUrl &url)
{
    const QString name = url.fileName(QUrl::FullyDecoded);
    return name == QLatin1String(".") || name == QLatin1String("..") ? QString() : name;
}

// A fresh account has no download folder yet; browsers make it on the first download too.
QString downloadDestination(const QString &folder, const QString &fileName)
{
    if (folder.isEmpty() || fileName.isEmpty())
        return QString();
    if (!QKFile::existsAtPath(folder) && QKFile::createDirectoryAtPath(folder)) {
        QKApplicationLog::sharedLog()->info(
            QKApplicationLogContext(QStringLiteral("QKHelpDesk"), nullptr),
            QStringLiteral("Created the download folder %1").arg(folder));
    }
    return QDir(folder).filePath(fileName);
}
const QString CheckForUpdatesTitle = QStringLiteral("Check for Updates");

/**
 * The help desk's registered defaults. They are registered as one list headed by the
 * user's e-mail address, so without an address on the user's own card none of them is:
 * the notify settings and the start-up check then read as false.
 */
void registerDefaults()
{
    static std::once_flag once;
    std::call_once(once, [] {
        const QString email = QKWorkspace::meCard().email;
        if (email.isEmpty())
            return;
        QKUserDefaults::standardUserDefaults()->registerDefaults({
            {QStringLiteral("Help Desk Email"), email},
            {QStringLiteral("Notify Documentation Updates"), true},
            {QStringLiteral("Notify Tutorial Updates"), true},
            {SUCheckAtStartupKey, true},
        });
    });
}

} // namespace

struct QKHelpDesk::Private
{
    std::unique_ptr<QKHelpDeskWindow> window;
    QPointer<QKHelpDeskView> currentView;
    QStringList toolbarItemIdentifiers;
    QKHelpDeskToolbar *toolbar = nullptr;
    QKHelpDeskDocumentation *documentationView = nullptr;
    QKHelpDeskTutorials *tutorialsView = nullptr;
    QKHelpDeskForumView *forumView = nullptr;
    QKHelpDeskKnowledgeBaseView *knowledgeBaseView = nullptr;
    QKHelpDeskSoftwareUpdate *softwareUpdateView = nullptr;
    QKHelpDeskReleaseNotesView *releaseNotesView = nullptr;
    QKHelpDeskSupport *supportView = nullptr;
    QKHelpDeskDebug *debugView = nullptr;
    QList<QKHelpDeskView *> views;
    QKHelpDeskProgressPanel *progressPanel = nullptr;

    QString baseURL;
    QString appCode;
    QString version;
    QList<SUAppcastItem> appCast;
    QVariantMap docCast;
    QVariantList tutorialCast;
    SUUpdater *sparkle = nullptr;
    // Joined before the help desk goes away: its last step posts the casts to this object.
    std::thread castsThread;

    void stopLoadingCasts()
    {
        if (!castsThread.joinable())
            return;
        QKSynchronousRequest::abortAll();
        castsThread.join();
    }

    QNetworkAccessManager *network = nullptr;
    // Ended downloads are freed when the next one starts: when they end, their own frames
    // may still be on the stack below a progress panel pass.
    QList<QPointer<QKHelpDeskDownload>> endedDownloads;
    qint64 downloadSize = 0;
    qint64 downloaded = 0;
};

QKHelpDesk *QKHelpDesk::helpDesk()
{
    if (!s_helpDesk) {
        // Published before init() so that everything init() reaches finds this instance.
        s_helpDesk = new QKHelpDesk;
        s_helpDesk->init();
    }
    return s_helpDesk;
}

void QKHelpDesk::startup()
{
    helpDesk();
    QKCrashReporter::install();
}

void QKHelpDesk::openWindow(QObject *sender)
{
    QString name;
    if (const auto *item = qobject_cast<const QAction *>(sender))
        name = QKMenus::plainTitle(item->text());
    else if (sender)
        name = sender->property("title").toString();
    helpDesk()->_openWindow(name);
}

void QKHelpDesk::openWindow(const QString &name)
{
    helpDesk()->_openWindow(name);
}

void QKHelpDesk::applicationErrorWithReason(const QString &reason, const QString &stackTrace)
{
    openWindow(QStringLiteral("Support"));
    helpDesk()->supportView()->setupForApplicationErrorWithReason(reason, stackTrace);
}

QString QKHelpDesk::downloadDirectory()
{
    return QKWorkspace::downloadDirectory();
}

QKHelpDesk::QKHelpDesk() : d(std::make_unique<Private>())
{
    registerDefaults();
}

QKHelpDesk::~QKHelpDesk()
{
    d->stopLoadingCasts();
}

void QKHelpDesk::init()
{
    QKApplication *app = QKApplication::sharedApplication();
    d->baseURL = QKSupportSite::baseURL();
    d->appCode = app ? app->code().toLower() : QString();
    d->version = QKBundle::mainBundle()
                     ->objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString"))
                     .toString()
                     .left(1);

    const QString marker = launchFilePath();
    if (QKFile::existsAtPath(marker)) {
        const int answer = QKAlert::runModal(
            QStringLiteral("%1 seems to have unexpectedly terminated! Would you like to file a "
                           "report with the Help Desk?")
                .arg(QKApplication::currentName()),
            QStringLiteral("Reporting this crash will help track down the problem and solve it "
                           "in future versions. Reporting it now may give the best recollection "
                           "of what was happening in the application."),
            {QStringLiteral("Yes"), QStringLiteral("No")});
        if (answer == 0) {
            _openWindow(QString());
            setPane(QStringLiteral("support"));
            d->supportView->setupForCrashReport();
        }
        QKFile::removeItemAtPath(marker);
    }
    QKFile::createDirectoryAtPath(QFileInfo(marker).path());
    QKFile::createFileAtPath(marker, QByteArray());

    if (app) {
        connect(app, &QKApplication::willTerminate, this, &QKHelpDesk::applicationWillTerminate);
        // Asking for the folder creates it when missing.
        QKFile::emptyDirectoryAtPath(app->tempDirectory());
    }

    const bool beta = app && app->delegate() && app->delegate()->isBetaVersion();
    QKUserDefaults::standardUserDefaults()->setObject(
        QStringLiteral("%1/appcast.php?titleCode=%2&titleVersion=%3&testing=%4&style=appcast")
            .arg(d->baseURL, d->appCode, d->version)
            .arg(beta ? 1 : 0),
        SUFeedURLKey);

    d->sparkle = new SUUpdater(this);
    d->sparkle->setDownloadHandler([this](const QUrl &url) {
        _openWindow(QStringLiteral("Software Update"));
        downloadFromPath(url.toString());
    });
    d->sparkle->startupCheck();
}

QKHelpDeskWindow *QKHelpDesk::window() const
{
    return d->window.get();
}

SUUpdater *QKHelpDesk::sparkle() const
{
    return d->sparkle;
}

QList<SUAppcastItem> QKHelpDesk::appCast() const
{
    return d->appCast;
}

QVariantMap QKHelpDesk::docCast() const
{
    return d->docCast;
}

QVariantList QKHelpDesk::tutorialCast() const
{
    return d->tutorialCast;
}

QString QKHelpDesk::baseURL() const
{
    return d->baseURL;
}

QString QKHelpDesk::appCode() const
{
    return d->appCode;
}

QString QKHelpDesk::version() const
{
    return d->version;
}

QKHelpDeskSupport *QKHelpDesk::supportView() const
{
    return d->supportView;
}

QList<QKHelpDeskView *> QKHelpDesk::views() const
{
    return d->views;
}

QKHelpDeskView *QKHelpDesk::currentView() const
{
    return d->currentView;
}

QKHelpDeskToolbar *QKHelpDesk::toolbar() const
{
    return d->toolbar;
}

QKHelpDeskProgressPanel *QKHelpDesk::progressPanel()
{
    if (!d->window)
        loadNib();
    return d->progressPanel;
}

QString QKHelpDesk::launchFilePath() const
{
    return QKFile::conformPath(QStringLiteral("~/Library/Application Support/Velmora/%1/.launched")
                                   .arg(QKApplication::currentName()));
}

void QKHelpDesk::loadCasts()
{
    const QUrl feedURL(QKUserDefaults::standardUserDefaults()->stringForKey(SUFeedURLKey));
    const QList<SUAppcastItem> appCast = QKHelpDeskCasts::appcast(feedURL, SUUpdater::userAgent());
    const QVariantMap docCast = QKHelpDeskCasts::documentation(
        QUrl(QStringLiteral("%1/manual_version.php?appCode=%2&version=%3")
                 .arg(d->baseURL, d->appCode, d->version)));
    const QVariantList tutorialCast = QKHelpDeskCasts::tutorials(QUrl(
        QStringLiteral("%1/tutorials/%2/%3/index.xml").arg(d->baseURL, d->appCode, d->version)));
    const std::optional<HSResults> categories =
        QKHelpDeskCasts::categories(QUrl(QKSupportSite::helpDeskAPIURL()));

    // Widgets belong to the main thread: the category menu is rebuilt there, before the
    // panes hear about the casts, as queued calls keep their order.
    if (categories) {
        QMetaObject::invokeMethod(
            this, [this, results = *categories] { d->supportView->buildCategoryPopup(results); },
            Qt::QueuedConnection);
    }
    QMetaObject::invokeMethod(
        this,
        [this, appCast, docCast, tutorialCast] {
            d->appCast = appCast;
            d->docCast = docCast;
            d->tutorialCast = tutorialCast;
            castsDidLoad();
        },
        Qt::QueuedConnection);
}

void QKHelpDesk::castsDidLoad()
{
    for (QKHelpDeskView *pane : std::as_const(d->views))
        pane->castsDidLoad();
    emit castsLoaded();
}

void QKHelpDesk::applicationWillTerminate()
{
    // Network requests of worker threads end now, so the process can quit cleanly.
    d->stopLoadingCasts();
    QKFile::removeItemAtPath(launchFilePath());
    if (const QKApplication *app = QKApplication::sharedApplication())
        QKFile::emptyDirectoryAtPath(app->tempDirectory());
}

void QKHelpDesk::loadNib()
{
    d->window = std::make_unique<QKHelpDeskWindow>();
    QKHelpDeskWindow *window = d->window.get();
    Ui::QKHelpDesk().setupUi(window);
    d->documentationView = new QKHelpDeskDocumentation(window);
    d->tutorialsView = new QKHelpDeskTutorials(window);
    d->forumView = new QKHelpDeskForumView(window);
    d->knowledgeBaseView = new QKHelpDeskKnowledgeBaseView(window);
    d->softwareUpdateView = new QKHelpDeskSoftwareUpdate(window);
    d->releaseNotesView = new QKHelpDeskReleaseNotesView(window);
    d->supportView = new QKHelpDeskSupport(window);
    d->debugView = new QKHelpDeskDebug(window);
    d->progressPanel = new QKHelpDeskProgressPanel(window);
    const QList<QKHelpDeskView *> panes = {
        d->documentationView,  d->tutorialsView,    d->forumView,   d->knowledgeBaseView,
        d->softwareUpdateView, d->releaseNotesView, d->supportView, d->debugView};
    for (QKHelpDeskView *pane : panes) {
        pane->hide();
        pane->setHelpDesk(this);
    }
    for (QKHelpDeskView *pane : panes)
        pane->awakeFromNib();
    window->installEventFilter(this);
    awakeFromNib();
}

void QKHelpDesk::awakeFromNib()
{
    // Forum and knowledge base exist in the window but are not offered in the toolbar.
    d->views = {d->documentationView, d->tutorialsView, d->softwareUpdateView,
                d->releaseNotesView,  d->debugView,     d->supportView};
    d->toolbar = new QKHelpDeskToolbar(QStringLiteral("Help Desk Toolbar"), d->window.get());
    d->toolbar->setAllowsUserCustomization(true);
    d->toolbar->setAutosavesConfiguration(true);
    d->toolbarItemIdentifiers.clear();
    for (const QKHelpDeskView *pane : std::as_const(d->views))
        d->toolbarItemIdentifiers << pane->identifier();
    d->toolbar->setDelegate(this);
    d->window->addToolBar(Qt::TopToolBarArea, d->toolbar);

    const QString first = d->toolbarItemIdentifiers.constFirst();
    const std::unique_ptr<QAction> item(toolbarItemForItemIdentifier(d->toolbar, first, false));
    changePane(item.get());

    if (const QScreen *screen = d->window->screen()) {
        const QRect area = screen->availableGeometry();
        d->window->move(area.center() - QPoint(d->window->width() / 2, d->window->height() / 2));
    }
    d->castsThread = std::thread([this] { loadCasts(); });
}

QAction *QKHelpDesk::toolbarItemForItemIdentifier(QKHelpDeskToolbar *, const QString &identifier,
                                                  bool)
{
    // No parent: the toolbar (or the caller) takes the item over.
    auto *item = new QAction;
    QKHelpDeskToolbar::setItemIdentifier(item, identifier);
    item->setIcon(
        QIcon(QKBundle::libraryBundle()->pathForResource(identifier, QStringLiteral("png"))));
    for (const QKHelpDeskView *pane : std::as_const(d->views)) {
        if (pane->identifier() == identifier) {
            item->setText(pane->title());
            item->setToolTip(pane->title());
            break;
        }
    }
    connect(item, &QAction::triggered, this, [this, item] { changePane(item); });
    return item;
}

QStringList QKHelpDesk::toolbarDefaultItemIdentifiers(const QKHelpDeskToolbar *) const
{
    return {QStringLiteral("documentation"), QStringLiteral("tutorials"),
            QStringLiteral("softwareUpdate"), QStringLiteral("releaseNotes"),
            QStringLiteral("support")};
}

QStringList QKHelpDesk::toolbarAllowedItemIdentifiers(const QKHelpDeskToolbar *) const
{
    return {QStringLiteral("documentation"),
            QStringLiteral("tutorials"),
            QStringLiteral("softwareUpdate"),
            QStringLiteral("releaseNotes"),
            QStringLiteral("debug"),
            QStringLiteral("support"),
            QKHelpDeskToolbar::SeparatorItemIdentifier,
            QKHelpDeskToolbar::SpaceItemIdentifier,
            QKHelpDeskToolbar::FlexibleSpaceItemIdentifier,
            QKHelpDeskToolbar::CustomizeToolbarItemIdentifier};
}

QStringList QKHelpDesk::toolbarSelectableItemIdentifiers(const QKHelpDeskToolbar *) const
{
    return d->toolbarItemIdentifiers;
}

void QKHelpDesk::_openWindow(const QString &name)
{
    if (!d->window)
        loadNib();
    d->window->show();
    d->window->raise();
    d->window->activateWindow();
    if (name == OnlineDocumentationTitle) {
        d->documentationView->viewOnline(this);
        return;
    }
    if (name == CheckForUpdatesTitle) {
        d->softwareUpdateView->checkNow(this);
        return;
    }
    for (const QKHelpDeskView *pane : std::as_const(d->views)) {
        if (pane->title() == name)
            setPane(pane->identifier());
    }
}

void QKHelpDesk::changePane(QObject *sender)
{
    setPane(QKHelpDeskToolbar::itemIdentifier(qobject_cast<QAction *>(sender)));
}

void QKHelpDesk::setPane(const QString &identifier)
{
    QKHelpDeskView *pane = nullptr;
    for (QKHelpDeskView *candidate : std::as_const(d->views)) {
        if (candidate->identifier() == identifier) {
            pane = candidate;
            break;
        }
    }
    // However a pane is chosen, the toolbar shows which one is up.
    if (pane && d->toolbar)
        d->toolbar->setSelectedItemIdentifier(identifier);
    if (pane == d->currentView || !d->window)
        return;
    d->currentView = pane;
    d->window->showPane(pane);
}

QSize QKHelpDesk::windowWillResize(const QSize &proposedFrameSize) const
{
    if (!d->window)
        return proposedFrameSize;
    return d->window->allowedFrameSize(proposedFrameSize, d->window->size());
}

void QKHelpDesk::windowWillClose()
{
    if (d->window)
        d->window->setFocus(Qt::OtherFocusReason);
}

bool QKHelpDesk::eventFilter(QObject *watched, QEvent *event)
{
    if (d->window && watched == d->window.get() && event->type() == QEvent::Close)
        windowWillClose();
    return QObject::eventFilter(watched, event);
}

void QKHelpDesk::downloadFromPath(const QString &path)
{
    const QUrl url(path);
    const QString fileName = downloadFileName(url);
    const QString destination = downloadDestination(downloadDirectory(), fileName);
    for (const QPointer<QKHelpDeskDownload> &ended : std::as_const(d->endedDownloads)) {
        if (ended)
            ended->deleteLater();
    }
    d->endedDownloads.clear();
    if (!d->network)
        d->network = new QNetworkAccessManager(this);
    auto *download = new QKHelpDeskDownload(url, destination, d->network, this);
    connect(download, &QKHelpDeskDownload::didReceiveResponse, this, [this](qint64 length) {
        d->downloadSize = length;
        d->downloaded = 0;
    });
    connect(download, &QKHelpDeskDownload::didReceiveDataOfLength, this,
            [this, download](qint64 length) {
                d->downloaded += length;
                const float fraction = float(d->downloaded) / float(d->downloadSize);
                const int response = progressUpdate(fraction);
                // The pass may have delivered the download's end (and closed the panel);
                // only a download still running was cancelled.
                if (response != QKHelpDeskProgressPanel::ContinuesResponse &&
                    download->isRunning()) {
                    download->cancel();
                    closeProgressPanel();
                    d->endedDownloads << download;
                    emit downloadEnded(false);
                }
            });
    connect(download, &QKHelpDeskDownload::didFinish, this, [this, download] {
        closeProgressPanel();
        d->endedDownloads << download;
        emit downloadEnded(true);
    });
    connect(download, &QKHelpDeskDownload::didFailWithError, this,
            [this, download](const QString &error) {
                closeProgressPanel();
                QKApplicationLog::sharedLog()->warning(
                    QKApplicationLogContext(QStringLiteral("QKHelpDesk"), this),
                    QStringLiteral("didFailWithError:%1").arg(error));
                d->endedDownloads << download;
                // The network's failures pass quietly; a file that cannot be saved is the
                // user's to fix, so they learn where and why.
                if (!download->writeError().isEmpty()) {
                    QKAlert::runModal(QStringLiteral("The download could not be saved to \"%1\".")
                                          .arg(download->destinationPath().isEmpty()
                                                   ? downloadDirectory()
                                                   : download->destinationPath()),
                                      download->writeError());
                }
                emit downloadEnded(false);
            });
    download->start();

    setProgressPanelTitle(QStringLiteral("Downloading %1...").arg(fileName));
    setProgressIsIndeterminate(false);
    setProgressCancelable(true);
    openProgressPanel();
}

void QKHelpDesk::setProgressPanelTitle(const QString &title)
{
    progressPanel()->setProgressPanelTitle(title);
}

void QKHelpDesk::setProgressIsIndeterminate(bool indeterminate)
{
    progressPanel()->setProgressIsIndeterminate(indeterminate);
}

void QKHelpDesk::setProgressCancelable(bool cancelable)
{
    progressPanel()->setProgressCancelable(cancelable);
}

void QKHelpDesk::openProgressPanel()
{
    progressPanel()->openProgressPanel();
}

int QKHelpDesk::progressUpdate(double fraction)
{
    return progressPanel()->progressUpdate(fraction);
}

void QKHelpDesk::cancelProgress(QObject *)
{
    progressPanel()->cancelProgress();
}

void QKHelpDesk::closeProgressPanelWithMessage(const QString &message)
{
    progressPanel()->closeProgressPanelWithMessage(message);
}

void QKHelpDesk::closeProgressPanel()
{
    progressPanel()->closeProgressPanel();
}
