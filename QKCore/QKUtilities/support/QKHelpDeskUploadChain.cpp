#include "QKHelpDeskUploadChain.h"

#include "HSForms.h"
#include "QKCrashReporter.h"
#include "QKHelpDesk.h"
#include "QKHelpDeskExchange.h"
#include "QKHelpDeskProgressPanel.h"
#include "QKHelpDeskSupportLog.h"
#include "QKHelpDeskView.h"
#include "QKSupportSite.h"
#include "QKSystemProfiler.h"
#include "QKZipArchiver.h"

#include <QKApplication.h>
#include <QKApplicationLog.h>
#include <QKFile.h>

#include <QDir>
#include <QFile>
#include <QPointer>
#include <QUrl>

#include <thread>

using namespace QKHelpDeskSupportLog;

namespace {

// Empty without a temporary folder, so that nothing is written beside the working folder.
QString archivePath(const QString &name)
{
    const QString folder = QKApplication::currentTempDirectory();
    return folder.isEmpty() ? QString() : QDir(folder).filePath(name);
}

// The archive of a stage, made and readable; the upload reads it as it goes.
bool archiveIsReadable(const QString &path)
{
    QFile archive(path);
    return archive.open(QIODevice::ReadOnly);
}

bool zipped(const QStringList &paths, const QString &archive)
{
    return !archive.isEmpty() && QKZipArchiver::zipPaths(paths, archive) &&
           archiveIsReadable(archive);
}

/** What one stage shows and logs while it archives and sends, word for word. */
struct StageTexts
{
    QString archive;         // file name in the temporary folder
    QString archivingTitle;  // progress panel
    QString sendingTitle;    // progress panel
    QString failed;          // the panel's closing message when nothing could be sent
    QString archivingFailed; // warning
    QString sending;         // info
    QString startFailed;     // warning
};

// The profiler makes its own archive; nothing is archived here.
const StageTexts SystemProfileTexts{QString(),
                                    QString(),
                                    QStringLiteral("Sending system profile..."),
                                    QStringLiteral("Send system profile failed!"),
                                    QStringLiteral("archiving system profile failed"),
                                    QStringLiteral("sending system profile"),
                                    QStringLiteral("start sending system profile failed")};
const StageTexts CrashLogTexts{QStringLiteral("crash_log.zip"),
                               QStringLiteral("Archiving crash logs..."),
                               QStringLiteral("Sending crash log..."),
                               QStringLiteral("Send crash log failed!"),
                               QStringLiteral("archiving crash logs failed"),
                               QStringLiteral("sending the crash log"),
                               QStringLiteral("start sending crash log failed")};
const StageTexts DebugLogTexts{QStringLiteral("debug_log.zip"),
                               QStringLiteral("Archiving debug log..."),
                               QStringLiteral("Sending debug log..."),
                               QStringLiteral("Send debug log failed!"),
                               QStringLiteral("archiving debug log failed"),
                               QStringLiteral("sending the debug log"),
                               QStringLiteral("start sending the debug log failed")};
const StageTexts AttachmentsTexts{QStringLiteral("attachments.zip"),
                                  QStringLiteral("Archiving attachments..."),
                                  QStringLiteral("Sending attachments..."),
                                  QStringLiteral("Send attachments failed!"),
                                  QStringLiteral("archiving attachments failed"),
                                  QStringLiteral("sending attachments"),
                                  QStringLiteral("start sending attachments failed")};

} // namespace

struct QKHelpDeskUploadChain::Private
{
    QKHelpDeskView *pane = nullptr;
    QKHelpDeskExchange *exchange = nullptr;
    Plan plan;
    QKSystemProfiler profiler;
    std::thread profileWorker;

