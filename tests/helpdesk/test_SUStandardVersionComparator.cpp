#include "SUStandardVersionComparator.h"

#include <QStringList>

#include <gtest/gtest.h>

namespace {

/** Checks rows "a < b" (a is older) and "a = b" (the same version) in both directions. */
void expectOrder(const QString &table)
{
    const SUStandardVersionComparator *comparator =
        SUStandardVersionComparator::defaultComparator();
    for (const QString &row : table.split("; ")) {
        const qsizetype at = row.indexOf(QLatin1String(" < ")) >= 0
                                 ? row.indexOf(QLatin1String(" < "))
                                 : row.indexOf(QLatin1String(" = "));
        ASSERT_GE(at, 0) << row.toStdString();
        const QString a = row.left(at);
        const QString b = row.mid(at + 3);
        const int order = row.at(at + 1) == u'<' ? SUStandardVersionComparator::OrderedAscending
                                                 : SUStandardVersionComparator::OrderedSame;
        EXPECT_EQ(comparator->compareVersion(a, b), order) << row.toStdString();
        EXPECT_EQ(comparator->compareVersion(b, a), -order) << row.toStdString();
    }
}

} // namespace

TEST(SUStandardVersionComparator, ordersNumbersOfAnyLengthAndCountsMissingComponentsAsZero)
{
    expectOrder("1.0 < 1.1; 1.0 = 1.0; 1.1 < 2.0; 0.0.1 < 0.1; 0.1 < 0.1.2; 1.9 < 1.10; "
                "1.0 = 1.0.0; 1 = 1.0.0.0; 2.1 = 2.1.0; 2 = 2.0; 1 < 1.4.8; 1.4 < 1.4.8; "
                "1.2.3 < 2; 1.2.3 < 2.3; 1.01 = 1.1; 2501 = 02501; 2400 < 2501; 999 < 1000; "
                "2.0.0.2429 < 2.0.0.2430; 1.1.1.1818 < 2.0.0.2430; 1.1.1.1818 = 1.1.1.1818.0; "
                "201210251627 < 201211051041; 201210251627 = 201210251627.0; "
                "9223372036854775807 < 9223372036854775808; "
                "18446744073709551615 < 18446744073709551616");
    EXPECT_EQ(SUStandardVersionComparator::defaultComparator()->compareVersion("", ""),
              SUStandardVersionComparator::OrderedSame);
}

TEST(SUStandardVersionComparator, ordersPreReleasesBeforeTheirRelease)
{
    expectOrder("1.0a1 < 1.0b1; 1.0b1 < 1.0b2; 1.0b2 < 1.0rc1; 1.0rc1 < 1.0; 1.0b1 < 1.0; "
                "0.9 < 1.0a1; 1.0b < 1.0b2; 1.0b9 < 1.0b10; 1.0b10 < 1.0b11; 1.0rc < 1.0; "
                "1.0b < 1.0; 1.0pre1 < 1.0; 1.4.8b < 1.4.8; 2.5b1 < 2.5; 1.5.5 < 1.5.6a1; "
                "1.1.0b1 < 1.1.0b2; 1.1.1b2 < 1.1.2b1; 1.1.1b2 < 1.1.2a1; 1.0a < 1.0.1; "
                "1.a < 1.1; 1.0.0a < 1.0; 1.0 beta < 1.0; 1.0 alpha < 1.0 beta; "
                "1.0pre1 = 1.0.0pre1; 1.0b1.0 = 1.0b1; 3.1b2 = 3.1b2");
}

TEST(SUStandardVersionComparator, comparesBuildNumbersAfterTheVersionAndIgnoresDashedTags)
{
    expectOrder("1.0 (1234) < 1.0 (1235); 1.0b1 (1234) < 1.0 (1234); "
                "1.0b5 (1234) < 1.0b5 (1235); 1.0b5 (1234) < 1.0.1b5 (1234); "
                "1.0.1b5 (1234) < 1.0.1b6 (1234); 3.3 (5847) < 3.3.1b1 (5902); "
                "3.3 (5847) = 3.3.0 (5847); 3.3b1 (5902) = 3.3.0b1 (5902); "
                "1.0 (1234) = 1.0 [1234]; 1.0_1 < 1.0.1; "
                "1.5.5-335d3e2 < 1.5.6-b252311; 1.5.5-335d3e2 = 1.5.5-a655360; "
                "1.5-335d3e2 = 1.5.0-335d3e2; 1.0-beta < 1.0.1");
}
