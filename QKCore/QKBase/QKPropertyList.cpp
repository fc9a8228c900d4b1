#include "QKPropertyList.h"

#include <QDateTime>
#include <QFile>
#include <QHash>
#include <QList>
#include <QSaveFile>
#include <QStringDecoder>
#include <QTimeZone>
#include <QtEndian>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>

// Both formats are read and written here rather than through libplist: its readers recurse
// once per nesting level (a deep file overflows the stack before any limit can apply), its
// XML reader is quadratic in the entity references of a string, and it invents values for
// integers, dates and data it cannot read.

namespace {

// Deeper than any real file, shallow enough for the stack of any thread.
constexpr int maximumDepth = 512;

// Far beyond any real date, yet safe to turn into milliseconds.
constexpr double maximumDateSeconds = 1e13;

// Property-list dates count seconds from 1 January 2001, UTC.
const QDateTime &referenceDate()
{
    static const QDateTime date(QDate(2001, 1, 1), QTime(0, 0), QTimeZone::utc());
    return date;
}

// Whole seconds of @p msecs, rounded down also before the reference date.
qint64 floorSeconds(qint64 msecs)
{
    return msecs >= 0 ? msecs / 1000 : -((-msecs + 999) / 1000);
}

void setError(QString *error, const QString &message)
{
    if (error)
        *error = message;
}

// What a QVariant is stored as; both writers share this reading of Qt's types.
enum class Kind { Dict, Array, Boolean, Integer, Unsigned, Real, String, Data, Date, Unstorable };

Kind kindOf(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash:
        return Kind::Dict;
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
        return Kind::Array;
    case QMetaType::Bool:
        return Kind::Boolean;
    case QMetaType::Int:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::Char:
    case QMetaType::SChar:
        return Kind::Integer;
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::UChar:
        return Kind::Unsigned;
    case QMetaType::Double:
    case QMetaType::Float:
        return Kind::Real;
    case QMetaType::QString:
    case QMetaType::QChar:
    case QMetaType::QUrl:
        return Kind::String;
    case QMetaType::QByteArray:
        return Kind::Data;
    case QMetaType::QDateTime:
    case QMetaType::QDate:
        return Kind::Date;
    default:
        return Kind::Unstorable;
    }
}

QString unstorableError(const QVariant &value)
{
    return QStringLiteral("a %1 cannot be stored in a property list")
        .arg(QString::fromLatin1(value.typeName() ? value.typeName() : "null"));
}

// Milliseconds from the reference date; nothing for an invalid or absurd date.
std::optional<qint64> dateMSecs(const QVariant &value, QString *error)
{
    const QDateTime date = value.toDateTime();
    const qint64 msecs = referenceDate().msecsTo(date);
    if (!date.isValid() || std::abs(double(msecs) / 1000.0) > maximumDateSeconds) {
        setError(error, QStringLiteral("an invalid date cannot be stored in a property list"));
        return std::nullopt;
    }
    return msecs;
}

QVariant dateFromSeconds(double seconds)
{
    if (!std::isfinite(seconds) || std::abs(seconds) > maximumDateSeconds)
        return QVariant();
    return referenceDate().addMSecs(std::llround(seconds * 1000));
}

