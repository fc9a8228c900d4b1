#include "QKHelpDeskExchange.h"

#include <QKMultipartRequest.h>
#include <QKNetworkReplies.h>

#include <QHttpMultiPart>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QThread>
#include <QUrl>

#include <memory>
#include <utility>

#include <pthread.h>
#include <sched.h>

namespace {

// Qt's HTTP thread takes a request body from the thread that posted it 16 KB at a time,
// one hand-off each way per piece. Between two CPUs every hand-off wakes the other CPU,
// which on a virtual machine made uploads up to three times slower than on one CPU. The
// HTTP thread is started from this thread and inherits its CPU, so both stay together;
// the rest of the host is left alone.
void keepOnCurrentCPU()
{
    const int cpu = sched_getcpu();
    if (cpu < 0)
        return;
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    CPU_SET(cpu, &cpus);
    pthread_setaffinity_np(pthread_self(), sizeof cpus, &cpus);
}

struct PendingBody
{
    explicit PendingBody(QHttpMultiPart *body) : body(body) {}
    ~PendingBody() { delete body; }
    PendingBody(const PendingBody &) = delete;
    PendingBody &operator=(const PendingBody &) = delete;

    QHttpMultiPart *body;
};

bool isExchangeURL(const QUrl &url)
{
    const QString scheme = url.scheme();
    return url.isValid() && !url.host().isEmpty() &&
           (scheme == QLatin1String("http") || scheme == QLatin1String("https"));
}

} // namespace

struct QKHelpDeskExchange::Private
{
    // The transfer side, used only on the transfer thread.
    QThread thread;
    QObject *transfers = nullptr;
    QNetworkAccessManager *network = nullptr;

    // The owner's side.
    bool running = false;
    quint64 exchange = 0; // numbers the exchanges, so that a late report is recognised
    QByteArray responseData;
    // The replies of the exchanges whose end methods run, innermost last.
    QList<QByteArray> endingData;
    EndMethod endConnectionSelector;

    void startThread();
    QNetworkAccessManager *transferNetwork();
};

void QKHelpDeskExchange::Private::startThread()
{
    thread.setObjectName(QStringLiteral("QKHelpDeskExchange"));
    transfers = new QObject;
    transfers->moveToThread(&thread);
    QObject::connect(&thread, &QThread::started, transfers, &keepOnCurrentCPU,
                     Qt::DirectConnection);
    thread.start();
}

QNetworkAccessManager *QKHelpDeskExchange::Private::transferNetwork()
{
    if (!network)
        network = new QNetworkAccessManager(transfers);
    return network;
}

QKHelpDeskExchange::QKHelpDeskExchange(QObject *parent)
    : QObject(parent), d(std::make_unique<Private>())
{}

QKHelpDeskExchange::~QKHelpDeskExchange()
{
    if (!d->thread.isRunning())
        return;
    // The access manager aborts what is under way as it goes, on its own thread.
    QMetaObject::invokeMethod(
        d->transfers, [transfers = d->transfers] { delete transfers; },
        Qt::BlockingQueuedConnection);
    d->thread.quit();
    d->thread.wait();
}

bool QKHelpDeskExchange::start(const QUrl &url, const QVariantMap &form)
{
    if (d->running || !isExchangeURL(url))
        return false;
    const QKMultipartRequest request = QKMultipartRequest::requestWithURL(url, form);
    // Built here, so that its files are open before the caller removes them.
    QHttpMultiPart *body = request.multiPart();
    if (!body)
        return false;
    if (!d->thread.isRunning())
        d->startThread();
    body->moveToThread(&d->thread);

    d->running = true;
    d->responseData = QByteArray();
    const quint64 exchange = ++d->exchange;
    Private *const data = d.get();
    // Deletes the body, and closes its files, should the exchange go away before posting it.
    const auto pending = std::make_shared<PendingBody>(body);
    QMetaObject::invokeMethod(d->transfers, [this, data, request, pending, exchange] {
        QHttpMultiPart *body = std::exchange(pending->body, nullptr);
        QNetworkReply *reply = data->transferNetwork()->post(request.networkRequest(), body);
        body->setParent(reply);
        connect(reply, &QNetworkReply::readyRead, reply, [this, reply, exchange] {
            const QByteArray bytes = reply->readAll();
            QMetaObject::invokeMethod(this,
                                      [this, exchange, bytes] { didReceiveData(exchange, bytes); });
        });
        connect(reply, &QNetworkReply::finished, reply, [this, reply, exchange] {
            const QByteArray bytes = reply->readAll();
            const std::optional<QString> error =
                QKNetworkReplies::isTransportFailure(reply)
                    ? std::optional(QKNetworkReplies::errorString(reply))
                    : std::nullopt;
            reply->deleteLater();
            QMetaObject::invokeMethod(this, [this, exchange, bytes, error] {
                didReceiveData(exchange, bytes);
                didFinishLoading(exchange, error);
            });
        });
    });
    return true;
}

void QKHelpDeskExchange::prepare(const QUrl &url)
{
    if (!isExchangeURL(url))
        return;
    if (!d->thread.isRunning())
        d->startThread();
    Private *const data = d.get();
    QMetaObject::invokeMethod(d->transfers, [data, url] {
        QNetworkAccessManager *network = data->transferNetwork();
        if (url.scheme() == QLatin1String("http")) {
            network->connectToHost(url.host(), quint16(url.port(80)));
            return;
        }
#if QT_CONFIG(ssl)
        network->connectToHostEncrypted(url.host(), quint16(url.port(443)));
#endif
    });
}

void QKHelpDeskExchange::setEndConnectionSelector(EndMethod endMethod)
{
    d->endConnectionSelector = std::move(endMethod);
}

bool QKHelpDeskExchange::isRunning() const
{
    return d->running;
}

QByteArray QKHelpDeskExchange::responseData() const
{
    return d->endingData.isEmpty() ? d->responseData : d->endingData.constLast();
}

void QKHelpDeskExchange::didReceiveData(quint64 exchange, const QByteArray &bytes)
{
    if (exchange == d->exchange && d->running && !bytes.isEmpty())
        d->responseData.append(bytes);
}

void QKHelpDeskExchange::didFinishLoading(quint64 exchange, const std::optional<QString> &error)
{
    if (exchange != d->exchange || !d->running)
        return;
    // The exchange is over before its end method runs, so that the end method can start
    // the next one; the finished reply is released after it returns.
    d->running = false;
    d->endingData.append(std::exchange(d->responseData, QByteArray()));
    const EndMethod endMethod = d->endConnectionSelector;
    if (endMethod)
        endMethod(error);
    d->endingData.removeLast();
}
