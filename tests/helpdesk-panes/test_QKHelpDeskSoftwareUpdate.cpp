#include "PanesTestSupport.h"
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

namespace {

struct Controls
{
    explicit Controls(QKHelpDeskSoftwareUpdate *pane)
        : startup(pane->findChild<QCheckBox *>("checkAtStartupButton")),
          interval(pane->findChild<QCheckBox *>("checkIntervalButton")),
          popup(pane->findChild<QComboBox *>("checkIntervalPopup")),
          lastCheck(pane->findChild<QLabel *>("lastCheckText"))
    {}
    QCheckBox *startup;
    QCheckBox *interval;
    QComboBox *popup;
    QLabel *lastCheck;
};

} // namespace

TEST(QKHelpDeskSoftwareUpdate, controlsShowTheStoredSettings)
{
    constexpr int anyIndex = -2;
    struct Case
    {
        QVariant startup, interval, lastCheck;
        bool startupBox, intervalBox;
        int popupIndex;
        QString lastCheckText;
    };
    const Case cases[] = {
        {true, 86400, utc({2009, 3, 7}, {21, 5}), true, true, 1, "3/7/09 4:05 PM"},
        {false, 0, {}, false, false, anyIndex, "Never"},
        {{}, 3600, "2024-07-04 08:00:00 -0400", false, true, 0, "7/4/24 8:00 AM"},
        // An interval the menu does not offer selects nothing.
        {false, 1234, {}, false, true, -1, "Never"},
        {true, 2629800, "yesterday", true, true, 3, "Never"},
    };
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    for (const Case &c : cases) {
        defaults->setObject(c.startup, SUCheckAtStartupKey);
        defaults->setObject(c.interval, SUScheduledCheckIntervalKey);
        defaults->setObject(c.lastCheck, SULastCheckTimeKey);
        QKHelpDeskSoftwareUpdate pane;
        pane.awakeFromNib();
        const Controls controls(&pane);
        EXPECT_EQ(controls.startup->isChecked(), c.startupBox);
        EXPECT_EQ(controls.interval->isChecked(), c.intervalBox);
        if (c.popupIndex != anyIndex) {
            EXPECT_EQ(controls.popup->currentIndex(), c.popupIndex);
        }
        EXPECT_EQ(controls.lastCheck->text(), c.lastCheckText);
    }
    EXPECT_TRUE(
        HelpDeskTest::logText().contains("\"yesterday\" of \"SULastCheckTime\" is not a date"));
}

TEST(QKHelpDeskSoftwareUpdate, changesAreStoredAndRescheduleTheUpdater)
{
    struct Case
    {
        bool startupBox, intervalBox;
        int popupIndex;
        bool storedStartup;
        qint64 storedInterval;
    };
    const Case cases[] = {
        {true, true, 2, true, 604800},
        {false, true, 0, false, 3600},
        {true, false, 3, true, 0}, // the menu does not count while the box is off
        {false, true, -1, false, 0},
    };
    QKHelpDeskSoftwareUpdate pane;
    pane.setHelpDesk(HelpDeskTest::startHelpDesk());
    pane.awakeFromNib();
    const Controls controls(&pane);
    const QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    for (const Case &c : cases) {
        controls.popup->setCurrentIndex(c.popupIndex);
        emit controls.popup->activated(c.popupIndex);
        // Clicks toggle the boxes into the wanted state, each one an action.
        controls.startup->setChecked(!c.startupBox);
        controls.startup->click();
        controls.interval->setChecked(!c.intervalBox);
        controls.interval->click();
        EXPECT_EQ(defaults->boolForKey(SUCheckAtStartupKey), c.storedStartup);
        EXPECT_EQ(defaults->integerForKey(SUScheduledCheckIntervalKey), c.storedInterval);
        EXPECT_EQ(pane.helpDesk()->sparkle()->scheduledCheckInterval(), double(c.storedInterval));
    }
}

TEST(QKHelpDeskSoftwareUpdate, checkNowShowsTheTimeOfTheClickEvenWhenTheCheckFails)
{
    QKHelpDeskDates::setClock([] { return utc({2024, 7, 4}, {20, 30, 59}); });
    QKHelpDesk *helpDesk = openWithoutSite("Software Update");
    ASSERT_NE(helpDesk, nullptr);
    auto *pane = paneOf<QKHelpDeskSoftwareUpdate>(helpDesk);
    ASSERT_EQ(Controls(pane).lastCheck->text(), "Never");

    QSignalSpy checked(helpDesk->sparkle(), &SUUpdater::checkFinished);
    QKHelpDesk::openWindow("Check for Updates");
    EXPECT_EQ(Controls(pane).lastCheck->text(), "7/4/24 4:30 PM");
    ASSERT_TRUE(checked.wait(30000));
    EXPECT_FALSE(checked.at(0).at(0).toBool()) << "no feed was read";
    EXPECT_EQ(Controls(pane).lastCheck->text(), "7/4/24 4:30 PM");
    QKHelpDeskDates::setClock({});
}
