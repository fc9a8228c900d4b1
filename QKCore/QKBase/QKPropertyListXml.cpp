#include "QKPropertyListFormats.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QStringDecoder>
#include <QTimeZone>
#include <QtEndian>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>

using namespace QKPropertyListFormats;

namespace {

// Decimal or 0x-prefixed hexadecimal; unsigned values above INT64_MAX wrap.
QVariant integerFromXml(QStringView text)
{
    text = text.trimmed();
    const bool negative = text.startsWith(u'-');
    QStringView digits = negative || text.startsWith(u'+') ? text.mid(1) : text;
    int base = 10;
    if (digits.startsWith(u"0x") || digits.startsWith(u"0X")) {
        digits = digits.mid(2);
        base = 16;
    }
    // toULongLong would take a second sign or inner spaces.
    if (digits.isEmpty() || !digits.front().isLetterOrNumber())
        return QVariant();
    bool ok = false;
    const quint64 magnitude = digits.toULongLong(&ok, base);
    if (!ok || (negative && magnitude > quint64(std::numeric_limits<qint64>::max()) + 1))
        return QVariant();
    return QVariant::fromValue<qint64>(qint64(negative ? 0 - magnitude : magnitude));
}

QVariant realFromXml(QStringView text)
{
    bool ok = false;
    const double value = text.trimmed().toDouble(&ok);
    return ok ? QVariant(value) : QVariant();
}

// "2024-02-29T13:45:30Z", optionally with a fraction of a second.
QVariant dateFromXml(QStringView text)
{
    text = text.trimmed();
    const auto number = [&](qsizetype from, qsizetype length) {
        int value = 0;
        for (qsizetype i = from; i < from + length; ++i) {
            if (!text[i].isDigit() || text[i].unicode() > '9')
                return -1;
            value = value * 10 + (text[i].unicode() - '0');
        }
        return value;
    };
    if (text.size() < 20 || !text.endsWith(u'Z') || text[4] != u'-' || text[7] != u'-' ||
        text[10] != u'T' || text[13] != u':' || text[16] != u':')
        return QVariant();
    int msec = 0;
    if (text.size() > 20) {
        // A fraction is kept to the millisecond, rounded down.
        const qsizetype digits = text.size() - 21;
        if (text[19] != u'.' || digits < 1 || digits > 9 || number(20, digits) < 0)
            return QVariant();
        msec = number(20, std::min<qsizetype>(digits, 3));
        for (qsizetype i = digits; i < 3; ++i)
            msec *= 10;
    }
    const QDate day(number(0, 4), number(5, 2), number(8, 2));
    const int hour = number(11, 2), minute = number(14, 2), second = number(17, 2);
    if (!day.isValid() || !QTime::isValid(hour, minute, second, msec))
        return QVariant();
    return QDateTime(day, QTime(hour, minute, second, msec), QTimeZone::utc());
}

// Base64, with any whitespace between the characters; bad characters or padding refused.
QVariant dataFromXml(QStringView text)
{
    QByteArray compact;
    compact.reserve(text.size());
    for (QChar c : text) {
        if (c.unicode() > 0x7f)
            return QVariant();
        if (c != u' ' && c != u'\t' && c != u'\n' && c != u'\r')
            compact.append(char(c.unicode()));
    }
    auto decoded = QByteArray::fromBase64Encoding(compact, QByteArray::AbortOnBase64DecodingErrors);
    return decoded ? QVariant(std::move(*decoded)) : QVariant();
}

// A reader for the XML that property lists use: UTF-8, elements, text, the predefined entities
// and character references, CDATA, comments and a DOCTYPE without an internal subset. Open
// containers are kept on an explicit stack, so nesting costs heap rather than stack, and text
// is scanned once, so reading is linear in the size of the file.
class XmlReader
{
public:
    explicit XmlReader(const QByteArray &data)
        : m_at(data.constData()), m_begin(data.constData()), m_end(data.constData() + data.size())
    {}

    QVariant read(QString *error)
    {
        std::optional<QVariant> root = readDocument();
        if (!root) {
            int line = 1;
            const char *lineStart = m_begin;
            for (const char *c = m_begin; c < m_at && c < m_end; ++c) {
                if (*c == '\n') {
                    ++line;
                    lineStart = c + 1;
                }
            }
            setError(error, QStringLiteral("not a property list: line %1, column %2: %3")
                                .arg(line)
                                .arg(m_at - lineStart + 1)
                                .arg(m_error));
            return QVariant();
        }
        return std::move(*root);
    }

private:
    struct Tag
    {
        QByteArrayView name;
        bool closing = false;
        bool empty = false; // <name/>
    };

