#include "SUStandardVersionComparator.h"

#include <QStringList>

#include <gtest/gtest.h>

TEST(SUStandardVersionComparator, ordersPreReleasesReleasesPatchLevelsAndLongNumbers)
{
    // "a < b": a is older; "a = b": the same version. A number beats letters, trailing letters
    // after zeros still mark a pre-release, numbers may pass 64 bits, and trailing or leading
    // zeros do not count.
    const QString table =
        "1.0a1 < 1.0b1; 1.0b1 < 1.0b2; 1.0b2 < 1.0rc1; 1.0rc1 < 1.0; 1.0 < 1.0.1; 1.0.1 < 1.1; "
        "1.9 < 1.10; 2.5b1 < 2.5; 2.4.2 < 3.0; 1.0a < 1.0.1; 1.a < 1.1; 1.0-beta < 1.0.1; "
        "1.0.0a < 1.0; 2400 < 2501; 999 < 1000; 9223372036854775807 < 9223372036854775808; "
        "18446744073709551615 < 18446744073709551616; 1.0 = 1.0; 1.0 = 1.0.0; 1 = 1.0.0.0; "
        "1.01 = 1.1; 2501 = 02501; 1.0b1 = 1.0b1; 3.1b2 = 3.1b2";
    const SUStandardVersionComparator *comparator =
        SUStandardVersionComparator::defaultComparator();
    for (const QString &row : table.split("; ")) {
        const QStringList parts = row.split(' ');
        const int order = parts[1] == "<" ? SUStandardVersionComparator::OrderedAscending
                                          : SUStandardVersionComparator::OrderedSame;
        EXPECT_EQ(comparator->compareVersion(parts[0], parts[2]), order) << row.toStdString();
        EXPECT_EQ(comparator->compareVersion(parts[2], parts[0]), -order) << row.toStdString();
    }
    EXPECT_EQ(comparator->compareVersion("", ""), SUStandardVersionComparator::OrderedSame);
}
