#include "QKPropertyList.h"

#include <QDateTime>
#include <QFile>
#include <QSaveFile>
#include <QTimeZone>
#include <QtEndian>

#include <plist/plist.h>

#include <locale.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>

namespace {

// Property-list dates count seconds from 1 January 2001, UTC.
const QDateTime &referenceDate()
{
    static const QDateTime date(QDate(2001, 1, 1), QTime(0, 0), QTimeZone::utc());
    return date;
}

// Far beyond any real date, yet safe to turn into milliseconds.
constexpr double maximumDateSeconds = 1e13;

// Whole seconds of @p msecs, rounded down also before the reference date.
qint64 floorSeconds(qint64 msecs)
{
    return msecs >= 0 ? msecs / 1000 : -((-msecs + 999) / 1000);
}

struct PlistDeleter
{
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

QString takeString(char *text)
{
    const QString result = QString::fromUtf8(text);
    std::free(text);
    return result;
}

// libplist 2.2 hands a date out as whole seconds in an int32 (so 1933 to 2069 only) and an
// unsigned fraction, which loses dates outside that range and the sign of dates less than
// a second before the reference date. A lone date node in binary form is the exact double.
std::optional<double> exactDateSeconds(plist_t node)
{
    char *bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(node, &bytes, &length);
    std::optional<double> seconds;
    // "bplist00", then the object: marker 0x33 and a big-endian double.
    if (bytes && length >= 17 && uchar(bytes[8]) == 0x33)
        seconds = qFromBigEndian<double>(bytes + 9);
    plist_to_bin_free(bytes);
    return seconds;
}

// Milliseconds from the reference date; nothing for dates no QDateTime can hold.
std::optional<qint64> dateMSecs(plist_t node)
{
    int32_t seconds = 0;
    int32_t microseconds = 0;
    plist_get_date_val(node, &seconds, &microseconds);
    const qint64 fraction = (qint64(microseconds) + 500) / 1000;
    const bool ambiguous = (seconds == 0 && microseconds != 0) ||
                           seconds == std::numeric_limits<int32_t>::min() ||
                           seconds == std::numeric_limits<int32_t>::max();
    if (!ambiguous)
        return qint64(seconds) * 1000 + (seconds < 0 ? -fraction : fraction);
    const std::optional<double> exact = exactDateSeconds(node);
    if (!exact || !std::isfinite(*exact) || std::abs(*exact) > maximumDateSeconds)
        return std::nullopt;
    return std::llround(*exact * 1000);
}

// plist_new_date takes int32 seconds too; other dates go in through a one-object binary
// property list, which carries the double as it is.
plist_t newDate(qint64 msecs)
{
    const qint64 seconds = floorSeconds(msecs);
    if (seconds > std::numeric_limits<int32_t>::min() &&
        seconds < std::numeric_limits<int32_t>::max())
        return plist_new_date(int32_t(seconds), int32_t((msecs - seconds * 1000) * 1000));
    uchar bytes[50] = {'b', 'p', 'l', 'i', 's', 't', '0', '0', 0x33};
    qToBigEndian<double>(double(msecs) / 1000.0, bytes + 9);
    bytes[17] = 8;               // offset table: the object starts at byte 8
    uchar *trailer = bytes + 18; // offset size, reference size, object count, offset table
    trailer[6] = 1;
    trailer[7] = 1;
    trailer[15] = 1;
    trailer[31] = 17;
    plist_t node = nullptr;
    plist_from_bin(reinterpret_cast<const char *>(bytes), sizeof bytes, &node);
    return node;
}

// libplist reads XML reals with strtod, which follows LC_NUMERIC; Qt applications take that
// from the user's environment, where "0.5" may read as 0. Parse in the C locale instead.
class CNumericLocale
{
public:
    CNumericLocale() : m_previous(uselocale(cLocale())) {}
    ~CNumericLocale() { uselocale(m_previous); }
    CNumericLocale(const CNumericLocale &) = delete;
    CNumericLocale &operator=(const CNumericLocale &) = delete;

private:
    static locale_t cLocale()
    {
        static const locale_t locale = newlocale(LC_NUMERIC_MASK, "C", locale_t(nullptr));
        return locale;
    }
    locale_t m_previous;
};

quint64 readBigEndian(const uchar *bytes, int size)
{
    quint64 value = 0;
    for (int i = 0; i < size; ++i)
        value = (value << 8) | bytes[i];
    return value;
}

// libplist 2.2 aborts the process (an assertion) when it hands out a dictionary key that
// holds U+0000, which only the UTF-16 strings of the binary format can carry. Such a file
// is found here, before libplist sees it, by walking every object the offset table names.
bool hasUtf16StringWithNul(const QByteArray &data)
{
    const auto *bytes = reinterpret_cast<const uchar *>(data.constData());
    const quint64 size = quint64(data.size());
    if (size < 8 + 32 || !data.startsWith("bplist00"))
        return false;
    const uchar *trailer = bytes + size - 32;
    const int offsetSize = trailer[6];
    const quint64 count = readBigEndian(trailer + 8, 8);
    const quint64 table = readBigEndian(trailer + 24, 8);
    if (offsetSize < 1 || offsetSize > 8 || table >= size || count > (size - table) / offsetSize)
        return false; // libplist refuses these itself
    for (quint64 i = 0; i < count; ++i) {
        quint64 start = readBigEndian(bytes + table + i * offsetSize, offsetSize);
        if (start >= size || (bytes[start] & 0xf0) != 0x60)
            continue;
        quint64 length = bytes[start++] & 0x0f;
        if (length == 0x0f) { // the length follows as an integer object
            if (start >= size || (bytes[start] & 0xf0) != 0x10)
                continue;
            const int lengthSize = 1 << (bytes[start] & 0x0f);
            if (lengthSize > 8 || start + 1 + lengthSize > size)
                continue;
            length = readBigEndian(bytes + start + 1, lengthSize);
            start += 1 + lengthSize;
        }
        if (length > (size - start) / 2)
            continue;
        for (quint64 c = 0; c < length; ++c) {
            if (bytes[start + 2 * c] == 0 && bytes[start + 2 * c + 1] == 0)
                return true;
        }
    }
    return false;
}

QVariant toVariant(plist_t node, int depth, QString *error);

QVariant dictToVariant(plist_t node, int depth, QString *error)
{
    QVariantMap map;
    plist_dict_iter iter = nullptr;
    plist_dict_new_iter(node, &iter);
    for (;;) {
        char *key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(node, iter, &key, &value);
        if (!value) {
            std::free(key);
            break;
        }
        const QString name = takeString(key);
        QVariant converted = toVariant(value, depth + 1, error);
        if (!converted.isValid()) {
            std::free(iter);
            return QVariant();
        }
        map.insert(name, converted);
    }
    std::free(iter);
    return map;
}

QVariant arrayToVariant(plist_t node, int depth, QString *error)
{
    QVariantList list;
    list.reserve(plist_array_get_size(node));
    // Not plist_array_get_item: on arrays read from binary files it walks the list from the
    // start each time, which made reading quadratic.
    plist_array_iter iter = nullptr;
    plist_array_new_iter(node, &iter);
    for (;;) {
        plist_t item = nullptr;
        plist_array_next_item(node, iter, &item);
        if (!item)
            break;
        QVariant converted = toVariant(item, depth + 1, error);
        if (!converted.isValid()) {
            std::free(iter);
            return QVariant();
        }
        list.append(converted);
    }
    std::free(iter);
    return list;
}

QVariant toVariant(plist_t node, int depth, QString *error)
{
    // Hostile files can nest deeply; refuse rather than exhaust the stack.
    if (!node || depth > 512) {
        if (error)
            *error = QStringLiteral("property list nests too deeply");
        return QVariant();
    }
    switch (plist_get_node_type(node)) {
    case PLIST_DICT:
        return dictToVariant(node, depth, error);
    case PLIST_ARRAY:
        return arrayToVariant(node, depth, error);
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return bool(value);
    }
    case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        // libplist keeps every integer in 64 unsigned bits; negative integers arrive in
        // two's complement, so the signed reading is the faithful one.
        return QVariant::fromValue<qint64>(qint64(value));
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return value;
    }
    case PLIST_STRING: {
        // plist_get_string_val asserts on strings holding NUL; the pointer call does not.
        uint64_t length = 0;
        const char *value = plist_get_string_ptr(node, &length);
        return QString::fromUtf8(value, qsizetype(length));
    }
    case PLIST_KEY: {
        char *value = nullptr;
        plist_get_key_val(node, &value);
        return takeString(value);
    }
    case PLIST_DATE: {
        const std::optional<qint64> msecs = dateMSecs(node);
        if (!msecs) {
            if (error)
                *error = QStringLiteral("property list holds a date out of range");
            return QVariant();
        }
        return referenceDate().addMSecs(*msecs);
    }
    case PLIST_DATA: {
        uint64_t length = 0;
        const char *bytes = plist_get_data_ptr(node, &length);
        return QByteArray(bytes, qsizetype(length));
    }
    case PLIST_UID: {
        uint64_t value = 0;
        plist_get_uid_val(node, &value);
        return QVariant::fromValue<quint64>(value);
    }
    default:
        if (error)
            *error = QStringLiteral("property list holds an unknown node type");
        return QVariant();
    }
}

