#include "SiteDates.h"

#include <QLocale>

QDateTime SiteDates::parse(const QString &iso)
{
    return QDateTime::fromString(iso, Qt::ISODate);
}

QString SiteDates::offset(const QDateTime &date)
{
    const int seconds = date.offsetFromUtc();
    const int minutes = qAbs(seconds) / 60;
    return QStringLiteral("%1%2%3")
        .arg(seconds < 0 ? QLatin1Char('-') : QLatin1Char('+'))
        .arg(minutes / 60, 2, 10, QLatin1Char('0'))
        .arg(minutes % 60, 2, 10, QLatin1Char('0'));
}

QString SiteDates::rfc822(const QDateTime &date)
{
    return QLocale::c().toString(date, QStringLiteral("ddd, dd MMM yyyy HH:mm:ss ")) + offset(date);
}

QString SiteDates::twelveHour(const QDateTime &date)
{
    // Qt's "hh" is a 24-hour field unless an AM/PM field follows, and this form has none.
    const int hour = date.time().hour() % 12 == 0 ? 12 : date.time().hour() % 12;
    return QLocale::c().toString(date, QStringLiteral("ddd, dd MMM yyyy ")) +
           QStringLiteral("%1").arg(hour, 2, 10, QLatin1Char('0')) +
           QLocale::c().toString(date, QStringLiteral(":mm:ss ")) + offset(date);
}

QString SiteDates::plainText(const QDateTime &date)
{
    return QLocale::c().toString(date, QStringLiteral("yyyy-MM-dd HH:mm:ss ")) + offset(date);
}
