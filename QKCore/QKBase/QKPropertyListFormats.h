#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QVariant>

#include <optional>

// What QKPropertyList's XML and binary readers and writers share. Both formats are read and
// written here rather than through libplist: its readers recurse once per nesting level (a
// deep file overflows the stack before any limit can apply), its XML reader is quadratic in
// the entity references of a string, and it invents values for integers, dates and data it
// cannot read.
namespace QKPropertyListFormats {

// Deeper than any real file, shallow enough for the stack of any thread.
constexpr int maximumDepth = 512;

// Far beyond any real date, yet safe to turn into milliseconds.
constexpr double maximumDateSeconds = 1e13;

// What a QVariant is stored as; both writers share this reading of Qt's types.
enum class Kind { Dict, Array, Boolean, Integer, Unsigned, Real, String, Data, Date, Unstorable };

// Property-list dates count seconds from 1 January 2001, UTC.
const QDateTime &referenceDate();
// Whole seconds of @p msecs, rounded down also before the reference date.
qint64 floorSeconds(qint64 msecs);
void setError(QString *error, const QString &message);
Kind kindOf(const QVariant &value);
QString unstorableError(const QVariant &value);
// Milliseconds from the reference date; nothing for an invalid or absurd date.
std::optional<qint64> dateMSecs(const QVariant &value, QString *error);
QVariant dateFromSeconds(double seconds);

QVariant readXml(const QByteArray &data, QString *error);
QByteArray writeXml(const QVariant &value, QString *error);
QByteArray writeXmlElement(const QVariant &value, int depth, QString *error);
QByteArray xmlDocument(const QByteArray &rootElement);
QVariant readBinary(const QByteArray &data, QString *error);
QByteArray writeBinary(const QVariant &value, QString *error);

} // namespace QKPropertyListFormats
