#pragma once

#include "QKUtilitiesGlobal.h"

#include <QObject>
#include <QUrl>

#include <memory>

class QNetworkAccessManager;

/**
 * One file download: a GET of a URL streamed into a file. The file appears at its
 * destination only when the whole body has arrived (replacing a file of the same name);
 * until then the bytes go to a temporary file beside it, which a failure or cancel removes.
 *
 * Every outcome, including a destination that cannot be written, is reported through the
 * signals after start() has returned, so the caller can finish setting up first. Listeners
 * may run event loop passes from their slots; the download must then not be deleted before
 * control is back in the outer event loop.
 */
class QKUTILITIES_EXPORT QKHelpDeskDownload : public QObject
{
    Q_OBJECT
public:
    /** A download of @p url into @p destinationPath through @p manager (not owned). */
    QKHelpDeskDownload(const QUrl &url, const QString &destinationPath,
                       QNetworkAccessManager *manager, QObject *parent = nullptr);
    ~QKHelpDeskDownload() override;

    QUrl url() const;
    QString destinationPath() const;

    /** Starts the request. */
    void start();
    /** True from start() until the download has finished, failed or been cancelled. */
    bool isRunning() const;
    /** Stops the download and removes the partial file; no further signals are sent. */
    void cancel();
    /** Why the file could not be written, after a failure of that kind; empty when the
     *  download failed otherwise or has not failed. */
    QString writeError() const;

Q_SIGNALS:
    /** The response has arrived; @p expectedContentLength is -1 when the server did not
     *  say. */
    void didReceiveResponse(qint64 expectedContentLength);
    /** @p length more bytes were written. */
    void didReceiveDataOfLength(qint64 length);
    /** The file is complete at destinationPath(). */
    void didFinish();
    /** The download failed (transport error, HTTP error status, unwritable destination);
     *  nothing was left at the destination. */
    void didFailWithError(const QString &error);

private:
    void readData();
    void finish();
    void fail(const QString &error);
    void failWriting(const QString &reason);

    struct Private;
    std::unique_ptr<Private> d;
};
