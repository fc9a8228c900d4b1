#include "PanesTestSupport.h"
#include "QKHelpDeskDates.h"
#include "QKHelpDeskDocumentation.h"
#include "QKHelpDeskSoftwareUpdate.h"

#include <QKUserDefaults.h>

#include <gtest/gtest.h>

using namespace PanesTest;

namespace {
const QString Description = QKHelpDeskDates::DescriptionFormat;
const QString Published = QKHelpDeskDocumentation::PublishedCastFormat;
} // namespace

TEST(QKHelpDeskDates, formatsInTheLocalZoneAndReadsOnlyWholeRealDates)
{
    enum Direction { BothWays, ReadOnly };
    const struct
    {
        QDateTime date; // invalid: not a date
        QString format, text;
        Direction direction;
    } cases[] = {
        // The panes show the other formats; midnight is "12 AM".
        {utc({2024, 1, 1}, {5, 0}), QKHelpDeskSoftwareUpdate::LastCheckFormat, "1/1/24 12:00 AM",
         BothWays},
        // The two 1:30 of the night the clocks go back differ only in their offsets.
        {utc({2024, 11, 3}, {5, 30, 1}), Description, "2024-11-03 01:30:01 -0400", BothWays},
        {utc({2024, 11, 3}, {6, 30, 1}), Description, "2024-11-03 01:30:01 -0500", BothWays},
        // The cast's 12-hour clock has no half of the day: 12 is the first hour.
        {utc({2023, 10, 2}, {2, 45, 30}), Published, "mon, 02 oct 2023 12:15:30 -0230", ReadOnly},
        {utc({2024, 7, 4}, {12, 0}), "%Y-%m-%d %H:%M:%S", "2024-07-04 08:00:00", ReadOnly},
        {{}, Description, "yesterday", ReadOnly},
        {{}, Description, "2024-03-10 14:00:00", ReadOnly},
        {{}, Description, "2024-03-10 14:00:00 -0500 ", ReadOnly},
        {{}, Description, "2024-02-30 14:00:00 -0500", ReadOnly},
        {{}, Description, "2024-03-10 24:00:00 -0500", ReadOnly},
        {{}, Description, "24-03-10 14:00:00 -0500", ReadOnly},
        {{}, Published, "Sat, 02 Mar 2024 13:05:00 +0000", ReadOnly},
        {{}, Published, "Sat, 02 Mrz 2024 04:05:00 +0000", ReadOnly},
        {{}, Published, "2024-03-02T16:05:00+00:00", ReadOnly},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text.toStdString());
        // All invalid dates compare equal.
        EXPECT_EQ(QKHelpDeskDates::dateWithCalendarFormat(c.text, c.format), c.date);
        if (c.direction == BothWays) {
            EXPECT_EQ(QKHelpDeskDates::stringWithCalendarFormat(c.date, c.format), c.text);
        }
    }
    EXPECT_EQ(QKHelpDeskDates::stringWithCalendarFormat(utc({2024, 1, 20}, {10, 0}), "100%% %H"),
              "100% 05");
    EXPECT_EQ(QKHelpDeskDates::stringWithCalendarFormat(QDateTime(), Description), "");
}

TEST(QKHelpDeskDates, storedDatesFallBackWhenMissingOrUnreadable)
{
    const QDateTime reference = QKHelpDeskDates::referenceDate();
    EXPECT_EQ(reference, utc({2001, 1, 1}, {0, 0}));
    // Missing and text dates are read where the panes decide on their alerts.
    const std::pair<QVariant, QDateTime> cases[] = {
        {utc({2024, 6, 25}, {9, 30, 1}), utc({2024, 6, 25}, {9, 30, 1})},
        {"last Tuesday", reference},
        {QVariantList{1, 2}, reference},
    };
    for (const auto &[stored, date] : cases) {
        QKUserDefaults::standardUserDefaults()->setObject(stored, "Last Tutorial Check");
        EXPECT_EQ(QKHelpDeskDates::storedDate("Last Tutorial Check", reference), date);
    }
    EXPECT_TRUE(logText().contains(
        "the stored date \"last Tuesday\" of \"Last Tutorial Check\" is not a date"));
}
