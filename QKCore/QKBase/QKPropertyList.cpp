#include "QKPropertyList.h"

#include <QDateTime>
#include <QFile>
#include <QSaveFile>
#include <QTimeZone>

#include <plist/plist.h>

#include <cstdlib>
#include <limits>
#include <memory>

namespace {

// Property-list dates count seconds from 1 January 2001, UTC.
const QDateTime &referenceDate()
{
    static const QDateTime date(QDate(2001, 1, 1), QTime(0, 0), QTimeZone::utc());
    return date;
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
    const uint32_t count = plist_array_get_size(node);
    list.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        QVariant converted = toVariant(plist_array_get_item(node, i), depth + 1, error);
        if (!converted.isValid())
            return QVariant();
        list.append(converted);
    }
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
    case PLIST_STRING:
    case PLIST_KEY: {
        char *value = nullptr;
        if (plist_get_node_type(node) == PLIST_KEY)
            plist_get_key_val(node, &value);
        else
            plist_get_string_val(node, &value);
        return takeString(value);
    }
    case PLIST_DATE: {
        int32_t seconds = 0;
        int32_t microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        return referenceDate().addMSecs(qint64(seconds) * 1000 + microseconds / 1000);
    }
    case PLIST_DATA: {
        char *bytes = nullptr;
        uint64_t length = 0;
        plist_get_data_val(node, &bytes, &length);
        QByteArray data(bytes, qsizetype(length));
        std::free(bytes);
        return data;
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

plist_t fromVariant(const QVariant &value, int depth, QString *error)
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
            plist_t item = fromVariant(it.value(), depth + 1, error);
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
            plist_t item = fromVariant(element, depth + 1, error);
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
        const qint64 ms = referenceDate().msecsTo(value.toDateTime());
        const qint64 seconds = ms >= 0 ? ms / 1000 : -((-ms + 999) / 1000);
        const qint64 micro = (ms - seconds * 1000) * 1000;
        return plist_new_date(int32_t(seconds), int32_t(micro));
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
    plist_t root = nullptr;
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
    PlistPtr root(fromVariant(value, 0, errorString));
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
