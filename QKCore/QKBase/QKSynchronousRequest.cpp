#include "QKSynchronousRequest.h"

#include "QKMultipartRequest.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include <functional>
#include <memory>

namespace {

// Qt reports an HTTP error status as a reply error; for the caller it is an answer.
bool isHttpStatusError(QNetworkReply::NetworkError error)
{
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
        return true;
    default:
        return false;
    }
}

using Starter = std::function<QNetworkReply *(QNetworkAccessManager &)>;

QKSynchronousRequest::Reply run(const Starter &start, std::chrono::milliseconds timeout)
{
    // Everything lives in this thread and dies before the call returns, so a worker
    // thread needs no event loop of its own.
    QNetworkAccessManager manager;
    manager.setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
    const std::unique_ptr<QNetworkReply> reply(start(manager));

    bool timedOut = false;
    if (!reply->isFinished()) {
        QEventLoop loop;
        QTimer timer;
        timer.setSingleShot(true);
        QObject::connect(reply.get(), &QNetworkReply::finished, &loop, &QEventLoop::quit);
        QObject::connect(&timer, &QTimer::timeout, &loop, [&] {
            timedOut = true;
            reply->abort();
            loop.quit();
        });
        timer.start(timeout);
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    }

    QKSynchronousRequest::Reply result;
    result.url = reply->url();
    result.statusCode = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const QNetworkReply::NetworkError error = reply->error();
    if (timedOut) {
        result.errorString = QStringLiteral("No complete reply from %1 within %2 ms")
                                 .arg(reply->url().toDisplayString())
                                 .arg(timeout.count());
    } else if (error != QNetworkReply::NoError &&
               !(result.statusCode != 0 && isHttpStatusError(error))) {
        result.errorString = reply->errorString();
    } else {
        result.data = reply->readAll();
    }
    return result;
}

} // namespace

QKSynchronousRequest::Reply QKSynchronousRequest::get(const QNetworkRequest &request,
                                                      std::chrono::milliseconds timeout)
{
    return run([&](QNetworkAccessManager &manager) { return manager.get(request); }, timeout);
}

QKSynchronousRequest::Reply QKSynchronousRequest::post(const QKMultipartRequest &request,
                                                       std::chrono::milliseconds timeout)
{
    return run([&](QNetworkAccessManager &manager) { return request.post(&manager); }, timeout);
}
