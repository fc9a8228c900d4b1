#include "QKHelpDeskDownload.h"

#include <QKNetworkReplies.h>

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QSaveFile>

#include <fcntl.h>

namespace {

// Reading into one buffer for the whole download spares an allocation, and the kernel's
// zeroing of fresh pages, for every piece that arrives; larger pieces are taken in turns.
constexpr qint64 ReadBufferSize = 1024 * 1024;
// Pieces arrive as the server sends them, often a kilobyte at a time. Taking each as it comes
// would cost a write and a progress pass apiece, so they are left with the reply until
// there are this many bytes or the reply has finished.
constexpr qint64 WriteThreshold = 256 * 1024;
// Committing the file waits until it is on the disk. Handing the disk each stretch of this
// size as it is written, without waiting, leaves the commit little more than the tail.
constexpr qint64 WritebackStretch = 16 * 1024 * 1024;

} // namespace

struct QKHelpDeskDownload::Private
{
    QUrl url;
    QString destinationPath;
    QPointer<QNetworkAccessManager> manager;
    QPointer<QNetworkReply> reply;
    std::unique_ptr<QSaveFile> file;
    QByteArray readBuffer;
    qint64 written = 0;
    qint64 handedToDisk = 0;
    QString writeError;
    bool responseReported = false;
    bool ended = false;
};

QKHelpDeskDownload::QKHelpDeskDownload(const QUrl &url, const QString &destinationPath,
                                       QNetworkAccessManager *manager, QObject *parent)
    : QObject(parent), d(std::make_unique<Private>())
{
    d->url = url;
    d->destinationPath = destinationPath;
    d->manager = manager;
}

QKHelpDeskDownload::~QKHelpDeskDownload()
{
    cancel();
}

QUrl QKHelpDeskDownload::url() const
{
    return d->url;
}

QString QKHelpDeskDownload::destinationPath() const
{
    return d->destinationPath;
}

void QKHelpDeskDownload::start()
{
    if (d->reply || d->ended)
        return;
    d->file = std::make_unique<QSaveFile>(d->destinationPath);
    // Unbuffered: every write is a whole piece of the body, which a buffer would only copy.
    if (d->destinationPath.isEmpty() ||
        !d->file->open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        d->writeError = d->destinationPath.isEmpty()
                            ? tr("there is no download folder or file name")
                            : d->file->errorString();
        const QString reason =
            d->destinationPath.isEmpty()
                ? d->writeError
                : tr("cannot write %1: %2").arg(d->destinationPath, d->writeError);
        d->file.reset();
        d->ended = true;
        QMetaObject::invokeMethod(
            this, [this, reason] { emit didFailWithError(reason); }, Qt::QueuedConnection);
        return;
    }
    if (!d->manager) {
        fail(tr("no network access"));
        return;
    }
    d->reply = d->manager->get(QKNetworkReplies::withIdleTimeout(QNetworkRequest(d->url)));
    // The reply lives as long as this download, never shorter: its signals may still be on
    // the stack (below nested event loop passes) when the download ends.
    d->reply->setParent(this);
    connect(d->reply, &QIODevice::readyRead, this, &QKHelpDeskDownload::readData);
    connect(d->reply, &QNetworkReply::finished, this, &QKHelpDeskDownload::finish);
}

bool QKHelpDeskDownload::isRunning() const
{
    return d->reply && !d->ended;
}

void QKHelpDeskDownload::cancel()
{
    d->ended = true;
    if (d->reply) {
        d->reply->disconnect(this);
        d->reply->abort();
    }
    if (d->file) {
        d->file->cancelWriting();
        d->file.reset(); // removes the temporary file
    }
}

void QKHelpDeskDownload::readData()
{
    if (d->ended || !d->reply)
        return;
    const int status = d->reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (!d->responseReported) {
        d->responseReported = true;
        const QVariant length = d->reply->header(QNetworkRequest::ContentLengthHeader);
        emit didReceiveResponse(length.isValid() ? length.toLongLong() : -1);
        if (d->ended)
            return;
    }
    // The body of an error status is the server's error page, not the file.
    if (status >= 400) {
        d->reply->skip(d->reply->bytesAvailable());
        return;
    }
    if (d->reply->bytesAvailable() < WriteThreshold && !d->reply->isFinished())
        return;
    qint64 received = 0;
    for (qint64 available = d->reply->bytesAvailable(); available > 0;
         available = d->reply->bytesAvailable()) {
        if (d->readBuffer.isEmpty())
            d->readBuffer.resize(ReadBufferSize);
        const qint64 read = d->reply->read(d->readBuffer.data(), qMin(available, ReadBufferSize));
        if (read <= 0)
            break;
        if (d->file->write(d->readBuffer.constData(), read) != read) {
            failWriting(d->file->errorString());
            return;
        }
        received += read;
    }
    if (received == 0)
        return;
    d->written += received;
    if (d->written - d->handedToDisk >= WritebackStretch) {
        // Only a hint: should it fail, the commit writes everything as before.
        sync_file_range(d->file->handle(), d->handedToDisk, d->written - d->handedToDisk,
                        SYNC_FILE_RANGE_WRITE);
        d->handedToDisk = d->written;
    }
    emit didReceiveDataOfLength(received);
    // Listeners run event loop passes while handling the data, and bytes that arrive then
    // raise no readyRead of their own: read them on the next pass.
    if (!d->ended && d->reply->bytesAvailable() >= WriteThreshold)
        QMetaObject::invokeMethod(this, &QKHelpDeskDownload::readData, Qt::QueuedConnection);
}

void QKHelpDeskDownload::finish()
{
    if (d->ended || !d->reply)
        return;
    if (d->reply->error() != QNetworkReply::NoError) {
        fail(QKNetworkReplies::errorString(d->reply));
        return;
    }
    readData();
    if (d->ended)
        return;
    d->ended = true;
    if (!d->file->commit()) {
        failWriting(d->file->errorString());
        return;
    }
    d->file.reset();
    emit didFinish();
}

QString QKHelpDeskDownload::writeError() const
{
    return d->writeError;
}

void QKHelpDeskDownload::failWriting(const QString &reason)
{
    d->writeError = reason;
    fail(tr("cannot write %1: %2").arg(d->destinationPath, reason));
}

void QKHelpDeskDownload::fail(const QString &error)
{
    cancel();
    emit didFailWithError(error);
}
