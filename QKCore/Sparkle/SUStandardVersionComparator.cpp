#include "SUStandardVersionComparator.h"

#include <QString>
#include <QStringList>

namespace {

enum class PartType { Number, String, Separator };

PartType typeOf(QChar character)
{
    if (character.isDigit())
        return PartType::Number;
    if (character.isSpace() || character.isPunct())
        return PartType::Separator;
    return PartType::String;
}

PartType typeOf(const QString &part)
{
    return typeOf(part.at(0));
}

/** Runs of digits and of letters; every separator is a part of its own. */
QStringList splitVersion(const QString &version)
{
    QStringList parts;
    QString current;
    PartType currentType = PartType::Separator;
    for (const QChar character : version) {
        const PartType type = typeOf(character);
        if (!current.isEmpty() && (type != currentType || type == PartType::Separator)) {
            parts << current;
            current.clear();
        }
        current += character;
        currentType = type;
    }
    if (!current.isEmpty())
        parts << current;
    return parts;
}

/** Compares digit runs of any length: longer without leading zeros is larger. */
int compareNumbers(const QString &a, const QString &b)
{
    auto significant = [](const QString &digits) {
        qsizetype start = 0;
        while (start < digits.size() - 1 && digits.at(start) == u'0')
            ++start;
        return digits.mid(start);
    };
    const QString left = significant(a);
    const QString right = significant(b);
    if (left.size() != right.size())
        return left.size() < right.size() ? -1 : 1;
    return left.compare(right);
}

bool isZero(const QString &part)
{
    for (const QChar character : part) {
        if (character != u'0')
            return false;
    }
    return true;
}

SUStandardVersionComparator::ComparisonResult sign(int value)
{
    if (value < 0)
        return SUStandardVersionComparator::OrderedAscending;
    return value > 0 ? SUStandardVersionComparator::OrderedDescending
                     : SUStandardVersionComparator::OrderedSame;
}

} // namespace

const SUStandardVersionComparator *SUStandardVersionComparator::defaultComparator()
{
    static const SUStandardVersionComparator comparator;
    return &comparator;
}

SUStandardVersionComparator::ComparisonResult
SUStandardVersionComparator::compareVersion(const QString &versionA, const QString &versionB) const
{
    const QStringList partsA = splitVersion(versionA);
    const QStringList partsB = splitVersion(versionB);
    const qsizetype common = qMin(partsA.size(), partsB.size());
    for (qsizetype i = 0; i < common; ++i) {
        const QString &a = partsA.at(i);
        const QString &b = partsB.at(i);
        const PartType typeA = typeOf(a);
        const PartType typeB = typeOf(b);
        if (typeA == typeB) {
            const int result = typeA == PartType::Number ? compareNumbers(a, b) : a.compare(b);
            if (result != 0)
                return sign(result);
            continue;
        }
        // Letters mark a pre-release, so anything else is newer; a number beats a separator.
        if (typeB == PartType::String || typeA == PartType::Number)
            return OrderedDescending;
        return OrderedAscending;
    }

    const bool aIsLonger = partsA.size() > partsB.size();
    const QStringList &rest = aIsLonger ? partsA : partsB;
    for (qsizetype i = common; i < rest.size(); ++i) {
        const QString &part = rest.at(i);
        const PartType type = typeOf(part);
        if (type == PartType::Separator || (type == PartType::Number && isZero(part)))
            continue;
        const bool longerIsNewer = type == PartType::Number;
        return longerIsNewer == aIsLonger ? OrderedDescending : OrderedAscending;
    }
    return OrderedSame;
}
