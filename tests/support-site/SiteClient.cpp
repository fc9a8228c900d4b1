#include "SiteClient.h"

#include "HSResults.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>

namespace {

SiteResponse exchange(QNetworkReply *reply)
{
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    // Only a guard against a hung site; no test measures time.
    QTimer::singleShot(60000, reply, &QNetworkReply::abort);
    if (!reply->isFinished())
        loop.exec();
    const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
    const SiteResponse response{reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(),
                                reply->header(QNetworkRequest::ContentTypeHeader).toByteArray(),
                                length.isValid() ? length.toLongLong() : -1, reply->readAll()};
    delete reply;
    return response;
}

} // namespace

MultipartBody &MultipartBody::field(const QString &name, const QString &value)
{
    m_parts += "--" + boundary + "\r\nContent-Disposition: form-data; name=\"" + name.toUtf8() +
               "\"\r\n\r\n" + value.toUtf8() + "\r\n";
    return *this;
}

SiteResponse SiteClient::get(const QString &url)
{
    QNetworkAccessManager manager;
    return exchange(manager.get(QNetworkRequest(QUrl(url))));
}

SiteResponse SiteClient::post(const QString &url, const QByteArray &contentType,
                              const QByteArray &body)
{
    QNetworkAccessManager manager;
    QNetworkRequest request{QUrl(url)};
    if (!contentType.isEmpty())
        request.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
    return exchange(manager.post(request, body));
}

MultipartBody newRequest(const QString &body, const QString &email)
{
    return MultipartBody({{"action", "new"},
                          {"sFirstName", "Zoë"},
                          {"sLastName", "Ødegård-Núñez"},
                          {"sEmail", email},
                          {"sPhone", "+47 22 00 00 00"},
                          {"xCategory", "3"},
                          {"fUrgent", "1"},
                          {"Custom1", "Sound Lab"},
                          {"Custom3", "3.1b2"},
                          {"Custom4", "1"},
                          {"tBody", body}});
}

MultipartBody addDocument(const QString &history, const QString &name, const QString &body)
{
    return MultipartBody({{"action", "add_document"},
                          {"xRequestHistory", history},
                          {"name", name},
                          {"mimetype", "application/zip"},
                          {"body", body}});
}

QVariant SiteTest::ok(const MultipartBody &form, bool list)
{
    const SiteResponse response = api(form);
    EXPECT_EQ(response.status, 200) << response.body.toStdString();
    EXPECT_TRUE(response.body.startsWith("<?xml"));
    return HSResults(response.body, list).results();
}
