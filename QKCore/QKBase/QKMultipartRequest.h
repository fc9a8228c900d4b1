#pragma once

#include "QKBaseGlobal.h"

#include <QByteArray>
#include <QNetworkRequest>
#include <QVariantMap>

#include <memory>

class QHttpMultiPart;
class QIODevice;
class QNetworkAccessManager;
class QNetworkReply;
class QObject;
class QUrl;

/**
 * A form value that is the Base64 text (RFC 4648, unwrapped) of a file's contents. The text
 * is encoded a piece at a time as the body is sent, so that a large archive is never held
 * in memory. The file is opened when the request is posted; removing it after that does
 * not disturb the upload. The file is closed as soon as its last bytes have been read for
 * the text, so a removed archive frees its space before the reply arrives.
 */
class QKBASE_EXPORT QKBase64EncodedFile
{
public:
    explicit QKBase64EncodedFile(const QString &path = QString()) : m_path(path) {}
    QString path() const { return m_path; }

private:
    QString m_path;
};

/**
 * An HTTP POST of a multipart/form-data body (RFC 7578) built from a map of form fields,
 * one part per entry, as a browser submits a form without files:
 *
 * @code
 * Content-Disposition: form-data; name="<key>"
 *
 * <value>
 * @endcode
 *
 * Keys are sent as UTF-8 with '"', CR and LF escaped as %22, %0D and %0A. Values become
 * text: strings as UTF-8, booleans as "1" or "0", numbers as decimal text, QByteArray
 * values byte for byte. QByteArray values are shared, never copied, so a very large value
 * costs its memory only once however often the form is posted. A QKBase64EncodedFile value
 * sends the Base64 text of a file, encoded while the body is sent. The boundary is random
 * and chosen so that it occurs in no key and no value.
 *
 * The object is a small value: copy it freely. Each post() builds a fresh body, so the
 * same request may be posted again, but each body goes out at most once: Qt would send it
 * again by itself when the connection closes before the reply, and a form that files a
 * request must never arrive twice. Such a reply fails instead (ContentReSendError), as a
 * transport failure. A transfer with no bytes moving for QKNetworkReplies::idleTimeout()
 * fails too.
 */
class QKBASE_EXPORT QKMultipartRequest
{
public:
    /** A POST to @p url carrying the fields of @p form (in key order; order is not
     *  meaningful to a form). */
    static QKMultipartRequest requestWithURL(const QUrl &url, const QVariantMap &form);

    /** An empty request with no URL and no fields. */
    QKMultipartRequest();
    QKMultipartRequest(const QKMultipartRequest &other);
    QKMultipartRequest(QKMultipartRequest &&other) noexcept;
    QKMultipartRequest &operator=(const QKMultipartRequest &other);
    QKMultipartRequest &operator=(QKMultipartRequest &&other) noexcept;
    ~QKMultipartRequest();

    /** The request to send: the URL and the multipart/form-data Content-Type with its
     *  boundary, plus any header set with setRawHeader(), with the idle timeout. */
    QNetworkRequest networkRequest() const;
    /** Adds or replaces a header of the request (a User-Agent, say). */
    void setRawHeader(const QByteArray &name, const QByteArray &value);

    QUrl url() const;
    /** The boundary between the parts, without the leading dashes. */
    QByteArray boundary() const;
    /** The number of parts, one per form field. */
    qsizetype fieldCount() const;

    /** A new multipart body holding every field, owned by @p parent, that can be read only
     *  once; null when a file of a QKBase64EncodedFile value cannot be opened. */
    QHttpMultiPart *multiPart(QObject *parent = nullptr) const;

    /**
     * The same body as multiPart(), byte for byte, as one device: opened, random-access,
     * its size() the whole body's. Null when a file of a QKBase64EncodedFile value cannot
     * be opened. For code that writes the body to a connection itself, in pieces of its
     * choosing. A read that meets a file which shrank after opening fails.
     */
    std::unique_ptr<QIODevice> bodyDevice() const;

    /**
     * Starts the POST on @p manager and returns its reply (owned by the manager, as any
     * reply). The body is a child of the reply, so it lives exactly as long as needed.
     * Returns null when @p manager is null or the body cannot be built. A file that
     * shrinks while it is sent ends the reply with an error rather than a short body.
     */
    QNetworkReply *post(QNetworkAccessManager *manager) const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};
