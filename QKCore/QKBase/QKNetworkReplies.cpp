#include "QKNetworkReplies.h"

#include <QNetworkReply>
#include <QUrl>

#include <atomic>

bool QKNetworkReplies::isTransportFailure(const QNetworkReply *reply)
{
    const QNetworkReply::NetworkError error = reply->error();
    if (error == QNetworkReply::NoError)
        return false;
    if (!reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid())
        return true;
    switch (error) {
    case QNetworkReply::ContentAccessDenied:
    case QNetworkReply::ContentOperationNotPermittedError:
    case QNetworkReply::ContentNotFoundError:
    case QNetworkReply::AuthenticationRequiredError:
    case QNetworkReply::ContentConflictError:
    case QNetworkReply::ContentGoneError:
    case QNetworkReply::UnknownContentError:
    case QNetworkReply::ProtocolInvalidOperationError:
    case QNetworkReply::InternalServerError:
    case QNetworkReply::OperationNotImplementedError:
    case QNetworkReply::ServiceUnavailableError:
    case QNetworkReply::UnknownServerError:
        return false;
    default:
        return true;
    }
}

namespace {
std::atomic<qint64> s_idleTimeout{QKNetworkReplies::DefaultIdleTimeout.count()};
}

QString QKNetworkReplies::errorString(const QNetworkReply *reply)
{
    // Qt ends an idle transfer as if it had been aborted; nothing else aborts these replies
    // without knowing why.
    const int idle = reply->request().transferTimeout();
    if (reply->error() == QNetworkReply::OperationCanceledError && idle > 0)
        return idleTimeoutError(reply->url(), idle);
    return reply->errorString();
}

QString QKNetworkReplies::idleTimeoutError(const QUrl &url, qint64 milliseconds)
{
    return QStringLiteral("No data moved to or from %1 for %2 ms")
        .arg(url.toDisplayString())
        .arg(milliseconds);
}

std::chrono::milliseconds QKNetworkReplies::idleTimeout()
{
    return std::chrono::milliseconds(s_idleTimeout.load());
}

void QKNetworkReplies::setIdleTimeout(std::chrono::milliseconds timeout)
{
    s_idleTimeout.store(timeout.count());
}

QNetworkRequest QKNetworkReplies::withIdleTimeout(QNetworkRequest request)
{
    request.setTransferTimeout(int(s_idleTimeout.load()));
    return request;
}