    QKHelpDesk *helpDesk() const { return pane->helpDesk(); }
    void setTitle(const QString &title) const
    {
        if (QKHelpDesk *desk = helpDesk())
            desk->setProgressPanelTitle(title);
    }
    void setCancelable(bool cancelable) const
    {
        if (QKHelpDesk *desk = helpDesk())
            desk->setProgressCancelable(cancelable);
    }
    void closePanel(const std::optional<QString> &message = std::nullopt) const
    {
        QKHelpDesk *desk = helpDesk();
        if (desk && message)
            desk->closeProgressPanelWithMessage(*message);
        else if (desk)
            desk->closeProgressPanel();
    }
    void joinProfileWorker()
    {
        if (profileWorker.joinable())
            profileWorker.join();
    }
    // Starts one upload; false when the exchange could not start.
    bool upload(const QString &name, const QString &archive,
                QKHelpDeskExchange::EndMethod endMethod) const
    {
        if (!exchange->start(QUrl(QKSupportSite::helpDeskAPIURL()),
                             HSForms::addDocument(plan.requestHistoryID, name, archive)))
            return false;
        exchange->setEndConnectionSelector(std::move(endMethod));
        return true;
    }
    // Sends a stage's archive as document @p name. The log lines name the stage's method,
    // so its location is passed on.
    void send(const QString &archive, const QString &name, const StageTexts &texts,
              QKHelpDeskExchange::EndMethod endMethod, std::source_location location) const
    {
        info(pane, texts.sending, location);
        if (!upload(name, archive, std::move(endMethod))) {
            closePanel(texts.failed);
            warning(pane, texts.startFailed, location);
        }
    }
    // Zips @p paths into the stage's archive and sends it. The upload reads the archive from
    // a file it already has open, so the archive is removed at once.
    void archiveAndSend(const QStringList &paths, const QString &name, const StageTexts &texts,
                        QKHelpDeskExchange::EndMethod endMethod,
                        std::source_location location) const
    {
        setTitle(texts.archivingTitle);
        // The connection is made while the files are archived, not after.
        exchange->prepare(QUrl(QKSupportSite::helpDeskAPIURL()));
        const QString archive = archivePath(texts.archive);
        if (!zipped(paths, archive)) {
            closePanel(texts.failed);
            warning(pane, texts.archivingFailed, location);
        } else {
            setTitle(texts.sendingTitle);
            send(archive, name, texts, std::move(endMethod), location);
        }
        QFile::remove(archive);
    }
};

QKHelpDeskUploadChain::QKHelpDeskUploadChain(QKHelpDeskView *pane, QKHelpDeskExchange *exchange)
    : QObject(pane), d(std::make_unique<Private>())
{
    d->pane = pane;
    d->exchange = exchange;
}

QKHelpDeskUploadChain::~QKHelpDeskUploadChain()
{
    // The worker hands its result to this object; it must not outlive it.
    d->joinProfileWorker();
}

void QKHelpDeskUploadChain::setPlan(const Plan &plan)
{
    d->plan = plan;
}

QKHelpDeskUploadChain::Plan QKHelpDeskUploadChain::plan() const
{
    return d->plan;
}

void QKHelpDeskUploadChain::setSystemProfiler(const QKSystemProfiler &profiler)
{
    d->profiler = profiler;
}

QString QKHelpDeskUploadChain::debugLogPath()
{
    // The file the shared log writes, so the two never name different files.
    return QKApplicationLog::sharedLog()->logFilePath();
}

void QKHelpDeskUploadChain::createSystemProfile()
{
    d->joinProfileWorker();
    QKHelpDesk *desk = d->helpDesk();
    const std::atomic<bool> *cancel = desk ? desk->progressPanel()->cancelFlag() : nullptr;
    QPointer<QKHelpDesk> progressDesk(desk);
    const QKSystemProfiler::ProgressCallback progress =
        QKSystemProfiler::progressOnMainThread(this, [progressDesk] {
            if (progressDesk)
                progressDesk->progressUpdate(0.0);
        });
    d->profileWorker = std::thread([this, profiler = d->profiler,
                                    folder = QKApplication::currentTempDirectory(), cancel,
                                    progress] {
        bool cancelled = false;
        const QString archive = profiler.createSystemProfile(folder, progress, cancel, &cancelled);
        QMetaObject::invokeMethod(
            this, [this, archive, cancelled] { endCreateSystemProfile(archive, cancelled); },
            Qt::QueuedConnection);
    });
}

