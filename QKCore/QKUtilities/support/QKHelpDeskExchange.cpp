#include "QKHelpDeskExchange.h"

#include "QKHttpFormPost.h"

#include <QKMultipartRequest.h>

#include <QIODevice>
#include <QNetworkRequest>
#include <QThread>
#include <QUrl>

#include <memory>
#include <utility>

namespace {

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
    QKHttpFormPost *preparedPost = nullptr; // a child of transfers, its connection opening

    // The owner's side.
    bool running = false;
    quint64 exchange = 0; // numbers the exchanges, so that a late report is recognised
    QByteArray responseData;
    // The replies of the exchanges whose end methods run, innermost last.
    QList<QByteArray> endingData;
    EndMethod endConnectionSelector;

    void startThread();
};

void QKHelpDeskExchange::Private::startThread()
{
    thread.setObjectName(QStringLiteral("QKHelpDeskExchange"));
    transfers = new QObject;
    transfers->moveToThread(&thread);
    thread.start();
}

QKHelpDeskExchange::QKHelpDeskExchange(QObject *parent)
    : QObject(parent), d(std::make_unique<Private>())
{}

QKHelpDeskExchange::~QKHelpDeskExchange()
{
    if (!d->thread.isRunning())
        return;
    // A post under way is abandoned with its connection, on the thread that owns both.
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
    // Shared only to travel in the call below, which deletes it should it never run.
    const auto body = std::make_shared<std::unique_ptr<QIODevice>>(request.bodyDevice());
    if (!*body)
        return false;
    if (!d->thread.isRunning())
        d->startThread();
    (*body)->moveToThread(&d->thread);

    d->running = true;
    d->responseData = QByteArray();
    const quint64 exchange = ++d->exchange;
    Private *const data = d.get();
    QMetaObject::invokeMethod(d->transfers, [this, data, request, body, exchange] {
        QKHttpFormPost *post = std::exchange(data->preparedPost, nullptr);
        if (!post)
            post = new QKHttpFormPost(data->transfers);
        post->post(
            request.networkRequest(), std::move(*body),
            [this, post, exchange](const QByteArray &reply, const std::optional<QString> &error) {
                post->deleteLater();
                QMetaObject::invokeMethod(this, [this, exchange, reply, error] {
                    didReceiveData(exchange, reply);
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
        delete data->preparedPost;
        data->preparedPost = new QKHttpFormPost(data->transfers);
        data->preparedPost->connectTo(url);
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
