#include "SUStandardVersionComparator.h"

#include <QList>
#include <QString>

namespace {

enum class PartType { Number, String, Period, Separator };

struct Part
{
    PartType type;
    QString text; // a number's digits in ASCII
};

PartType typeOf(QChar character)
{
    if (character.isDigit())
        return PartType::Number;
    if (character == u'.')
        return PartType::Period;
    if (character.isLetterOrNumber() || character.isMark())
        return PartType::String;
    return PartType::Separator;
}

/**
 * Runs of digits, of letters and of other separators; every period is a part of its own,
 * because periods join the numbers of a version. A dash ends the compared part: what follows
 * it is a build's tag (a commit hash, a build count), which says nothing about the order.
 */
QList<Part> splitVersion(const QString &version)
{
    QList<Part> parts;
    for (const QChar character : version) {
        if (character == u'-')
            break;
        const PartType type = typeOf(character);
        const QChar stored =
            type == PartType::Number ? QChar(u'0' + character.digitValue()) : character;
        if (parts.isEmpty() || parts.last().type != type || type == PartType::Period)
            parts.append({type, QString()});
        parts.last().text += stored;
    }
    return parts;
}

/** Compares digit runs of any length: longer without leading zeros is larger. */
int compareNumbers(const QString &a, const QString &b)
{
    auto significant = [](const QString &digits) {
        qsizetype start = 0;
        while (start < digits.size() - 1 && digits.at(start) == u'0')
            ++start;
        return QStringView(digits).mid(start);
    };
    const QStringView left = significant(a);
    const QStringView right = significant(b);
    if (left.size() != right.size())
        return left.size() < right.size() ? -1 : 1;
    return left.compare(right);
}

bool isZero(const QString &digits)
{
    return compareNumbers(digits, QStringLiteral("0")) == 0;
}

bool isSeparator(PartType type)
{
    return type == PartType::Period || type == PartType::Separator;
}

/** Parts of the same kind compare by value (separators all alike); otherwise letters, which
 *  mark a pre-release, lose to anything, and a number beats a separator. */
int compareParts(const Part &a, const Part &b)
{
    if (isSeparator(a.type) && isSeparator(b.type))
        return 0;
    if (a.type == b.type)
        return a.type == PartType::Number ? compareNumbers(a.text, b.text) : a.text.compare(b.text);
    if (a.type == PartType::String)
        return -1;
    if (b.type == PartType::String)
        return 1;
    return a.type == PartType::Number ? 1 : -1;
}

/** True when parts[index] is a period with a number after it: a further component. */
bool continuesNumber(const QList<Part> &parts, qsizetype index)
{
    return index + 1 < parts.size() && parts.at(index).type == PartType::Period &&
           parts.at(index + 1).type == PartType::Number;
}

SUStandardVersionComparator::ComparisonResult sign(int value)
{
    if (value < 0)
        return SUStandardVersionComparator::OrderedAscending;
    return value > 0 ? SUStandardVersionComparator::OrderedDescending
                     : SUStandardVersionComparator::OrderedSame;
}

/** The order decided by what the longer version has left: letters make it older, a number
 *  newer; separators alone change nothing. */
int compareRest(const QList<Part> &rest, bool restIsA)
{
    for (const Part &part : rest) {
        if (isSeparator(part.type))
            continue;
        const bool longerIsNewer = part.type == PartType::Number;
        return longerIsNewer == restIsA ? 1 : -1;
    }
    return 0;
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
    const QList<Part> partsA = splitVersion(versionA);
    const QList<Part> partsB = splitVersion(versionB);
    qsizetype a = 0;
    qsizetype b = 0;
    bool afterNumbers = false;
    while (true) {
        // Where one version stops listing components ("1.5" against "1.5.0"), it has a 0.
        const bool moreA = afterNumbers && continuesNumber(partsA, a);
        const bool moreB = afterNumbers && continuesNumber(partsB, b);
        if (moreA != moreB) {
            const QString &digits = moreA ? partsA.at(a + 1).text : partsB.at(b + 1).text;
            if (!isZero(digits))
                return moreA ? OrderedDescending : OrderedAscending;
            (moreA ? a : b) += 2;
            continue;
        }
        if (a == partsA.size() || b == partsB.size())
            break;
        const Part &partA = partsA.at(a++);
        const Part &partB = partsB.at(b++);
        if (const int order = compareParts(partA, partB))
            return sign(order);
        afterNumbers = partA.type == PartType::Number;
    }
    if (a < partsA.size())
        return sign(compareRest(partsA.mid(a), true));
    return sign(compareRest(partsB.mid(b), false));
}