    struct Container
    {
        bool isDict = false;
        QVariantList list;
        QVariantMap map;
        std::optional<QString> key;
    };

    bool fail(const QString &message)
    {
        if (m_error.isEmpty())
            m_error = message;
        return false;
    }

    bool startsWith(const char *text) const
    {
        const size_t length = std::strlen(text);
        return size_t(m_end - m_at) >= length && std::memcmp(m_at, text, length) == 0;
    }

    static bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

    void skipSpace()
    {
        while (m_at < m_end && isSpace(*m_at))
            ++m_at;
    }

    // Moves past @p terminator; false when the data ends first.
    bool skipPast(const char *terminator)
    {
        const QByteArrayView rest(m_at, m_end - m_at);
        const qsizetype found = rest.indexOf(QByteArrayView(terminator));
        if (found < 0) {
            m_at = m_end;
            return fail(QStringLiteral("unexpected end of the property list"));
        }
        m_at += found + qsizetype(std::strlen(terminator));
        return true;
    }

    // Whitespace, comments and processing instructions; stops at anything else.
    bool skipMisc()
    {
        for (;;) {
            skipSpace();
            if (startsWith("<!--")) {
                if (!skipPast("-->"))
                    return false;
            } else if (startsWith("<?")) {
                if (!skipPast("?>"))
                    return false;
            } else {
                return true;
            }
        }
    }

    bool readDoctype()
    {
        // No internal subset: entities declared there are how a small file becomes huge.
        for (char quote = 0; m_at < m_end; ++m_at) {
            if (quote) {
                if (*m_at == quote)
                    quote = 0;
            } else if (*m_at == '"' || *m_at == '\'') {
                quote = *m_at;
            } else if (*m_at == '[') {
                return fail(QStringLiteral("a DOCTYPE with declarations is not allowed"));
            } else if (*m_at == '>') {
                ++m_at;
                return true;
            }
        }
        return fail(QStringLiteral("unexpected end of the property list"));
    }

    static bool isNameChar(char c)
    {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_' || c == ':' || c == '-' || c == '.' || uchar(c) >= 0x80;
    }

    QByteArrayView readName()
    {
        const char *start = m_at;
        while (m_at < m_end && isNameChar(*m_at))
            ++m_at;
        return QByteArrayView(start, m_at - start);
    }

    // A start, end or empty-element tag at the current '<'; attributes are checked, not kept.
    bool readTag(Tag &tag)
    {
        if (m_at >= m_end || *m_at != '<')
            return fail(m_at >= m_end ? QStringLiteral("unexpected end of the property list")
                                      : QStringLiteral("text outside a value"));
        ++m_at;
        tag.closing = m_at < m_end && *m_at == '/';
        m_at += tag.closing ? 1 : 0;
        tag.name = readName();
        tag.empty = false;
        if (tag.name.isEmpty())
            return fail(QStringLiteral("malformed tag"));
        for (;;) {
            const char *beforeSpace = m_at;
            skipSpace();
            if (m_at >= m_end)
                return fail(QStringLiteral("unexpected end of the property list"));
            if (*m_at == '>') {
                ++m_at;
                return true;
            }
            if (!tag.closing && startsWith("/>")) {
                m_at += 2;
                tag.empty = true;
                return true;
            }
            if (tag.closing || m_at == beforeSpace || readName().isEmpty())
                return fail(QStringLiteral("malformed tag"));
            skipSpace();
            if (m_at >= m_end || *m_at != '=')
                return fail(QStringLiteral("malformed attribute"));
            ++m_at;
            skipSpace();
            if (m_at >= m_end || (*m_at != '"' && *m_at != '\''))
                return fail(QStringLiteral("malformed attribute"));
            const char quote = *m_at++;
            while (m_at < m_end && *m_at != quote && *m_at != '<')
                ++m_at;
            if (m_at >= m_end || *m_at != quote)
                return fail(QStringLiteral("malformed attribute"));
            ++m_at;
        }
    }

    bool expectEndTag(QByteArrayView name)
    {
        Tag tag;
        if (!readTag(tag))
            return false;
        if (!tag.closing || tag.name != name)
            return fail(QStringLiteral("expected </%1>").arg(QString::fromUtf8(name)));
        return true;
    }

    // Characters XML allows, as character references or raw.
    static bool isXmlChar(char32_t c)
    {
        return c == 0x9 || c == 0xa || c == 0xd || (c >= 0x20 && c <= 0xd7ff) ||
               (c >= 0xe000 && c <= 0xfffd) || (c >= 0x10000 && c <= 0x10ffff);
    }