plist_t fromVariant(const QVariant &value, QKPropertyList::Format format, int depth, QString *error)
{
    if (depth > 512) {
        if (error)
            *error = QStringLiteral("value nests too deeply for a property list");
        return nullptr;
    }
    switch (value.typeId()) {
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash: {
        plist_t dict = plist_new_dict();
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            plist_t item = fromVariant(it.value(), format, depth + 1, error);
            if (!item) {
                plist_free(dict);
                return nullptr;
            }
            plist_dict_set_item(dict, it.key().toUtf8().constData(), item);
        }
        return dict;
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        plist_t array = plist_new_array();
        const QVariantList list = value.toList();
        for (const QVariant &element : list) {
            plist_t item = fromVariant(element, format, depth + 1, error);
            if (!item) {
                plist_free(array);
                return nullptr;
            }
            plist_array_append_item(array, item);
        }
        return array;
    }
    case QMetaType::Bool:
        return plist_new_bool(value.toBool());
    case QMetaType::Int:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::Char:
    case QMetaType::SChar:
        return plist_new_uint(uint64_t(value.toLongLong()));
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::UChar:
        return plist_new_uint(value.toULongLong());
    case QMetaType::Double:
    case QMetaType::Float:
        return plist_new_real(value.toDouble());
    case QMetaType::QString:
    case QMetaType::QChar:
    case QMetaType::QUrl:
        return plist_new_string(value.toString().toUtf8().constData());
    case QMetaType::QByteArray: {
        const QByteArray data = value.toByteArray();
        return plist_new_data(data.constData(), uint64_t(data.size()));
    }
    case QMetaType::QDateTime:
    case QMetaType::QDate: {
        const QDateTime date = value.toDateTime();
        qint64 msecs = referenceDate().msecsTo(date);
        if (!date.isValid() || std::abs(double(msecs) / 1000.0) > maximumDateSeconds) {
            if (error)
                *error = QStringLiteral("an invalid date cannot be stored in a property list");
            return nullptr;
        }
        // XML keeps whole seconds and libplist truncates towards the reference date; round
        // down so that a date before it does not move forward.
        if (format == QKPropertyList::Format::Xml)
            msecs = floorSeconds(msecs) * 1000;
        return newDate(msecs);
    }
    default:
        if (error)
            *error = QStringLiteral("a %1 cannot be stored in a property list")
                         .arg(QString::fromLatin1(value.typeName() ? value.typeName() : "null"));
        return nullptr;
    }
}

} // namespace

