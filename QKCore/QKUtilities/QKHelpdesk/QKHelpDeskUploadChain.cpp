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
#include <QKFile.h>

#include <QDir>
#include <QFile>
#include <QPointer>
#include <QUrl>

#include <thread>

using namespace QKHelpDeskSupportLog;

namespace {

QString applicationName()
{
    const QKApplication *app = QKApplication::sharedApplication();
    return app ? app->name() : QCoreApplication::applicationName();
}

QString temporaryFolder()
{
    const QKApplication *app = QKApplication::sharedApplication();
    const QString folder =
        app ? app->tempDirectory() : QDir(QDir::tempPath()).filePath(applicationName());
    QKFile::createDirectoryAtPath(folder);
    return folder;
}

QString archivePath(const QString &name)
{
    return QDir(temporaryFolder()).filePath(name);
}

// The archive of a stage, made and readable; the upload reads it as it goes.
bool archiveIsReadable(const QString &path)
{
    QFile archive(path);
    return archive.open(QIODevice::ReadOnly);
}

bool zipped(const QStringList &paths, const QString &archive)
{
    return QKZipArchiver::zipPaths(paths, archive) && archiveIsReadable(archive);
}

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
    return QKFile::conformPath(
        QStringLiteral("~/Library/Logs/Velmora/%1.log").arg(applicationName()));
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
    d->profileWorker =
        std::thread([this, profiler = d->profiler, folder = temporaryFolder(), cancel, progress] {
            bool cancelled = false;
            const QString archive =
                profiler.createSystemProfile(folder, progress, cancel, &cancelled);
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
    d->setTitle(QStringLiteral("Sending system profile..."));
    d->setCancelable(false);
    if (archivePath.isEmpty() || !archiveIsReadable(archivePath)) {
        d->closePanel(QStringLiteral("Send system profile failed!"));
        warning(parent(), QStringLiteral("archiving system profile failed"));
    } else {
        info(parent(), QStringLiteral("sending system profile"));
        if (!d->upload(QStringLiteral("system_profile"), archivePath,
                       [this](const auto &error) { endSubmitSystemProfile(error); })) {
            d->closePanel(QStringLiteral("Send system profile failed!"));
            warning(parent(), QStringLiteral("start sending system profile failed"));
        }
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
    const QStringList paths = QKCrashReporter::crashLogPaths(applicationName());
    if (paths.isEmpty()) {
        d->closePanel(QStringLiteral("Could not find any crash logs!"));
        return;
    }
    d->setTitle(QStringLiteral("Archiving crash logs..."));
    const QString archive = archivePath(QStringLiteral("crash_log.zip"));
    if (!zipped(paths, archive)) {
        d->closePanel(QStringLiteral("Send crash log failed!"));
        warning(parent(), QStringLiteral("archiving crash logs failed"));
    } else {
        d->setTitle(QStringLiteral("Sending crash log..."));
        info(parent(), QStringLiteral("sending the crash log"));
        if (!d->upload(QStringLiteral("crash_log"), archive,
                       [this](const auto &error) { endSubmitCrashLog(error); })) {
            d->closePanel(QStringLiteral("Send crash log failed!"));
            warning(parent(), QStringLiteral("start sending crash log failed"));
        }
    }
    QFile::remove(archive);
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
    d->setTitle(QStringLiteral("Archiving debug log..."));
    const QString archive = archivePath(QStringLiteral("debug_log.zip"));
    if (!zipped({path}, archive)) {
        d->closePanel(QStringLiteral("Send debug log failed!"));
        warning(parent(), QStringLiteral("archiving debug log failed"));
    } else {
        d->setTitle(QStringLiteral("Sending debug log..."));
        info(parent(), QStringLiteral("sending the debug log"));
        if (!d->upload(QStringLiteral("debug_log"), archive,
                       [this](const auto &error) { endSubmitDebugLog(error); })) {
            d->closePanel(QStringLiteral("Send debug log failed!"));
            warning(parent(), QStringLiteral("start sending the debug log failed"));
        }
    }
    QFile::remove(archive);
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
    d->setTitle(QStringLiteral("Archiving attachments..."));
    const QString archive = archivePath(QStringLiteral("attachments.zip"));
    if (!zipped(d->plan.attachedFiles, archive)) {
        d->closePanel(QStringLiteral("Send attachments failed!"));
        warning(parent(), QStringLiteral("archiving attachments failed"));
    } else {
        d->setTitle(QStringLiteral("Sending attachments..."));
        info(parent(), QStringLiteral("sending attachments"));
        // The help desk names the attachments' archive after the request.
        if (!d->upload(d->plan.requestID, archive,
                       [this](const auto &error) { endSubmitAttachedFiles(error); })) {
            d->closePanel(QStringLiteral("Send attachments failed!"));
            warning(parent(), QStringLiteral("start sending attachments failed"));
        }
    }
    QFile::remove(archive);
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
