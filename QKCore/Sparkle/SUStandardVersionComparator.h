#pragma once

#include "QKUtilitiesGlobal.h"

class QString;

/**
 * Orders version strings the way the update framework does, so that "1.0a1" < "1.0b1" <
 * "1.0b2" < "1.0rc1" < "1.0" < "1.0.1".
 *
 * A version is split into runs of digits, runs of letters, periods and runs of other
 * separators (spaces, brackets, underscores), and the runs are compared pairwise: digits as
 * unsigned numbers of any length, letters as text (case-sensitive), separators as alike. Where
 * the kinds differ, letters lose to anything ("1.0b1" < "1.0 (1234)") and a number beats a
 * separator. A component left out counts as 0 ("1.5" == "1.5.0", "3.3 (5847)" == "3.3.0
 * (5847)", "1.0pre1" == "1.0.0pre1"). When one version runs out, letters in the rest make it
 * older ("1.0b" < "1.0", "1.0 beta" < "1.0"), a number newer, separators nothing. A dash and
 * everything after it are not compared ("1.5.5-335d3e2" == "1.5.5-a655360").
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
