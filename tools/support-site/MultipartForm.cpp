#include "MultipartForm.h"

#include <QByteArrayMatcher>
#include <QHash>
#include <QSet>

namespace {

const QByteArray crlf = QByteArrayLiteral("\r\n");

/** A header value split into its main token and its parameters (names lower-cased). */
struct HeaderValue
{
    QByteArray token;
    QHash<QByteArray, QByteArray> parameters;
};

/** Reads a quoted-string starting at the opening quote; advances @p pos past the closing one. */
bool readQuoted(QByteArrayView text, qsizetype &pos, QByteArray &out)
{
    ++pos;
    while (pos < text.size()) {
        const char c = text[pos++];
        if (c == '"')
            return true;
        if (c == '\\' && pos < text.size())
            out += text[pos++];
        else
            out += c;
    }
    return false;
}

/** Splits "type; a=1; b=\"x;y\"" at the semicolons that are not quoted. */
bool parseHeaderValue(QByteArrayView text, HeaderValue &value)
{
    qsizetype pos = 0;
    const qsizetype end = text.size();
    const qsizetype firstSemicolon = text.indexOf(';');
    value.token = text.first(firstSemicolon < 0 ? end : firstSemicolon).trimmed().toByteArray();
    pos = firstSemicolon < 0 ? end : firstSemicolon + 1;
    while (pos < end) {
        while (pos < end && (text[pos] == ' ' || text[pos] == '\t' || text[pos] == ';'))
            ++pos;
        if (pos >= end)
            break;
        const qsizetype equals = text.indexOf('=', pos);
        if (equals < 0)
            return false;
        const QByteArray name = text.sliced(pos, equals - pos).trimmed().toByteArray().toLower();
        pos = equals + 1;
        while (pos < end && (text[pos] == ' ' || text[pos] == '\t'))
            ++pos;
        QByteArray parameter;
        if (pos < end && text[pos] == '"') {
            if (!readQuoted(text, pos, parameter))
                return false;
        } else {
            const qsizetype semicolon = text.indexOf(';', pos);
            const qsizetype stop = semicolon < 0 ? end : semicolon;
            parameter = text.sliced(pos, stop - pos).trimmed().toByteArray();
            pos = stop;
        }
        value.parameters.insert(name, parameter);
    }
    return true;
}

} // namespace

QByteArray MultipartForm::boundary(const QByteArray &contentType)
{
    HeaderValue value;
    if (!parseHeaderValue(contentType, value))
        return {};
    if (!value.token.toLower().startsWith("multipart/"))
        return {};
    return value.parameters.value("boundary");
}

MultipartForm MultipartForm::parse(const QByteArray &contentType, const QByteArray &body)
{
    MultipartForm form;
    HeaderValue value;
    if (!parseHeaderValue(contentType, value) || value.token.toLower() != "multipart/form-data") {
        form.fail(QStringLiteral("the body is not multipart/form-data"));
        return form;
    }
    const QByteArray boundary = value.parameters.value("boundary");
    // RFC 2046 limits a boundary to 70 characters.
    if (boundary.isEmpty() || boundary.size() > 70) {
        form.fail(QStringLiteral("the Content-Type names no usable boundary"));
        return form;
    }
    form.m_body = body;
    form.m_valid = form.parseBody(boundary, form.m_body);
    return form;
}

