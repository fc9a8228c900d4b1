#include "QKSynchronousRequest.h"

#include "QKMultipartRequest.h"
#include "QKNetworkReplies.h"

#include <QEventLoop>
#include <QMutex>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

#include <functional>
#include <memory>
#include <set>

namespace {

using Starter = std::function<QNetworkReply *(QNetworkAccessManager &)>;

// Replies under way on every thread, so that the application can end them when it quits.
QMutex s_inFlightMutex;
std::set<QNetworkReply *> s_inFlight;
bool s_refusing = false;
const QString QuittingText = QStringLiteral("The application is quitting");

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

QKSynchronousRequest::Reply run(const Starter &start)
{
    // Everything lives in this thread and dies before the call returns, so a worker
    // thread needs no event loop of its own.
    {
        QMutexLocker lock(&s_inFlightMutex);
        if (s_refusing) {
            QKSynchronousRequest::Reply refused;
            refused.errorString = QuittingText;
            return refused;
        }
    }
    QNetworkAccessManager manager;
    manager.setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
    const std::unique_ptr<QNetworkReply> reply(start(manager));
    if (!reply) {
        QKSynchronousRequest::Reply unsent;
        unsent.errorString = QStringLiteral("The request could not be made");
        return unsent;
    }
    const InFlight inFlight(reply.get());

    if (!reply->isFinished()) {
        QEventLoop loop;
        QObject::connect(reply.get(), &QNetworkReply::finished, &loop, &QEventLoop::quit);
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    }

    QKSynchronousRequest::Reply result;
    result.url = reply->url();
    result.statusCode = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (QKNetworkReplies::isTransportFailure(reply.get())) {
        QMutexLocker lock(&s_inFlightMutex);
        result.errorString = s_refusing && reply->error() == QNetworkReply::OperationCanceledError
                                 ? QuittingText
                                 : QKNetworkReplies::errorString(reply.get());
    } else {
        result.data = reply->readAll();
    }
    return result;
}

} // namespace

QKSynchronousRequest::Reply QKSynchronousRequest::get(const QNetworkRequest &request)
{
    return run([&](QNetworkAccessManager &manager) {
        return manager.get(QKNetworkReplies::withIdleTimeout(request));
    });
}

QKSynchronousRequest::Reply QKSynchronousRequest::post(const QKMultipartRequest &request)
{
    return run([&](QNetworkAccessManager &manager) { return request.post(&manager); });
}

void QKSynchronousRequest::abortAll()
{
    QMutexLocker lock(&s_inFlightMutex);
    s_refusing = true;
    // Each reply belongs to its own thread; the abort runs there, in the loop that waits.
    for (QNetworkReply *reply : s_inFlight)
        QMetaObject::invokeMethod(reply, &QNetworkReply::abort, Qt::QueuedConnection);
}
