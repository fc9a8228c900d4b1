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

// A multiple of 3, so the chunks' Base64 texts join into the text of the whole file.
constexpr qint64 EncodeChunkSize = 3 * 256 * 1024;

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

/**
 * The Base64 text of the file at @p path, encoded a chunk at a time so that a large archive
 * is held only once, as text; nullopt when it cannot be read.
 */
std::optional<QByteArray> base64OfFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QByteArray encoded;
    encoded.reserve((file.size() + 2) / 3 * 4);
    QByteArray chunk(EncodeChunkSize, Qt::Uninitialized);
    for (;;) {
        qint64 filled = 0;
        while (filled < EncodeChunkSize) {
            const qint64 count = file.read(chunk.data() + filled, EncodeChunkSize - filled);
            if (count < 0)
                return std::nullopt;
            if (count == 0)
                break;
            filled += count;
        }
        if (filled == 0)
            break;
        encoded += QByteArray::fromRawData(chunk.constData(), filled).toBase64();
        if (filled < EncodeChunkSize)
            break;
    }
    return encoded;
}

// Zips @p paths into @p archive and reads it back as Base64; nullopt when no archive came.
std::optional<QByteArray> zippedBase64(const QStringList &paths, const QString &archive)
{
    return QKZipArchiver::zipPaths(paths, archive) ? base64OfFile(archive) : std::nullopt;
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
    bool upload(const QString &name, const QByteArray &base64Body,
                QKHelpDeskExchange::EndMethod endMethod) const
    {
        if (!exchange->start(QUrl(QKSupportSite::helpDeskAPIURL()),
                             HSForms::addDocument(plan.requestHistoryID, name, base64Body)))
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
    const std::optional<QByteArray> body =
        archivePath.isEmpty() ? std::nullopt : base64OfFile(archivePath);
    if (!body) {
        d->closePanel(QStringLiteral("Send system profile failed!"));
        warning(parent(), QStringLiteral("archiving system profile failed"));
    } else {
        info(parent(), QStringLiteral("sending system profile"));
        if (!d->upload(QStringLiteral("system_profile"), *body,
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
    const std::optional<QByteArray> body = zippedBase64(paths, archive);
    if (!body) {
        d->closePanel(QStringLiteral("Send crash log failed!"));
        warning(parent(), QStringLiteral("archiving crash logs failed"));
    } else {
        d->setTitle(QStringLiteral("Sending crash log..."));
        info(parent(), QStringLiteral("sending the crash log"));
        if (!d->upload(QStringLiteral("crash_log"), *body,
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
    const std::optional<QByteArray> body = zippedBase64({path}, archive);
    if (!body) {
        d->closePanel(QStringLiteral("Send debug log failed!"));
        warning(parent(), QStringLiteral("archiving debug log failed"));
    } else {
        d->setTitle(QStringLiteral("Sending debug log..."));
        info(parent(), QStringLiteral("sending the debug log"));
        if (!d->upload(QStringLiteral("debug_log"), *body,
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
    const std::optional<QByteArray> body = zippedBase64(d->plan.attachedFiles, archive);
    if (!body) {
        d->closePanel(QStringLiteral("Send attachments failed!"));
        warning(parent(), QStringLiteral("archiving attachments failed"));
    } else {
        d->setTitle(QStringLiteral("Sending attachments..."));
        info(parent(), QStringLiteral("sending attachments"));
        // The help desk names the attachments' archive after the request.
        if (!d->upload(d->plan.requestID, *body,
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
