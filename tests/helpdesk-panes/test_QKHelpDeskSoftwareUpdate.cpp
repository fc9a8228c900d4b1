#include "PanesTestSupport.h"
#include "QKClock.h"
#include "QKHelpDeskDates.h"
#include "QKHelpDeskSoftwareUpdate.h"
#include "SUConstants.h"
#include "SUUpdater.h"

#include <QKUserDefaults.h>

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace PanesTest;

TEST(QKHelpDeskSoftwareUpdate, controlsShowTheStoredSettings)
{
    constexpr int anyIndex = -2;
    const struct
    {
        QVariant startup, interval, lastCheck;
        bool startupBox, intervalBox;
        int popupIndex;
        QString lastCheckText;
    } cases[] = {
        {true, 86400, utc({2009, 3, 7}, {21, 5}), true, true, 1, "3/7/09 4:05 PM"},
        {false, 0, {}, false, false, anyIndex, "Never"},
        {{}, 3600, "2024-07-04 08:00:00 -0400", false, true, 0, "7/4/24 8:00 AM"},
        // An interval the menu does not offer selects nothing.
        {false, 1234, {}, false, true, -1, "Never"},
        {true, 2629800, "yesterday", true, true, 3, "Never"},
    };
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    for (const auto &c : cases) {
        defaults->setObject(c.startup, SUCheckAtStartupKey);
        defaults->setObject(c.interval, SUScheduledCheckIntervalKey);
        defaults->setObject(c.lastCheck, SULastCheckTimeKey);
        QKHelpDeskSoftwareUpdate pane;
        pane.awakeFromNib();
        EXPECT_EQ(pane.findChild<QCheckBox *>("checkAtStartupButton")->isChecked(), c.startupBox);
        EXPECT_EQ(pane.findChild<QCheckBox *>("checkIntervalButton")->isChecked(), c.intervalBox);
        const int index = pane.findChild<QComboBox *>("checkIntervalPopup")->currentIndex();
        EXPECT_TRUE(c.popupIndex == anyIndex || index == c.popupIndex);
        EXPECT_EQ(pane.findChild<QLabel *>("lastCheckText")->text(), c.lastCheckText);
    }
}

TEST(QKHelpDeskSoftwareUpdate, changesRescheduleTheUpdaterAndCheckNowShowsTheClick)
{
    QKClock::setClock([] { return utc({2024, 7, 4}, {20, 30, 59}); });
    QKHelpDesk *helpDesk = openWithoutSite("Software Update");
    ASSERT_NE(helpDesk, nullptr);
    auto *pane = paneOf<QKHelpDeskSoftwareUpdate>(helpDesk);
    auto *startup = pane->findChild<QCheckBox *>("checkAtStartupButton");
    auto *interval = pane->findChild<QCheckBox *>("checkIntervalButton");
    auto *popup = pane->findChild<QComboBox *>("checkIntervalPopup");
    const QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();

    const struct
    {
        bool startupBox, intervalBox;
        int popupIndex;
        qint64 storedInterval;
    } cases[] = {
        {true, true, 2, 604800},
        {false, true, 0, 3600},
        {true, false, 3, 0}, // the menu does not count while the box is off
        {false, true, -1, 0},
    };
    for (const auto &c : cases) {
        popup->setCurrentIndex(c.popupIndex);
        emit popup->activated(c.popupIndex);
        // Clicks toggle the boxes into the wanted state, each one an action.
        startup->setChecked(!c.startupBox);
        startup->click();
        interval->setChecked(!c.intervalBox);
        interval->click();
        EXPECT_EQ(defaults->boolForKey(SUCheckAtStartupKey), c.startupBox);
        EXPECT_EQ(defaults->integerForKey(SUScheduledCheckIntervalKey), c.storedInterval);
        EXPECT_EQ(helpDesk->sparkle()->scheduledCheckInterval(), double(c.storedInterval));
    }

    // The check fails (there is no site), but the line keeps the time of the click.
    auto *lastCheck = pane->findChild<QLabel *>("lastCheckText");
    ASSERT_EQ(lastCheck->text(), "Never");
    QSignalSpy checked(helpDesk->sparkle(), &SUUpdater::checkFinished);
    QKHelpDesk::openWindow("Check for Updates");
    EXPECT_EQ(lastCheck->text(), "7/4/24 4:30 PM");
    ASSERT_TRUE(checked.wait(30000));
    EXPECT_FALSE(checked.at(0).at(0).toBool());
    EXPECT_EQ(lastCheck->text(), "7/4/24 4:30 PM");
}