    bool appendReference(QByteArray &out)
    {
        const char *start = ++m_at; // past '&'
        while (m_at < m_end && *m_at != ';' && m_at - start < 12)
            ++m_at;
        if (m_at >= m_end || *m_at != ';')
            return fail(QStringLiteral("malformed entity reference"));
        const QByteArrayView name(start, m_at++ - start);
        if (name == "lt")
            out += '<';
        else if (name == "gt")
            out += '>';
        else if (name == "amp")
            out += '&';
        else if (name == "quot")
            out += '"';
        else if (name == "apos")
            out += '\'';
        else if (name.startsWith('#')) {
            const bool hex = name.startsWith("#x");
            QByteArrayView digits = name.sliced(hex ? 2 : 1);
            bool ok = !digits.isEmpty() && isNameChar(digits.front()) && digits.front() != '-';
            const uint code = ok ? digits.toUInt(&ok, hex ? 16 : 10) : 0;
            if (!ok || !isXmlChar(code))
                return fail(QStringLiteral("invalid character reference &%1;")
                                .arg(QString::fromUtf8(name)));
            const char32_t character = code;
            out += QString::fromUcs4(&character, 1).toUtf8();
        } else {
            return fail(QStringLiteral("unknown entity &%1;").arg(QString::fromUtf8(name)));
        }
        return true;
    }

    // Raw text up to @p stop, line ends normalised as XML requires; control characters refused.
    bool appendRaw(QByteArray &out, const char *stop)
    {
        const char *run = m_at;
        for (; m_at < stop; ++m_at) {
            const auto c = uchar(*m_at);
            if (c >= 0x20 || c == '\t' || c == '\n')
                continue;
            if (c != '\r')
                return fail(QStringLiteral("control character U+%1 in text")
                                .arg(uint(c), 4, 16, QLatin1Char('0')));
            out.append(run, m_at - run);
            out += '\n';
            if (m_at + 1 < stop && m_at[1] == '\n')
                ++m_at;
            run = m_at + 1;
        }
        out.append(run, m_at - run);
        return true;
    }

    // The text of the element whose start tag was just read, through its end tag.
    std::optional<QString> readText(QByteArrayView element)
    {
        QByteArray utf8;
        for (;;) {
            const char *next = m_at;
            while (next < m_end && *next != '<' && *next != '&')
                ++next;
            if (!appendRaw(utf8, next))
                return std::nullopt;
            if (m_at >= m_end)
                return fail(QStringLiteral("unexpected end of the property list")), std::nullopt;
            if (*m_at == '&') {
                if (!appendReference(utf8))
                    return std::nullopt;
            } else if (startsWith("<![CDATA[")) {
                m_at += 9;
                const qsizetype end = QByteArrayView(m_at, m_end - m_at).indexOf("]]>");
                if (end < 0)
                    return fail(QStringLiteral("unterminated CDATA")), std::nullopt;
                if (!appendRaw(utf8, m_at + end))
                    return std::nullopt;
                m_at += 3;
            } else if (startsWith("<!--")) {
                if (!skipPast("-->"))
                    return std::nullopt;
            } else if (startsWith("<?")) {
                if (!skipPast("?>"))
                    return std::nullopt;
            } else {
                if (!startsWith("</"))
                    return fail(QStringLiteral("<%1> holds more than text")
                                    .arg(QString::fromUtf8(element))),
                           std::nullopt;
                if (!expectEndTag(element))
                    return std::nullopt;
                QStringDecoder decoder(QStringDecoder::Utf8);
                QString text = decoder(utf8);
                if (decoder.hasError())
                    return fail(QStringLiteral("text is not UTF-8")), std::nullopt;
                return text;
            }
        }
    }

    std::optional<QVariant> readDocument()
    {
        if (startsWith("\xef\xbb\xbf"))
            m_at += 3;
        if (!skipMisc())
            return std::nullopt;
        if (startsWith("<!DOCTYPE")) {
            if (!readDoctype() || !skipMisc())
                return std::nullopt;
        }
        Tag tag;
        if (!readTag(tag))
            return std::nullopt;
        if (tag.closing || tag.empty || tag.name != "plist")
            return fail(QStringLiteral("no <plist> element with a value")), std::nullopt;
        if (!skipMisc() || !readTag(tag))
            return std::nullopt;
        if (tag.closing)
            return fail(QStringLiteral("no <plist> element with a value")), std::nullopt;
        std::optional<QVariant> root = readValue(tag);
        if (!root || !skipMisc() || !expectEndTag("plist") || !skipMisc())
            return std::nullopt;
        if (m_at != m_end)
            return fail(QStringLiteral("content after </plist>")), std::nullopt;
        return root;
    }

