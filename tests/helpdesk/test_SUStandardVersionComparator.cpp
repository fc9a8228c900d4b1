#include "SUStandardVersionComparator.h"

#include <QString>

#include <gtest/gtest.h>

namespace {

struct Ordering
{
    const char *older;
    const char *newer;
};

int compare(const char *a, const char *b)
{
    return SUStandardVersionComparator::defaultComparator()->compareVersion(QString::fromUtf8(a),
                                                                            QString::fromUtf8(b));
}

} // namespace

TEST(SUStandardVersionComparator, ordersPreReleasesReleasesAndPatchLevels)
{
    const Ordering table[] = {
        {"1.0a1", "1.0b1"},
        {"1.0b1", "1.0b2"},
        {"1.0b2", "1.0rc1"},
        {"1.0rc1", "1.0"},
        {"1.0", "1.0.1"},
        {"1.0.1", "1.1"},
        {"1.9", "1.10"},
        {"2.5b1", "2.5"},
        {"2.4.2", "3.0"},
        {"1.0a", "1.0.1"}, // a number beats letters
        {"1.a", "1.1"},
        {"1.0.0a", "1.0"}, // trailing letters after zeros still mark a pre-release
        {"2400", "2501"},  // build numbers
        {"999", "1000"},
        {"9223372036854775807", "9223372036854775808"}, // beyond 64 bits
        {"18446744073709551615", "18446744073709551616"},
        {"1.0-beta", "1.0.1"},
    };
    for (const Ordering &row : table) {
        EXPECT_EQ(compare(row.older, row.newer), SUStandardVersionComparator::OrderedAscending)
            << row.older << " < " << row.newer;
        EXPECT_EQ(compare(row.newer, row.older), SUStandardVersionComparator::OrderedDescending)
            << row.newer << " > " << row.older;
    }
}

TEST(SUStandardVersionComparator, equalVersionsIgnoreTrailingZerosAndLeadingZeros)
{
    const Ordering table[] = {
        {"1.0", "1.0"},    {"1.0", "1.0.0"},   {"1", "1.0.0.0"}, {"1.01", "1.1"},
        {"2501", "02501"}, {"1.0b1", "1.0b1"}, {"", ""},         {"3.1b2", "3.1b2"},
    };
    for (const Ordering &row : table) {
        EXPECT_EQ(compare(row.older, row.newer), SUStandardVersionComparator::OrderedSame)
            << row.older << " == " << row.newer;
        EXPECT_EQ(compare(row.newer, row.older), SUStandardVersionComparator::OrderedSame)
            << row.newer << " == " << row.older;
    }
}
