#include "QKPropertyListFormats.h"

#include <QTimeZone>

#include <cmath>

namespace QKPropertyListFormats {

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

} // namespace QKPropertyListFormats