    // The value whose start tag is @p tag, with everything inside it.
    std::optional<QVariant> readValue(Tag tag)
    {
        QList<Container> open;
        for (;;) {
            std::optional<QVariant> value;
            if (tag.closing) {
                if (open.isEmpty())
                    return fail(QStringLiteral("unexpected end tag")), std::nullopt;
                Container closed = open.takeLast();
                if (tag.name != (closed.isDict ? "dict" : "array"))
                    return fail(QStringLiteral("mismatched end tag")), std::nullopt;
                if (closed.isDict && closed.key)
                    return fail(QStringLiteral("a <key> without a value")), std::nullopt;
                value = closed.isDict ? QVariant(std::move(closed.map))
                                      : QVariant(std::move(closed.list));
            } else if (tag.name == "dict" || tag.name == "array") {
                if (open.size() >= maximumDepth)
                    return fail(QStringLiteral("property list nests too deeply")), std::nullopt;
                if (tag.empty)
                    value = tag.name == "dict" ? QVariant(QVariantMap()) : QVariant(QVariantList());
                else
                    open.append(Container{tag.name == "dict", {}, {}, {}});
            } else if (tag.name == "key") {
                if (open.isEmpty() || !open.last().isDict || open.last().key)
                    return fail(QStringLiteral("misplaced <key>")), std::nullopt;
                std::optional<QString> key = tag.empty ? QString() : readText(tag.name);
                if (!key)
                    return std::nullopt;
                open.last().key = std::move(*key);
            } else {
                value = readScalar(tag);
                if (!value)
                    return std::nullopt;
            }

            if (value) {
                if (open.isEmpty())
                    return value;
                Container &parent = open.last();
                if (parent.isDict) {
                    if (!parent.key)
                        return fail(QStringLiteral("a value without a <key>")), std::nullopt;
                    parent.map.insert(*parent.key, std::move(*value));
                    parent.key.reset();
                } else {
                    parent.list.append(std::move(*value));
                }
            }
            if (!skipMisc() || !readTag(tag))
                return std::nullopt;
        }
    }

    std::optional<QVariant> readScalar(const Tag &tag)
    {
        const QByteArrayView name = tag.name;
        std::optional<QString> text = tag.empty ? QString() : readText(name);
        if (!text)
            return std::nullopt;
        QVariant value;
        if (name == "string")
            return QVariant(std::move(*text));
        if (name == "integer")
            value = integerFromXml(*text);
        else if (name == "real")
            value = realFromXml(*text);
        else if (name == "true" || name == "false")
            value = text->trimmed().isEmpty() ? QVariant(name == "true") : QVariant();
        else if (name == "date")
            value = dateFromXml(*text);
        else if (name == "data")
            value = dataFromXml(*text);
        else
            return fail(QStringLiteral("unknown element <%1>").arg(QString::fromUtf8(name))),
                   std::nullopt;
        if (!value.isValid())
            return fail(QStringLiteral("invalid <%1>%2</%1>")
                            .arg(QString::fromUtf8(name), text->left(40))),
                   std::nullopt;
        return value;
    }

    const char *m_at;
    const char *m_begin;
    const char *m_end;
    QString m_error;
};

class XmlWriter
{
public:
    static QByteArray document(const QByteArray &rootElement)
    {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
               "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
               "<plist version=\"1.0\">\n" +
               rootElement + "</plist>\n";
    }

