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

QVariant QKPropertyListFormats::readBinary(const QByteArray &data, QString *error)
{
    return BinaryReader(data).read(error);
}

QByteArray QKPropertyListFormats::writeBinary(const QVariant &value, QString *error)
{
    return BinaryWriter().write(value, error);
}