void QKHelpDeskUploadChain::endCreateSystemProfile(const QString &archivePath, bool cancelled)
{
    d->joinProfileWorker();
    if (cancelled) {
        d->closePanel();
        // The partial profile's archive stays with the temporary files: nothing was sent.
        warning(parent(), QStringLiteral("cancelled createSystemProfile"));
        return;
    }
    const StageTexts &texts = SystemProfileTexts;
    d->setTitle(texts.sendingTitle);
    d->setCancelable(false);
    if (archivePath.isEmpty() || !archiveIsReadable(archivePath)) {
        d->closePanel(texts.failed);
        warning(parent(), texts.archivingFailed);
    } else {
        d->send(
            archivePath, QStringLiteral("system_profile"), texts,
            [this](const auto &error) { endSubmitSystemProfile(error); },
            std::source_location::current());
    }
    if (!archivePath.isEmpty())
        QFile::remove(archivePath);
}

void QKHelpDeskUploadChain::endSubmitSystemProfile(const std::optional<QString> &error)
{
    if (error) {
        d->closePanel(QStringLiteral("Send system profile failed!"));
        warning(parent(), QStringLiteral("sending system profile failed"));
        return;
    }
    info(parent(), QStringLiteral("send system profile success"));
    if (d->plan.crashLogs)
        submitCrashLog();
    else
        endSubmitCrashLog(std::nullopt);
}

void QKHelpDeskUploadChain::submitCrashLog()
{
    info(parent(), QStringLiteral("preparing the crash log"));
    const QStringList paths = QKCrashReporter::crashLogPaths(QKApplication::currentName());
    if (paths.isEmpty()) {
        d->closePanel(QStringLiteral("Could not find any crash logs!"));
        return;
    }
    d->archiveAndSend(
        paths, QStringLiteral("crash_log"), CrashLogTexts,
        [this](const auto &error) { endSubmitCrashLog(error); }, std::source_location::current());
}

void QKHelpDeskUploadChain::endSubmitCrashLog(const std::optional<QString> &error)
{
    if (error) {
        d->closePanel(QStringLiteral("Send crash log failed!"));
        warning(parent(), QStringLiteral("send crash log failed"));
        return;
    }
    info(parent(), QStringLiteral("send crash log success"));
    if (d->plan.debugLog)
        submitDebugLog();
    else
        endSubmitDebugLog(std::nullopt);
}

void QKHelpDeskUploadChain::submitDebugLog()
{
    const QString path = debugLogPath();
    info(parent(), QStringLiteral("preparing the debug log"));
    if (!QKFile::existsAtPath(path)) {
        d->closePanel(QStringLiteral("Could not find debug log!"));
        return;
    }
    d->archiveAndSend(
        {path}, QStringLiteral("debug_log"), DebugLogTexts,
        [this](const auto &error) { endSubmitDebugLog(error); }, std::source_location::current());
}

void QKHelpDeskUploadChain::endSubmitDebugLog(const std::optional<QString> &error)
{
    if (error) {
        d->closePanel(QStringLiteral("Send debug log failed!"));
        info(parent(), QStringLiteral("sending debug log failed"));
        return;
    }
    info(parent(), QStringLiteral("send debug log success"));
    submitAttachedFiles();
}

void QKHelpDeskUploadChain::submitAttachedFiles()
{
    if (d->plan.attachedFiles.isEmpty()) {
        endSubmitAttachedFiles(std::nullopt);
        return;
    }
    info(parent(), QStringLiteral("preparing attachments"));
    // The help desk names the attachments' archive after the request.
    d->archiveAndSend(
        d->plan.attachedFiles, d->plan.requestID, AttachmentsTexts,
        [this](const auto &error) { endSubmitAttachedFiles(error); },
        std::source_location::current());
}

void QKHelpDeskUploadChain::endSubmitAttachedFiles(const std::optional<QString> &error)
{
    if (error) {
        d->closePanel(QStringLiteral("Send attached files failed!"));
        info(parent(), QStringLiteral("sending attachments failed"));
        return;
    }
    info(parent(), QStringLiteral("submit attached files success"));
    emit finished();
}
