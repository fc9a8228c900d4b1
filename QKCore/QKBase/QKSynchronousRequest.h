#pragma once

#include "QKBaseGlobal.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

class QKMultipartRequest;
class QNetworkRequest;

/**
 * Sends one HTTP request and waits for the whole reply on the calling thread.
 *
 * Works on any thread, including a plain worker thread with no event loop of its own:
 * each call makes its own network access manager and runs a local event loop until the
 * reply has finished, or until no byte has moved for QKNetworkReplies::idleTimeout(). On the main
 * thread that loop keeps timers and sockets turning but holds back user input until the call
 * returns. Redirects are followed unless they would go from HTTPS to HTTP.
 *
 * Only a transport failure is an error: a reply with status 404 or 500 is a successful
 * exchange that returns its status and body.
 */
class QKBASE_EXPORT QKSynchronousRequest
{
public:
    /** What one exchange produced. */
    struct Reply
    {
        /** The body of the reply, also for error statuses; empty after a failure. */
        QByteArray data;
        /** The HTTP status of the last response; 0 when no HTTP response arrived. */
        int statusCode = 0;
        /** The URL that answered, after redirects. */
        QUrl url;
        /** Why the exchange failed (no connection, dropped, timed out); empty on success. */
        QString errorString;

        bool isSuccess() const { return errorString.isEmpty(); }
    };

    /** Fetches @p request with GET. */
    static Reply get(const QNetworkRequest &request);

    /** Posts the form of @p request, at most once. */
    static Reply post(const QKMultipartRequest &request);

    /** Ends every exchange under way on any thread with an error and refuses new ones
     *  from now on, so that worker threads finish promptly while the application quits. */
    static void abortAll();
};