// ---- XML -------------------------------------------------------------------------------------

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
    QByteArray write(const QVariant &root, QString *error)
    {
        m_out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                "<plist version=\"1.0\">\n";
        if (!value(root, 0, error))
            return QByteArray();
        m_out += "</plist>\n";
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

// ---- Binary ----------------------------------------------------------------------------------

quint64 readBigEndian(const uchar *bytes, int size)
{
    quint64 value = 0;
    for (int i = 0; i < size; ++i)
        value = (value << 8) | bytes[i];
    return value;
}

// "bplist00", the objects, a table of their offsets, then a 32-byte trailer. Objects refer to
// each other by index; each is converted once and shared, cycles and stray indexes refused.
class BinaryReader
{
public:
    explicit BinaryReader(const QByteArray &data)
        : m_bytes(reinterpret_cast<const uchar *>(data.constData())), m_size(quint64(data.size()))
    {}

    QVariant read(QString *error)
    {
        QVariant root;
        if (readTrailer())
            root = object(m_top, 0);
        if (!m_error.isEmpty()) {
            setError(error, QStringLiteral("not a property list: ") + m_error);
            return QVariant();
        }
        return root;
    }

private:
    enum class State : uchar { Unread, Reading, Read };
    // How deep and how many values an object is, once read.
    struct Shape
    {
        int height = 0;
        quint64 size = 1;
    };

    bool fail(const QString &message)
    {
        if (m_error.isEmpty())
            m_error = message;
        return false;
    }

    bool readTrailer()
    {
        if (m_size < 8 + 1 + 32 || std::memcmp(m_bytes, "bplist00", 8) != 0)
            return fail(QStringLiteral("truncated or unsupported binary property list"));
        const uchar *trailer = m_bytes + m_size - 32;
        m_offsetSize = trailer[6];
        m_refSize = trailer[7];
        m_count = readBigEndian(trailer + 8, 8);
        m_top = readBigEndian(trailer + 16, 8);
        m_table = readBigEndian(trailer + 24, 8);
        m_end = m_size - 32;
        if (m_offsetSize < 1 || m_offsetSize > 8 || m_refSize < 1 || m_refSize > 8 || m_table < 9 ||
            m_table > m_end || m_count == 0 || m_count > (m_end - m_table) / m_offsetSize ||
            m_top >= m_count)
            return fail(QStringLiteral("corrupt trailer"));
        m_objects.resize(qsizetype(m_count));
        m_states.resize(qsizetype(m_count), State::Unread);
        m_shapes.resize(qsizetype(m_count));
        // Writers share strings and numbers, never containers; sharing containers lets a small
        // file stand for a tree too large to ever walk.
        m_sizeLimit = 16 * m_size + 4096;
        return true;
    }

    // The length in the low nibble of @p marker, or the integer object after it; @p at moves
    // past it. Fails unless that many @p unitSize units fit in the file.
    std::optional<quint64> length(uchar marker, quint64 &at, int unitSize)
    {
        quint64 length = marker & 0x0f;
        if (length == 0x0f) {
            if (at >= m_end || (m_bytes[at] & 0xf0) != 0x10 || (m_bytes[at] & 0x0f) > 3)
                return fail(QStringLiteral("corrupt length")), std::nullopt;
            const int size = 1 << (m_bytes[at] & 0x0f);
            if (m_end - at - 1 < quint64(size))
                return fail(QStringLiteral("truncated length")), std::nullopt;
            length = readBigEndian(m_bytes + at + 1, size);
            at += 1 + size;
        }
        if (length > (m_end - at) / unitSize)
            return fail(QStringLiteral("object runs past the end")), std::nullopt;
        return length;
    }

    QVariant object(quint64 ref, int depth)
    {
        if (ref >= m_count)
            return fail(QStringLiteral("reference to a missing object")), QVariant();
        const auto index = qsizetype(ref);
        if (m_states[index] == State::Read) {
            if (depth + m_shapes[index].height > maximumDepth)
                return fail(QStringLiteral("property list nests too deeply")), QVariant();
            return m_objects[index];
        }
        if (m_states[index] == State::Reading)
            return fail(QStringLiteral("an object contains itself")), QVariant();
        m_states[index] = State::Reading;
        Shape shape;
        QVariant value = read(ref, depth, shape);
        if (!value.isValid())
            return fail(QStringLiteral("corrupt object %1").arg(ref)), QVariant();
        m_states[index] = State::Read;
        m_shapes[index] = shape;
        m_objects[index] = value;
        return value;
    }

    QVariant read(quint64 ref, int depth, Shape &shape)
    {
        const quint64 start = readBigEndian(m_bytes + m_table + ref * m_offsetSize, m_offsetSize);
        if (start < 8 || start >= m_end)
            return QVariant();
        const uchar marker = m_bytes[start];
        quint64 at = start + 1;
        const auto fits = [&](quint64 size) {
            return m_end - at >= size;
        };
        switch (marker >> 4) {
        case 0x0:
            if (marker == 0x08 || marker == 0x09)
                return marker == 0x09;
            return QVariant();
        case 0x1: {
            const int size = 1 << (marker & 0x0f);
            if (size > 16 || !fits(size))
                return QVariant();
            if (size < 16)
                return QVariant::fromValue<qint64>(qint64(readBigEndian(m_bytes + at, size)));
            // 128 bits: only what 64 bits hold, unsigned values above INT64_MAX wrapping.
            const quint64 high = readBigEndian(m_bytes + at, 8);
            const quint64 low = readBigEndian(m_bytes + at + 8, 8);
            if (high != 0 && !(high == ~quint64(0) && qint64(low) < 0))
                return QVariant();
            return QVariant::fromValue<qint64>(qint64(low));
        }
        case 0x2:
            if (marker == 0x22 && fits(4))
                return double(qFromBigEndian<float>(m_bytes + at));
            if (marker == 0x23 && fits(8))
                return qFromBigEndian<double>(m_bytes + at);
            return QVariant();
        case 0x3:
            if (marker != 0x33 || !fits(8))
                return QVariant();
            return dateFromSeconds(qFromBigEndian<double>(m_bytes + at));
        case 0x4:
        case 0x5: {
            const std::optional<quint64> size = length(marker, at, 1);
            if (!size)
                return QVariant();
            const auto *chars = reinterpret_cast<const char *>(m_bytes + at);
            if (marker >> 4 == 0x4)
                return QByteArray(chars, qsizetype(*size));
            return QString::fromLatin1(chars, qsizetype(*size));
        }
        case 0x6: {
            const std::optional<quint64> size = length(marker, at, 2);
            if (!size)
                return QVariant();
            QString string(qsizetype(*size), Qt::Uninitialized);
            qFromBigEndian<char16_t>(m_bytes + at, qsizetype(*size), string.data());
            return string;
        }
        case 0x8: {
            const int size = (marker & 0x0f) + 1;
            if (size > 8 || !fits(size))
                return QVariant();
            return QVariant::fromValue<quint64>(readBigEndian(m_bytes + at, size));
        }
        case 0xa:
        case 0xc:
        case 0xd:
            return container(marker, at, depth, shape);
        default:
            return QVariant();
        }
    }

    QVariant container(uchar marker, quint64 at, int depth, Shape &shape)
    {
        if (depth >= maximumDepth)
            return fail(QStringLiteral("property list nests too deeply")), QVariant();
        const bool isDict = marker >> 4 == 0xd;
        const std::optional<quint64> count = length(marker, at, m_refSize * (isDict ? 2 : 1));
        if (!count)
            return QVariant();
        const auto ref = [&](quint64 i) {
            return readBigEndian(m_bytes + at + i * m_refSize, m_refSize);
        };
        const auto child = [&](quint64 i) {
            QVariant value = object(ref(i), depth + 1);
            if (!value.isValid())
                return value;
            const Shape &inner = m_shapes[qsizetype(ref(i))];
            shape.height = std::max(shape.height, inner.height + 1);
            shape.size += inner.size;
            if (shape.size > m_sizeLimit)
                return fail(QStringLiteral("property list expands too far")), QVariant();
            return value;
        };
        if (!isDict) {
            QVariantList list;
            list.reserve(qsizetype(*count));
            for (quint64 i = 0; i < *count; ++i) {
                QVariant value = child(i);
                if (!value.isValid())
                    return QVariant();
                list.append(std::move(value));
            }
            return list;
        }
        QVariantMap map;
        for (quint64 i = 0; i < *count; ++i) {
            const QVariant key = object(ref(i), depth + 1);
            if (key.typeId() != QMetaType::QString)
                return fail(QStringLiteral("a dictionary key is not a string")), QVariant();
            QVariant value = child(*count + i);
            if (!value.isValid())
                return QVariant();
            map.insert(key.toString(), std::move(value));
        }
        return map;
    }

    const uchar *m_bytes;
    quint64 m_size;
    quint64 m_end = 0;
    int m_offsetSize = 0;
    int m_refSize = 0;
    quint64 m_count = 0;
    quint64 m_top = 0;
    quint64 m_table = 0;
    QList<QVariant> m_objects;
    QList<State> m_states;
    QList<Shape> m_shapes;
    quint64 m_sizeLimit = 0;
    QString m_error;
};

int bytesFor(quint64 value)
{
    int bytes = 1;
    while (bytes < 8 && value >> (8 * bytes))
        bytes *= 2;
    return bytes;
}

void appendBigEndian(QByteArray &out, quint64 value, int size)
{
    for (int i = size - 1; i >= 0; --i)
        out.append(char(value >> (8 * i)));
}

// Scalars go out as they come; containers wait until the number of objects, and so the size
// of a reference, is known.
class BinaryWriter
{
public:
    QByteArray write(const QVariant &root, QString *error)
    {
        m_out = QByteArrayLiteral("bplist00");
        if (!add(root, 0, error))
            return QByteArray();
        const quint64 count = quint64(m_offsets.size());
        const int refSize = bytesFor(count);
        for (const Container &container : std::as_const(m_containers)) {
            m_offsets[container.id] = quint64(m_out.size());
            appendMarker(m_out, container.marker, quint64(container.size));
            const qsizetype refs = container.marker == 0xd0 ? 2 * container.size : container.size;
            for (qsizetype i = 0; i < refs; ++i)
                appendBigEndian(m_out, m_refs[container.firstRef + i], refSize);
        }
        const quint64 table = quint64(m_out.size());
        const int offsetSize = bytesFor(table);
        for (quint64 offset : std::as_const(m_offsets))
            appendBigEndian(m_out, offset, offsetSize);
        m_out.append(6, '\0');
        m_out.append(char(offsetSize));
        m_out.append(char(refSize));
        appendBigEndian(m_out, count, 8);
        appendBigEndian(m_out, 0, 8); // the root is the first object
        appendBigEndian(m_out, table, 8);
        return m_out;
    }

private:
    struct Container
    {
        qsizetype id;
        uchar marker;
        qsizetype size;
        qsizetype firstRef;
    };

    static void appendMarker(QByteArray &out, uchar marker, quint64 length)
    {
        if (length < 0x0f) {
            out.append(char(marker | length));
            return;
        }
        out.append(char(marker | 0x0f));
        const int size = bytesFor(length);
        out.append(char(0x10 | std::countr_zero(unsigned(size))));
        appendBigEndian(out, length, size);
    }

    static QByteArray encodeString(const QString &string)
    {
        const auto *chars = reinterpret_cast<const char16_t *>(string.utf16());
        const qsizetype size = string.size();
        const bool ascii = std::all_of(chars, chars + size, [](char16_t c) { return c < 0x80; });
        QByteArray object;
        appendMarker(object, ascii ? 0x50 : 0x60, quint64(size));
        if (ascii)
            return object + string.toLatin1();
        const qsizetype at = object.size();
        object.resize(at + 2 * size);
        qToBigEndian<char16_t>(chars, size, object.data() + at);
        return object;
    }

    static bool encodeScalar(const QVariant &value, Kind kind, QByteArray &object, QString *error)
    {
        switch (kind) {
        case Kind::String:
            object = encodeString(value.toString());
            return true;
        case Kind::Boolean:
            object = value.toBool() ? "\x09" : "\x08";
            return true;
        case Kind::Integer:
        case Kind::Unsigned: {
            const quint64 bits =
                kind == Kind::Integer ? quint64(value.toLongLong()) : value.toULongLong();
            if (kind == Kind::Unsigned && bits > quint64(std::numeric_limits<qint64>::max())) {
                object = "\x14"; // a 128-bit integer keeps the value positive
                appendBigEndian(object, 0, 8);
                appendBigEndian(object, bits, 8);
                return true;
            }
            const int size = qint64(bits) < 0 ? 8 : bytesFor(bits);
            object.append(char(0x10 | std::countr_zero(unsigned(size))));
            appendBigEndian(object, bits, size);
            return true;
        }
        case Kind::Real:
            object = "\x23";
            appendBigEndian(object, std::bit_cast<quint64>(value.toDouble()), 8);
            return true;
        case Kind::Data: {
            const QByteArray data = value.toByteArray();
            appendMarker(object, 0x40, quint64(data.size()));
            object.append(data);
            return true;
        }
        case Kind::Date: {
            const std::optional<qint64> msecs = dateMSecs(value, error);
            if (!msecs)
                return false;
            object = "\x33";
            appendBigEndian(object, std::bit_cast<quint64>(double(*msecs) / 1000.0), 8);
            return true;
        }
        default:
            setError(error, unstorableError(value));
            return false;
        }
    }

    qsizetype newObject()
    {
        m_offsets.append(quint64(m_out.size()));
        return m_offsets.size() - 1;
    }

    // Equal scalars are stored once, as other writers do.
    qsizetype intern(const QByteArray &object)
    {
        const auto known = m_scalars.constFind(object);
        if (known != m_scalars.constEnd())
            return *known;
        const qsizetype id = newObject();
        m_out.append(object);
        m_scalars.insert(object, id);
        return id;
    }

    bool add(const QVariant &value, int depth, QString *error, qsizetype *id = nullptr)
    {
        if (depth > maximumDepth) {
            setError(error, QStringLiteral("value nests too deeply for a property list"));
            return false;
        }
        const Kind kind = kindOf(value);
        if (kind == Kind::Dict || kind == Kind::Array)
            return addContainer(value, kind, depth, error, id);
        QByteArray object;
        if (!encodeScalar(value, kind, object, error))
            return false;
        const qsizetype self = intern(object);
        if (id)
            *id = self;
        return true;
    }

    bool addContainer(const QVariant &value, Kind kind, int depth, QString *error, qsizetype *id)
    {
        const qsizetype self = newObject();
        if (id)
            *id = self;
        Container container{self, kind == Kind::Dict ? uchar(0xd0) : uchar(0xa0), 0, 0};
        if (kind == Kind::Array) {
            const QVariantList list = value.toList();
            container.size = list.size();
            container.firstRef = m_refs.size();
            m_refs.resize(m_refs.size() + list.size());
            for (qsizetype i = 0; i < list.size(); ++i) {
                qsizetype child = 0;
                if (!add(list[i], depth + 1, error, &child))
                    return false;
                m_refs[container.firstRef + i] = quint64(child);
            }
        } else {
            const QVariantMap map = value.toMap();
            container.size = map.size();
            container.firstRef = m_refs.size();
            m_refs.resize(m_refs.size() + 2 * map.size());
            qsizetype i = 0;
            for (auto it = map.cbegin(); it != map.cend(); ++it, ++i) {
                const qsizetype key = intern(encodeString(it.key()));
                qsizetype child = 0;
                if (!add(it.value(), depth + 1, error, &child))
                    return false;
                m_refs[container.firstRef + i] = quint64(key);
                m_refs[container.firstRef + container.size + i] = quint64(child);
            }
        }
        m_containers.append(container);
        return true;
    }

    QByteArray m_out;
    QList<quint64> m_offsets;
    QList<quint64> m_refs;
    QList<Container> m_containers;
    QHash<QByteArray, qsizetype> m_scalars;
};

} // namespace

