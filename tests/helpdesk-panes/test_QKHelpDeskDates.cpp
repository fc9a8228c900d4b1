#include "PanesTestSupport.h"
#include "QKClock.h"
#include "QKHelpDeskDates.h"
#include "QKHelpDeskDocumentation.h"
#include "QKHelpDeskSoftwareUpdate.h"

#include <QKUserDefaults.h>

#include <gtest/gtest.h>

using namespace PanesTest;

namespace {
const QString Description = QKHelpDeskDates::DescriptionFormat;
const QString Published = QKHelpDeskDocumentation::PublishedCastFormat;
const QString LastCheck = QKHelpDeskSoftwareUpdate::LastCheckFormat;
} // namespace

TEST(QKHelpDeskDates, formatsInTheLocalZoneAndReadsTheTextBack)
{
    struct Case
    {
        QDateTime date;
        QString format, text;
    };
    const Case cases[] = {
        {utc({2009, 3, 7}, {21, 5}), LastCheck, "3/7/09 4:05 PM"},
        {utc({2024, 1, 1}, {5, 0}), LastCheck, "1/1/24 12:00 AM"},
        {utc({2009, 3, 3}, {21, 5}), QKHelpDeskDocumentation::PublishedTextFormat,
         "Tue, Mar 03 2009 4:05 PM"},
        {utc({2024, 7, 4}, {12, 0, 9}), Description, "2024-07-04 08:00:09 -0400"},
        // The two 1:30 of the night the clocks go back differ only in their offsets.
        {utc({2024, 11, 3}, {5, 30, 1}), Description, "2024-11-03 01:30:01 -0400"},
        {utc({2024, 11, 3}, {6, 30, 1}), Description, "2024-11-03 01:30:01 -0500"},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(QKHelpDeskDates::stringWithCalendarFormat(c.date, c.format), c.text);
        EXPECT_EQ(QKHelpDeskDates::dateWithCalendarFormat(c.text, c.format), c.date)
            << c.text.toStdString();
    }
    EXPECT_EQ(QKHelpDeskDates::stringWithCalendarFormat(utc({2024, 1, 20}, {10, 0}), "100%% %H"),
              "100% 05");
    EXPECT_EQ(QKHelpDeskDates::stringWithCalendarFormat(QDateTime(), Description), "");
}

TEST(QKHelpDeskDates, parsesOnlyWholeRealDates)
{
    struct Case
    {
        QString text, format;
        QDateTime date; // invalid: not a date
    };
    const Case cases[] = {
        {"Sat, 02 Mar 2024 04:05:00 +0000", Published, utc({2024, 3, 2}, {4, 5})},
        // The cast's 12-hour clock has no half of the day: 12 is the first hour.
        {"mon, 02 oct 2023 12:15:30 -0230", Published, utc({2023, 10, 2}, {2, 45, 30})},
        {"2024-07-04 08:00:00", "%Y-%m-%d %H:%M:%S", utc({2024, 7, 4}, {12, 0})},
        {"yesterday", Description, {}},
        {"2024-03-10 14:00:00", Description, {}},
        {"2024-03-10 14:00:00 -0500 ", Description, {}},
        {"2024-02-30 14:00:00 -0500", Description, {}},
        {"2024-03-10 24:00:00 -0500", Description, {}},
        {"24-03-10 14:00:00 -0500", Description, {}},
        {"Sat, 02 Mar 2024 13:05:00 +0000", Published, {}},
        {"Sat, 02 Mrz 2024 04:05:00 +0000", Published, {}},
        {"2024-03-02T16:05:00+00:00", Published, {}},
    };
    for (const Case &c : cases) {
        const QDateTime parsed = QKHelpDeskDates::dateWithCalendarFormat(c.text, c.format);
        EXPECT_EQ(parsed.isValid(), c.date.isValid()) << c.text.toStdString();
        EXPECT_TRUE(!c.date.isValid() || parsed == c.date) << c.text.toStdString();
    }
}

TEST(QKHelpDeskDates, storedDatesFallBackWhenMissingOrUnreadable)
{
    const QDateTime reference = QKHelpDeskDates::referenceDate();
    EXPECT_EQ(reference, utc({2001, 1, 1}, {0, 0}));
    const std::pair<QVariant, QDateTime> cases[] = {
        {{}, reference},
        {"2024-06-25 05:30:00 -0400", utc({2024, 6, 25}, {9, 30})},
        {utc({2024, 6, 25}, {9, 30, 1}), utc({2024, 6, 25}, {9, 30, 1})},
        {"last Tuesday", reference},
        {QVariantList{1, 2}, reference},
    };
    for (const auto &[stored, date] : cases) {
        QKUserDefaults::standardUserDefaults()->setObject(stored, "Last Tutorial Check");
        EXPECT_EQ(QKHelpDeskDates::storedDate("Last Tutorial Check", reference), date);
    }
    EXPECT_TRUE(HelpDeskTest::logText().contains(
        "the stored date \"last Tuesday\" of \"Last Tutorial Check\" is not a date"));

    QKClock::setClock([] { return utc({2030, 1, 2}, {3, 4}); });
    EXPECT_EQ(QKClock::now(), utc({2030, 1, 2}, {3, 4}));
    QKClock::setClock({});
    EXPECT_LT(qAbs(QKClock::now().secsTo(QDateTime::currentDateTime())), 60);
}
