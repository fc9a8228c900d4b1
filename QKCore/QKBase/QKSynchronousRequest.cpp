#include "QKSynchronousRequest.h"

#include "QKMultipartRequest.h"
#include "QKNetworkReplies.h"

#include <QEventLoop>
#include <QMutex>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include <functional>
#include <memory>
#include <set>

namespace {

using Starter = std::function<QNetworkReply *(QNetworkAccessManager &)>;

// Replies under way on every thread, so that the application can end them when it quits.
QMutex s_inFlightMutex;
std::set<QNetworkReply *> s_inFlight;
bool s_refusing = false;

// Keeps a reply in the in-flight set for as long as it exists.
class InFlight
{
public:
    explicit InFlight(QNetworkReply *reply) : m_reply(reply)
    {
        QMutexLocker lock(&s_inFlightMutex);
        s_inFlight.insert(reply);
    }
    ~InFlight()
    {
        QMutexLocker lock(&s_inFlightMutex);
        s_inFlight.erase(m_reply);
    }
    InFlight(const InFlight &) = delete;
    InFlight &operator=(const InFlight &) = delete;

private:
    QNetworkReply *m_reply;
};

QKSynchronousRequest::Reply run(const Starter &start, std::chrono::milliseconds timeout)
{
    // Everything lives in this thread and dies before the call returns, so a worker
    // thread needs no event loop of its own.
    {
        QMutexLocker lock(&s_inFlightMutex);
        if (s_refusing) {
            QKSynchronousRequest::Reply refused;
            refused.errorString = QStringLiteral("The application is quitting");
            return refused;
        }
    }
    QNetworkAccessManager manager;
    manager.setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
    const std::unique_ptr<QNetworkReply> reply(start(manager));
    const InFlight inFlight(reply.get());

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
    if (timedOut) {
        result.errorString = QStringLiteral("No complete reply from %1 within %2 ms")
                                 .arg(reply->url().toDisplayString())
                                 .arg(timeout.count());
    } else if (QKNetworkReplies::isTransportFailure(reply.get())) {
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

void QKSynchronousRequest::abortAll()
{
    QMutexLocker lock(&s_inFlightMutex);
    s_refusing = true;
    // Each reply belongs to its own thread; the abort runs there, in the loop that waits.
    for (QNetworkReply *reply : s_inFlight)
        QMetaObject::invokeMethod(reply, &QNetworkReply::abort, Qt::QueuedConnection);
}