QVariant QKPropertyList::fromData(const QByteArray &data, QString *errorString)
{
    if (data.isEmpty()) {
        setError(errorString, QStringLiteral("no property list data"));
        return QVariant();
    }
    if (data.startsWith("bplist"))
        return BinaryReader(data).read(errorString);
    return XmlReader(data).read(errorString);
}

QByteArray QKPropertyList::toData(const QVariant &value, Format format, QString *errorString)
{
    if (format == Format::Binary)
        return BinaryWriter().write(value, errorString);
    return XmlWriter().write(value, errorString);
}

QVariant QKPropertyList::readFile(const QString &path, QString *errorString)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        setError(errorString, file.errorString());
        return QVariant();
    }
    return fromData(file.readAll(), errorString);
}

bool QKPropertyList::writeFile(const QVariant &value, const QString &path, Format format,
                               bool atomically, QString *errorString)
{
    const QByteArray data = toData(value, format, errorString);
    if (data.isEmpty())
        return false;
    if (atomically) {
        QSaveFile file(path);
        if (file.open(QIODevice::WriteOnly) && file.write(data) == data.size() && file.commit())
            return true;
        setError(errorString, file.errorString());
        return false;
    }
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(data) == data.size())
        return true;
    setError(errorString, file.errorString());
    return false;
}
