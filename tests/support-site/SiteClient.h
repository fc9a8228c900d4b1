#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QVariant>

/** One HTTP exchange as the tests look at it. */
struct SiteResponse
{
    /** The HTTP status; 0 when no reply came. */
    int status = 0;
    QByteArray contentType;
    /** The Content-Length header; -1 when absent. */
    qint64 contentLength = -1;
    QByteArray body;
};

/**
 * A multipart/form-data body written out by hand, so that the site is tested against the
 * bytes of RFC 7578 rather than against another multipart implementation.
 */
class MultipartBody
{
public:
    explicit MultipartBody(const QByteArray &boundary = "qk-test-boundary-7MA4YWxkTrZu0gW");

    /** Adds a text field (UTF-8). */
    MultipartBody &field(const QString &name, const QString &value);
    /** Adds a file part with its own Content-Type. */
    MultipartBody &file(const QString &name, const QString &fileName, const QByteArray &type,
                        const QByteArray &bytes);

    QByteArray contentType() const;
    /** The body with its close delimiter. */
    QByteArray body() const;

private:
    QByteArray m_boundary;
    QByteArray m_parts;
};

/** Blocking HTTP over loopback with QNetworkAccessManager and a local event loop. */
namespace SiteClient {

SiteResponse get(const QString &url);
SiteResponse post(const QString &url, const QByteArray &contentType, const QByteArray &body);
inline SiteResponse post(const QString &url, const MultipartBody &form)
{
    return post(url, form.contentType(), form.body());
}

} // namespace SiteClient

/** Readers of the site's XML replies, built on QXmlStreamReader. */
namespace SiteXml {

/** A property list (dict, array, string, integer, true, false) as QVariant; invalid if malformed.
 */
QVariant propertyList(const QByteArray &xml);

/**
 * The help desk reply below its root: each child element becomes a map entry (repeated
 * elements a list under their name), leaves strings. The root's name goes to @p root.
 */
QVariantMap helpDeskReply(const QByteArray &xml, QString *root = nullptr);

/**
 * Every element named @p name at any depth, converted like helpDeskReply() converts the root:
 * child elements by name, a repeated name as a list, leaves as strings.
 */
QList<QVariantMap> elements(const QByteArray &xml, const QString &name);

/** @p value as a list: itself when it is one, else a list of one (or none when invalid). */
QVariantList list(const QVariant &value);

} // namespace SiteXml