bool MultipartForm::parseBody(const QByteArray &boundary, const QByteArray &body)
{
    // Every delimiter but a first one at the very start carries the CRLF before it; that CRLF
    // belongs to the delimiter, not to the content of the part it ends.
    const QByteArray dashBoundary = "--" + boundary;
    const QByteArrayMatcher delimiter(crlf + dashBoundary);
    const qsizetype delimiterSize = dashBoundary.size() + 2;

    qsizetype pos = 0;
    if (body.startsWith(dashBoundary)) {
        pos = dashBoundary.size();
    } else {
        const qsizetype first = delimiter.indexIn(body, 0);
        if (first < 0)
            return fail(QStringLiteral("the body holds no boundary delimiter"));
        pos = first + delimiterSize;
    }

    while (true) {
        if (QByteArrayView(body).sliced(pos).startsWith("--"))
            return true; // the close delimiter; any epilogue is ignored
        while (pos < body.size() && (body[pos] == ' ' || body[pos] == '\t'))
            ++pos;
        if (!QByteArrayView(body).sliced(pos).startsWith(crlf))
            return fail(QStringLiteral("a boundary delimiter is not followed by a line end"));
        pos += 2;

        const qsizetype next = delimiter.indexIn(body, pos);
        if (next < 0)
            return fail(QStringLiteral("the body is truncated: a part has no closing delimiter"));

        // A part without headers has no name, and every form field needs one.
        if (QByteArrayView(body).sliced(pos).startsWith(crlf))
            return fail(QStringLiteral("a part has no Content-Disposition header"));
        const QByteArrayView partBytes = QByteArrayView(body).sliced(pos, next - pos);
        const qsizetype headerEnd = partBytes.indexOf("\r\n\r\n");
        if (headerEnd < 0)
            return fail(QStringLiteral("a part's headers are not ended by an empty line"));
        Part part;
        if (!parsePartHeaders(partBytes.first(headerEnd), part))
            return false;
        const qsizetype contentStart = pos + headerEnd + 4;
        part.data = QByteArrayView(body).sliced(contentStart, next - contentStart);
        m_parts.append(std::move(part));
        pos = next + delimiterSize;
    }
}

bool MultipartForm::parsePartHeaders(QByteArrayView headers, Part &part)
{
    bool hasDisposition = false;
    qsizetype pos = 0;
    while (pos <= headers.size()) {
        qsizetype lineEnd = headers.indexOf(crlf, pos);
        if (lineEnd < 0)
            lineEnd = headers.size();
        const QByteArrayView line = headers.sliced(pos, lineEnd - pos);
        pos = lineEnd + 2;
        if (line.isEmpty())
            continue;
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0)
            return fail(QStringLiteral("a part header line has no name"));
        const QByteArray name = line.first(colon).trimmed().toByteArray().toLower();
        const QByteArrayView rawValue = line.sliced(colon + 1);
        if (name == "content-type") {
            part.contentType = rawValue.trimmed().toByteArray();
        } else if (name == "content-disposition") {
            HeaderValue disposition;
            if (!parseHeaderValue(rawValue, disposition) ||
                disposition.token.toLower() != "form-data" ||
                !disposition.parameters.contains("name")) {
                return fail(QStringLiteral("a part is not named form-data"));
            }
            part.name = QString::fromUtf8(disposition.parameters.value("name"));
            part.hasFileName = disposition.parameters.contains("filename");
            part.fileName = QString::fromUtf8(disposition.parameters.value("filename"));
            hasDisposition = true;
        }
    }
    if (!hasDisposition)
        return fail(QStringLiteral("a part has no Content-Disposition header"));
    return true;
}

bool MultipartForm::fail(const QString &error)
{
    m_error = error;
    m_parts.clear();
    m_body.clear();
    m_valid = false;
    return false;
}

QStringList MultipartForm::names() const
{
    QStringList names;
    QSet<QString> seen;
    for (const Part &part : m_parts) {
        if (!seen.contains(part.name)) {
            seen.insert(part.name);
            names.append(part.name);
        }
    }
    return names;
}

bool MultipartForm::contains(const QString &name) const
{
    return part(name) != nullptr;
}

const MultipartForm::Part *MultipartForm::part(const QString &name) const
{
    for (auto it = m_parts.crbegin(); it != m_parts.crend(); ++it) {
        if (it->name == name)
            return &*it;
    }
    return nullptr;
}

QString MultipartForm::text(const QString &name) const
{
    const Part *found = part(name);
    return found ? QString::fromUtf8(found->data) : QString();
}
