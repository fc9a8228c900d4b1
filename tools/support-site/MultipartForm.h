#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

/**
 * A parsed multipart/form-data body (RFC 7578). Parsing is binary safe and linear in the
 * size of the body, and copies no content: the parts look into the body, which the form
 * keeps (uploads of a hundred megabytes and more pass through here).
 */
class MultipartForm
{
public:
    /** One form field as it arrived. */
    struct Part
    {
        /** The form-data name of the part. */
        QString name;
        /** The file name given for the part; empty when hasFileName is false. */
        QString fileName;
        bool hasFileName = false;
        /** The part's own Content-Type header; empty when the part has none. */
        QByteArray contentType;
        /** The content, byte for byte; valid as long as the form (or a copy of it) lives. */
        QByteArrayView data;
    };

    /** An invalid, empty form. */
    MultipartForm() = default;

    /**
     * Parses @p body with the boundary named in @p contentType (the request's Content-Type
     * header). Returns an invalid form with an errorString() when the header names no
     * boundary, the body does not match it, a part lacks its form-data name or the closing
     * delimiter is missing.
     */
    static MultipartForm parse(const QByteArray &contentType, const QByteArray &body);

    /** The boundary parameter of a multipart Content-Type header, unquoted; empty when none. */
    static QByteArray boundary(const QByteArray &contentType);

    bool isValid() const { return m_valid; }
    /** Why parsing failed; empty for a valid form. */
    QString errorString() const { return m_error; }

    /** Every part, in the order of the body. */
    const QList<Part> &parts() const { return m_parts; }
    /** The names of the parts, in order, without repetitions. */
    QStringList names() const;

    /** True when a part of that name exists (even with empty content). */
    bool contains(const QString &name) const;
    /** The last part of that name (a repeated field replaces the earlier one); null if none. */
    const Part *part(const QString &name) const;
    /** The content of the part named @p name as UTF-8 text; empty when there is none. */
    QString text(const QString &name) const;

private:
    bool parseBody(const QByteArray &boundary, const QByteArray &body);
    bool parsePartHeaders(QByteArrayView headers, Part &part);
    bool fail(const QString &error);

    QByteArray m_body;
    QList<Part> m_parts;
    QString m_error;
    bool m_valid = false;
};
