#pragma once

#include <QDateTime>
#include <QString>

/**
 * The date forms the support site speaks. The sample data holds ISO 8601 dates with a zone
 * offset; each reply uses the form its reader parses, always in the English C locale and
 * in the zone offset the date was written with.
 */
namespace SiteDates {

/** Parses an ISO 8601 date with an offset ("2024-03-02T16:05:00+00:00"); invalid if it is not one.
 */
QDateTime parse(const QString &iso);

/** RFC 822 for RSS: "Sat, 02 Mar 2024 16:05:00 +0000". */
QString rfc822(const QDateTime &date);

/** The manual cast's form "%a, %d %b %Y %I:%M:%S %z": "Sat, 02 Mar 2024 04:05:00 +0000". */
QString twelveHour(const QDateTime &date);

/** The property-list text form "2024-03-02 16:05:00 +0000". */
QString plainText(const QDateTime &date);

/** The zone offset as "+HHMM" or "-HHMM". */
QString offset(const QDateTime &date);

} // namespace SiteDates
