#pragma once

#include "QKUtilitiesGlobal.h"

class QString;

/**
 * Orders version strings the way the update framework does, so that "1.0a1" < "1.0b1" <
 * "1.0b2" < "1.0rc1" < "1.0" < "1.0.1".
 *
 * A version is split into runs of digits, runs of letters and single separators (dots,
 * dashes, spaces and other punctuation), and the runs are compared pairwise: digits as
 * unsigned numbers of any length, letters as text (case-sensitive), and where the kinds
 * differ a number beats letters and a separator beats letters ("1.0.1" > "1.0a"). When one
 * version runs out, trailing zeros and separators of the other count for nothing ("1.0" ==
 * "1.0.0"); letters there make it older ("1.0b1" < "1.0"), a non-zero number newer.
 */
class QKUTILITIES_EXPORT SUStandardVersionComparator
{
public:
    enum ComparisonResult { OrderedAscending = -1, OrderedSame = 0, OrderedDescending = 1 };

    /** The shared comparator; it holds no state. */
    static const SUStandardVersionComparator *defaultComparator();

    /** OrderedAscending when @p versionA is older than @p versionB, OrderedDescending when
     *  it is newer, OrderedSame when they name the same version. */
    ComparisonResult compareVersion(const QString &versionA, const QString &versionB) const;
};