QVariant QKPropertyList::fromData(const QByteArray &data, QString *errorString)
{
    if (data.isEmpty()) {
        if (errorString)
            *errorString = QStringLiteral("no property list data");
        return QVariant();
    }
    if (quint64(data.size()) > std::numeric_limits<uint32_t>::max()) {
        if (errorString)
            *errorString = QStringLiteral("property list too large");
        return QVariant();
    }
    if (hasUtf16StringWithNul(data)) {
        if (errorString)
            *errorString = QStringLiteral("property list holds a string with a NUL character");
        return QVariant();
    }
    plist_t root = nullptr;
    const CNumericLocale numericLocale;
    plist_from_memory(data.constData(), uint32_t(data.size()), &root);
    PlistPtr owner(root);
    if (!root) {
        if (errorString)
            *errorString = QStringLiteral("not a property list (corrupt or truncated)");
        return QVariant();
    }
    return toVariant(root, 0, errorString);
}

QByteArray QKPropertyList::toData(const QVariant &value, Format format, QString *errorString)
{
    PlistPtr root(fromVariant(value, format, 0, errorString));
    if (!root)
        return QByteArray();
    char *bytes = nullptr;
    uint32_t length = 0;
    if (format == Format::Binary) {
        plist_to_bin(root.get(), &bytes, &length);
        QByteArray result(bytes, qsizetype(length));
        plist_to_bin_free(bytes);
        return result;
    }
    plist_to_xml(root.get(), &bytes, &length);
    QByteArray result(bytes, qsizetype(length));
    plist_to_xml_free(bytes);
    return result;
}

QVariant QKPropertyList::readFile(const QString &path, QString *errorString)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (errorString)
            *errorString = file.errorString();
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
        if (errorString)
            *errorString = file.errorString();
        return false;
    }
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(data) == data.size())
        return true;
    if (errorString)
        *errorString = file.errorString();
    return false;
}
