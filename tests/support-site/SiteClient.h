#pragma once

#include "QKTestPrinters.h"

#include <QByteArray>
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
    /** A body of text fields, in order. */
    MultipartBody(std::initializer_list<std::pair<const char *, QString>> fields = {})
    {
        for (const auto &[name, value] : fields)
            field(QString::fromUtf8(name), value);
    }

    /** Adds a text field (UTF-8). */
    MultipartBody &field(const QString &name, const QString &value);

    QByteArray contentType() const { return "multipart/form-data; boundary=" + boundary; }
    /** The body with its close delimiter. */
    QByteArray body() const { return m_parts + "--" + boundary + "--\r\n"; }

    const QByteArray boundary = "qk-test-boundary-7MA4YWxkTrZu0gW";

private:
    QByteArray m_parts;
};

/** Blocking HTTP over loopback, and the site's replies read as the library reads them. */
namespace SiteClient {

SiteResponse get(const QString &url);
SiteResponse post(const QString &url, const QByteArray &contentType, const QByteArray &body);
inline SiteResponse post(const QString &url, const MultipartBody &form)
{
    return post(url, form.contentType(), form.body());
}

/**
 * A help desk reply as the support pane reads it: "request", "history_events" and
 * "category" elements become maps, "history" a list, and the "results" wrapper goes. With
 * @p list the top-level values form a list, else a map; an error reply gives
 * {"error": {"description": ...}}.
 */
QVariant helpDesk(const QByteArray &xml, bool list = false);

} // namespace SiteClient