    QByteArray element(const QVariant &root, int depth, QString *error)
    {
        m_out.clear();
        if (!value(root, depth, error))
            return QByteArray();
        return m_out;
    }

private:
    bool value(const QVariant &value, int depth, QString *error)
    {
        if (depth > maximumDepth) {
            setError(error, QStringLiteral("value nests too deeply for a property list"));
            return false;
        }
        const QByteArray indent(depth, '\t');
        switch (kindOf(value)) {
        case Kind::Dict: {
            const QVariantMap map = value.toMap();
            if (map.isEmpty()) {
                m_out += indent + "<dict/>\n";
                return true;
            }
            m_out += indent + "<dict>\n";
            for (auto it = map.cbegin(); it != map.cend(); ++it) {
                m_out += indent + "\t<key>";
                if (!text(it.key(), error))
                    return false;
                m_out += "</key>\n";
                if (!this->value(it.value(), depth + 1, error))
                    return false;
            }
            m_out += indent + "</dict>\n";
            return true;
        }
        case Kind::Array: {
            const QVariantList list = value.toList();
            if (list.isEmpty()) {
                m_out += indent + "<array/>\n";
                return true;
            }
            m_out += indent + "<array>\n";
            for (const QVariant &item : list) {
                if (!this->value(item, depth + 1, error))
                    return false;
            }
            m_out += indent + "</array>\n";
            return true;
        }
        case Kind::Boolean:
            m_out += indent + (value.toBool() ? "<true/>\n" : "<false/>\n");
            return true;
        case Kind::Integer:
            m_out += indent + "<integer>" + QByteArray::number(value.toLongLong()) + "</integer>\n";
            return true;
        case Kind::Unsigned:
            m_out +=
                indent + "<integer>" + QByteArray::number(value.toULongLong()) + "</integer>\n";
            return true;
        case Kind::Real: {
            // The shortest text that reads back as the same double; Qt drops the sign of zero.
            const double real = value.toDouble();
            const QByteArray text =
                real == 0 && std::signbit(real)
                    ? QByteArrayLiteral("-0.0")
                    : QByteArray::number(real, 'g', QLocale::FloatingPointShortest);
            m_out += indent + "<real>" + text + "</real>\n";
            return true;
        }
        case Kind::String:
            m_out += indent + "<string>";
            if (!text(value.toString(), error))
                return false;
            m_out += "</string>\n";
            return true;
        case Kind::Data:
            m_out += indent + "<data>" + value.toByteArray().toBase64() + "</data>\n";
            return true;
        case Kind::Date: {
            const std::optional<qint64> msecs = dateMSecs(value, error);
            if (!msecs)
                return false;
            // Whole seconds, rounded down so that a date before 2001 does not move forward.
            const QDateTime date = referenceDate().addSecs(floorSeconds(*msecs));
            if (date.date().year() < 1 || date.date().year() > 9999) {
                setError(error, QStringLiteral("an XML property list holds only the years 1 "
                                               "to 9999"));
                return false;
            }
            m_out += indent + "<date>" +
                     date.toString(QStringLiteral("yyyy-MM-ddTHH:mm:ssZ")).toLatin1() + "</date>\n";
            return true;
        }
        case Kind::Unstorable:
            break;
        }
        setError(error, unstorableError(value));
        return false;
    }

    // XML can carry neither most control characters nor U+FFFE/U+FFFF, not even escaped, and
    // a reader turns a raw CR into LF; a string holding them is refused rather than altered.
    bool text(const QString &string, QString *error)
    {
        const auto *chars = reinterpret_cast<const char16_t *>(string.utf16());
        for (qsizetype i = 0, size = string.size(); i < size; ++i) {
            const char16_t c = chars[i];
            bool storable = c >= 0x20 || c == u'\t' || c == u'\n' || c == u'\r';
            if (c == 0xfffe || c == 0xffff)
                storable = false;
            else if (QChar::isHighSurrogate(c))
                storable = i + 1 < size && QChar::isLowSurrogate(chars[++i]);
            else if (QChar::isLowSurrogate(c))
                storable = false;
            if (!storable) {
                setError(error, QStringLiteral("a string holding U+%1 cannot be stored in an "
                                               "XML property list")
                                    .arg(uint(c), 4, 16, QLatin1Char('0')));
                return false;
            }
        }
        const QByteArray utf8 = string.toUtf8();
        for (char c : utf8) {
            switch (c) {
            case '&':
                m_out += "&amp;";
                break;
            case '<':
                m_out += "&lt;";
                break;
            case '>': // "]]>" may not appear in text
                m_out += "&gt;";
                break;
            case '\r':
                m_out += "&#13;";
                break;
            default:
                m_out += c;
            }
        }
        return true;
    }

    QByteArray m_out;
};

} // namespace

QVariant QKPropertyListFormats::readXml(const QByteArray &data, QString *error)
{
    return XmlReader(data).read(error);
}

QByteArray QKPropertyListFormats::writeXml(const QVariant &value, QString *error)
{
    const QByteArray root = XmlWriter().element(value, 0, error);
    return root.isEmpty() ? root : XmlWriter::document(root);
}

QByteArray QKPropertyListFormats::writeXmlElement(const QVariant &value, int depth, QString *error)
{
    return XmlWriter().element(value, depth, error);
}

QByteArray QKPropertyListFormats::xmlDocument(const QByteArray &rootElement)
{
    return XmlWriter::document(rootElement);
}
