#include "QKHelpDeskDates.h"

#include <QKApplicationLog.h>
#include <QKUserDefaults.h>

#include <QLocale>
#include <QTimeZone>

#include <optional>

namespace {

QString number(int value, int width)
{
    return QStringLiteral("%1").arg(value, width, 10, QLatin1Char('0'));
}

QString offsetText(int seconds)
{
    const int minutes = qAbs(seconds) / 60;
    return (seconds < 0 ? QStringLiteral("-") : QStringLiteral("+")) + number(minutes / 60, 2) +
           number(minutes % 60, 2);
}

/** Reads a format one piece at a time: literal characters and %-specifiers with their
 *  optional "1" (no leading zero) flag. */
struct FormatReader
{
    const QString &format;
    qsizetype at = 0;

    bool atEnd() const { return at >= format.size(); }
    /** The next specifier letter (0 for a literal, read into @p literal). */
    QChar next(bool *unpadded, QChar *literal)
    {
        *unpadded = false;
        if (format.at(at) != u'%' || at + 1 >= format.size()) {
            *literal = format.at(at++);
            return QChar();
        }
        ++at;
        if (format.at(at) == u'1' && at + 1 < format.size()) {
            *unpadded = true;
            ++at;
        }
        return format.at(at++);
    }
};

/** The fields a parse collects before they make a date. */
struct ParsedFields
{
    int year = 2001;
    int month = 1;
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
    bool twelveHour = false;
    std::optional<bool> pm;
    std::optional<int> offset;
};

/** Reads one to @p maxDigits digits (exactly @p maxDigits when @p exact). */
std::optional<int> readNumber(const QString &text, qsizetype *at, int maxDigits, bool exact)
{
    int value = 0;
    int digits = 0;
    while (*at < text.size() && digits < maxDigits && text.at(*at).isDigit()) {
        value = value * 10 + text.at(*at).digitValue();
        ++*at;
        ++digits;
    }
    if (digits == 0 || (exact && digits != maxDigits))
        return std::nullopt;
    return value;
}

/** Index (1-based) of the English abbreviation at @p at among day or month names. */
std::optional<int> readName(const QString &text, qsizetype *at, bool months)
{
    const QStringView word = QStringView(text).mid(*at, 3);
    const int count = months ? 12 : 7;
    for (int i = 1; i <= count; ++i) {
        const QString name = months ? QLocale::c().monthName(i, QLocale::ShortFormat)
                                    : QLocale::c().dayName(i, QLocale::ShortFormat);
        if (word.compare(name, Qt::CaseInsensitive) == 0) {
            *at += 3;
            return i;
        }
    }
    return std::nullopt;
}

std::optional<int> readOffset(const QString &text, qsizetype *at)
{
    if (*at >= text.size() || (text.at(*at) != u'+' && text.at(*at) != u'-'))
        return std::nullopt;
    const int sign = text.at((*at)++) == u'-' ? -1 : 1;
    const std::optional<int> hours = readNumber(text, at, 2, true);
    const std::optional<int> minutes = hours ? readNumber(text, at, 2, true) : std::nullopt;
    if (!minutes || *minutes > 59)
        return std::nullopt;
    return sign * (*hours * 3600 + *minutes * 60);
}

/** Reads the field of @p specifier; false when the text does not hold one. */
bool readField(QChar specifier, const QString &text, qsizetype *at, ParsedFields *fields)
{
    struct Numeric
    {
        char specifier;
        int ParsedFields::*field;
        int digits;
        bool exact;
    };
    static constexpr Numeric numerics[] = {
        {'d', &ParsedFields::day, 2, false},   {'e', &ParsedFields::day, 2, false},
        {'m', &ParsedFields::month, 2, false}, {'Y', &ParsedFields::year, 4, true},
        {'H', &ParsedFields::hour, 2, false},  {'M', &ParsedFields::minute, 2, false},
        {'S', &ParsedFields::second, 2, false}};
    for (const Numeric &numeric : numerics) {
        if (specifier != QLatin1Char(numeric.specifier))
            continue;
        const std::optional<int> value = readNumber(text, at, numeric.digits, numeric.exact);
        if (value)
            fields->*numeric.field = *value;
        return value.has_value();
    }

    std::optional<int> value;
    switch (specifier.unicode()) {
    case 'a':
        return readName(text, at, false).has_value();
    case 'b':
        value = readName(text, at, true);
        fields->month = value.value_or(0);
        return value.has_value();
    case 'y':
        value = readNumber(text, at, 2, true);
        fields->year = 2000 + value.value_or(0);
        return value.has_value();
    case 'I':
        value = readNumber(text, at, 2, false);
        fields->twelveHour = true;
        fields->hour = value.value_or(0) % 12;
        return value && *value >= 1 && *value <= 12;
    case 'p': {
        const QStringView marker = QStringView(text).mid(*at, 2);
        const bool am = marker.compare(u"AM", Qt::CaseInsensitive) == 0;
        if (!am && marker.compare(u"PM", Qt::CaseInsensitive) != 0)
            return false;
        *at += 2;
        fields->pm = !am;
        return true;
    }
    case 'z':
        fields->offset = readOffset(text, at);
        return fields->offset.has_value();
    case '%':
        return *at < text.size() && text.at((*at)++) == u'%';
    default:
        return false;
    }
}

QDateTime makeDate(const ParsedFields &fields)
{
    int hour = fields.hour;
    if (fields.pm.has_value() && fields.twelveHour && *fields.pm)
        hour += 12;
    const QDate date(fields.year, fields.month, fields.day);
    const QTime time(hour, fields.minute, fields.second);
    if (!date.isValid() || !time.isValid())
        return QDateTime();
    if (!fields.offset)
        return QDateTime(date, time);
    const QTimeZone zone(*fields.offset);
    return zone.isValid() ? QDateTime(date, time, zone) : QDateTime();
}

void warn(const QString &message)
{
    QKApplicationLog::sharedLog()->warning(QKApplicationLogContext(QStringLiteral("QKHelpDesk")),
                                           message);
}

} // namespace

