#pragma once

#include "QKUtilitiesGlobal.h"

#include <QDateTime>
#include <QString>

#include <functional>

/**
 * The help desk panes' clock and the date texts they read and write.
 *
 * Texts use calendar formats, a few strftime-like specifiers that are always English:
 * %a weekday and %b month abbreviation ("Tue", "Mar"), %d and %m two-digit day and month,
 * %e and %1m the same without a leading zero, %Y four-digit and %y two-digit year, %H the
 * 24-hour and %I the 12-hour hour, %1I without a leading zero, %M minutes, %S seconds,
 * %p "AM" or "PM", %z the zone offset "+HHMM", %% a percent sign.
 *
 * Dates are formatted in the local time zone. A text parsed without %z is local time; %I
 * without %p reads 12 as 0 (the hour is taken as it stands, without a half of the day).
 */
class QKUTILITIES_EXPORT QKHelpDeskDates
{
public:
    /** The stored text form of dates, "2009-03-07 16:05:00 -0500". */
    static const QString DescriptionFormat;

    /** 1 January 2001 00:00:00 UTC, what a missing last download or check counts as. */
    static QDateTime referenceDate();

    /** @p date in the local time zone written in @p format; empty for an invalid date. */
    static QString stringWithCalendarFormat(const QDateTime &date, const QString &format);
    /** The date @p text holds in @p format; invalid unless all of @p text matches and
     *  gives a real date and time. */
    static QDateTime dateWithCalendarFormat(const QString &text, const QString &format);

    /** @p date in the stored text form, in the local time zone. */
    static QString description(const QDateTime &date);
    /**
     * The date in the user default @p key: a date value, or text in the stored form. A
     * missing value gives @p fallback; so does one that is not a date, which is also logged.
     */
    static QDateTime storedDate(const QString &key, const QDateTime &fallback);
};
