#include "QKHelpDeskExchange.h"

#include <QKMultipartRequest.h>

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QUrl>

namespace {

// Qt reports an HTTP error status as a reply error; the help desk's replies are read
// whatever their status, so only the errors that mean no complete reply arrived count.
bool isTransportFailure(const QNetworkReply *reply)
{
    const int code = reply->error();
    if (code == QNetworkReply::NoError)
        return false;
    if (!reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid())
        return true;
    const bool statusError =
        (code >= QNetworkReply::ContentAccessDenied &&
         code <= QNetworkReply::UnknownContentError) ||
        code == QNetworkReply::ProtocolInvalidOperationError ||
        (code >= QNetworkReply::InternalServerError && code <= QNetworkReply::UnknownServerError);
    return !statusError;
}

} // namespace

struct QKHelpDeskExchange::Private
{
    QNetworkAccessManager *network = nullptr;
    QPointer<QNetworkReply> reply;
    QByteArray responseData;
    // The replies of the exchanges whose end methods run, innermost last.
    QList<QByteArray> endingData;
    EndMethod endConnectionSelector;
};

QKHelpDeskExchange::QKHelpDeskExchange(QObject *parent)
    : QObject(parent), d(std::make_unique<Private>())
{
    d->network = new QNetworkAccessManager(this);
}

QKHelpDeskExchange::~QKHelpDeskExchange()
{
    if (d->reply) {
        d->reply->disconnect(this);
        d->reply->abort();
    }
}

bool QKHelpDeskExchange::start(const QUrl &url, const QVariantMap &form)
{
    const QString scheme = url.scheme();
    if (d->reply || !url.isValid() || url.host().isEmpty() ||
        (scheme != QLatin1String("http") && scheme != QLatin1String("https")))
        return false;
    QNetworkReply *reply = QKMultipartRequest::requestWithURL(url, form).post(d->network);
    if (!reply)
        return false;
    d->reply = reply;
    d->responseData = QByteArray();
    connect(reply, &QNetworkReply::readyRead, this, &QKHelpDeskExchange::didReceiveData);
    connect(reply, &QNetworkReply::finished, this, &QKHelpDeskExchange::didFinishLoading);
    return true;
}

void QKHelpDeskExchange::setEndConnectionSelector(EndMethod endMethod)
{
    d->endConnectionSelector = std::move(endMethod);
}

bool QKHelpDeskExchange::isRunning() const
{
    return !d->reply.isNull();
}

QByteArray QKHelpDeskExchange::responseData() const
{
    return d->endingData.isEmpty() ? d->responseData : d->endingData.constLast();
}

QNetworkAccessManager *QKHelpDeskExchange::networkAccessManager() const
{
    return d->network;
}

void QKHelpDeskExchange::didReceiveData()
{
    const QByteArray bytes = d->reply->readAll();
    if (!bytes.isEmpty())
        d->responseData.append(bytes);
}

void QKHelpDeskExchange::didFinishLoading()
{
    QNetworkReply *reply = d->reply;
    if (!reply)
        return;
    didReceiveData();
    const std::optional<QString> error =
        isTransportFailure(reply) ? std::optional(reply->errorString()) : std::nullopt;
    // The exchange is over before its end method runs, so that the end method can start
    // the next one; the finished reply is released after it returns.
    d->reply = nullptr;
    reply->disconnect(this);
    reply->deleteLater();
    d->endingData.append(std::exchange(d->responseData, QByteArray()));
    const EndMethod endMethod = d->endConnectionSelector;
    if (endMethod)
        endMethod(error);
    d->endingData.removeLast();
}