const QString QKHelpDeskDates::DescriptionFormat = QStringLiteral("%Y-%m-%d %H:%M:%S %z");

QDateTime QKHelpDeskDates::referenceDate()
{
    return QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC);
}

QString QKHelpDeskDates::stringWithCalendarFormat(const QDateTime &date, const QString &format)
{
    if (!date.isValid())
        return QString();
    const QDateTime local = date.toLocalTime();
    const QDate day = local.date();
    const QTime time = local.time();
    const int hour12 = time.hour() % 12 == 0 ? 12 : time.hour() % 12;
    QString text;
    FormatReader reader{format};
    while (!reader.atEnd()) {
        bool unpadded = false;
        QChar literal;
        const QChar specifier = reader.next(&unpadded, &literal);
        const int width = unpadded ? 1 : 2;
        switch (specifier.unicode()) {
        case 0:
            text += literal;
            break;
        case 'a':
            text += QLocale::c().dayName(day.dayOfWeek(), QLocale::ShortFormat);
            break;
        case 'b':
            text += QLocale::c().monthName(day.month(), QLocale::ShortFormat);
            break;
        case 'd':
            text += number(day.day(), width);
            break;
        case 'e':
            text += number(day.day(), 1);
            break;
        case 'm':
            text += number(day.month(), width);
            break;
        case 'Y':
            text += number(day.year(), 4);
            break;
        case 'y':
            text += number(day.year() % 100, 2);
            break;
        case 'H':
            text += number(time.hour(), width);
            break;
        case 'I':
            text += number(hour12, width);
            break;
        case 'M':
            text += number(time.minute(), width);
            break;
        case 'S':
            text += number(time.second(), width);
            break;
        case 'p':
            text += time.hour() < 12 ? QStringLiteral("AM") : QStringLiteral("PM");
            break;
        case 'z':
            text += offsetText(local.offsetFromUtc());
            break;
        case '%':
            text += u'%';
            break;
        default:
            text += u'%' + QString(specifier);
            break;
        }
    }
    return text;
}

QDateTime QKHelpDeskDates::dateWithCalendarFormat(const QString &text, const QString &format)
{
    ParsedFields fields;
    qsizetype at = 0;
    FormatReader reader{format};
    while (!reader.atEnd()) {
        bool unpadded = false;
        QChar literal;
        const QChar specifier = reader.next(&unpadded, &literal);
        if (specifier.isNull()) {
            if (at >= text.size() || text.at(at) != literal)
                return QDateTime();
            ++at;
        } else if (!readField(specifier, text, &at, &fields)) {
            return QDateTime();
        }
    }
    return at == text.size() ? makeDate(fields) : QDateTime();
}

QString QKHelpDeskDates::description(const QDateTime &date)
{
    return stringWithCalendarFormat(date, DescriptionFormat);
}

QDateTime QKHelpDeskDates::storedDate(const QString &key, const QDateTime &fallback)
{
    const QVariant value = QKUserDefaults::standardUserDefaults()->objectForKey(key);
    if (!value.isValid())
        return fallback;
    if (value.typeId() == QMetaType::QDateTime && value.toDateTime().isValid())
        return value.toDateTime();
    const QDateTime date = dateWithCalendarFormat(value.toString(), DescriptionFormat);
    if (date.isValid())
        return date;
    warn(QStringLiteral("the stored date \"%1\" of \"%2\" is not a date")
             .arg(value.toString(), key));
    return fallback;
}
