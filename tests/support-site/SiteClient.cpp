#include "SiteClient.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>
#include <QXmlStreamReader>

namespace {

// Only a guard against a hung site; no test measures time.
constexpr int replyGuardMs = 60000;

SiteResponse exchange(QNetworkReply *reply)
{
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(replyGuardMs, reply, &QNetworkReply::abort);
    if (!reply->isFinished())
        loop.exec();
    SiteResponse response;
    response.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    response.contentType = reply->header(QNetworkRequest::ContentTypeHeader).toByteArray();
    const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
    response.contentLength = length.isValid() ? length.toLongLong() : -1;
    response.body = reply->readAll();
    delete reply;
    return response;
}

/** Reads the children of the current element into a map; a repeated name becomes a list. */
QVariant children(QXmlStreamReader &xml)
{
    QVariantMap map;
    QString text;
    bool hasChildren = false;
    while (xml.readNext() != QXmlStreamReader::Invalid) {
        if (xml.isEndElement())
            break;
        if (xml.isCharacters()) {
            text += xml.text();
        } else if (xml.isStartElement()) {
            hasChildren = true;
            const QString name = xml.name().toString();
            const QVariant value = children(xml);
            if (!map.contains(name)) {
                map.insert(name, value);
            } else {
                // Elements convert to maps or strings, so a list here is one made below.
                QVariantList list = SiteXml::list(map.value(name));
                list.append(value);
                map.insert(name, list);
            }
        }
    }
    return hasChildren ? QVariant(map) : QVariant(text);
}

QVariant plistValue(QXmlStreamReader &xml)
{
    const QString type = xml.name().toString();
    if (type == QLatin1String("dict")) {
        QVariantMap map;
        while (xml.readNextStartElement()) {
            if (xml.name() != QLatin1String("key"))
                return {};
            const QString key = xml.readElementText();
            if (!xml.readNextStartElement())
                return {};
            map.insert(key, plistValue(xml));
        }
        return map;
    }
    if (type == QLatin1String("array")) {
        QVariantList list;
        while (xml.readNextStartElement())
            list.append(plistValue(xml));
        return list;
    }
    if (type == QLatin1String("true") || type == QLatin1String("false")) {
        xml.skipCurrentElement();
        return type == QLatin1String("true");
    }
    if (type == QLatin1String("integer"))
        return xml.readElementText().toLongLong();
    if (type == QLatin1String("string"))
        return xml.readElementText();
    xml.raiseError(QStringLiteral("unexpected %1").arg(type));
    return {};
}

} // namespace

MultipartBody::MultipartBody(const QByteArray &boundary) : m_boundary(boundary) {}

MultipartBody &MultipartBody::field(const QString &name, const QString &value)
{
    m_parts += "--" + m_boundary + "\r\nContent-Disposition: form-data; name=\"" + name.toUtf8() +
               "\"\r\n\r\n" + value.toUtf8() + "\r\n";
    return *this;
}

MultipartBody &MultipartBody::file(const QString &name, const QString &fileName,
                                   const QByteArray &type, const QByteArray &bytes)
{
    m_parts += "--" + m_boundary + "\r\nContent-Disposition: form-data; name=\"" + name.toUtf8() +
               "\"; filename=\"" + fileName.toUtf8() + "\"\r\nContent-Type: " + type + "\r\n\r\n" +
               bytes + "\r\n";
    return *this;
}

QByteArray MultipartBody::contentType() const
{
    return "multipart/form-data; boundary=" + m_boundary;
}

QByteArray MultipartBody::body() const
{
    return m_parts + "--" + m_boundary + "--\r\n";
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

QVariant SiteXml::propertyList(const QByteArray &xml)
{
    QXmlStreamReader reader(xml);
    if (!reader.readNextStartElement() || reader.name() != QLatin1String("plist") ||
        !reader.readNextStartElement()) {
        return {};
    }
    const QVariant value = plistValue(reader);
    return reader.hasError() ? QVariant() : value;
}

QVariantMap SiteXml::helpDeskReply(const QByteArray &xml, QString *root)
{
    QXmlStreamReader reader(xml);
    if (!reader.readNextStartElement())
        return {};
    if (root)
        *root = reader.name().toString();
    const QVariant value = children(reader);
    return reader.hasError() ? QVariantMap() : value.toMap();
}

QList<QVariantMap> SiteXml::elements(const QByteArray &xml, const QString &name)
{
    QList<QVariantMap> found;
    QXmlStreamReader reader(xml);
    while (!reader.atEnd()) {
        if (reader.readNext() == QXmlStreamReader::StartElement && reader.name() == name)
            found.append(children(reader).toMap());
    }
    return reader.hasError() ? QList<QVariantMap>() : found;
}

QVariantList SiteXml::list(const QVariant &value)
{
    if (value.typeId() == QMetaType::QVariantList)
        return value.toList();
    return value.isValid() ? QVariantList{value} : QVariantList();
}
