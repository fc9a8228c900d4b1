#include "HelpDeskTestSupport.h"
#include "QKHelpDeskProgressPanel.h"

#include <QMainWindow>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>

#include <gtest/gtest.h>

namespace {

/** A panel over a window of its own, on a clock the test moves. */
struct PanelFixture
{
    QMainWindow window;
    QKHelpDeskProgressPanel panel{&window};
    double now = 1000.0;

    PanelFixture()
    {
        window.show();
        panel.setClock([this] { return now; });
    }
    QProgressBar *bar() const { return panel.findChild<QProgressBar *>("progressProgressBar"); }
    QPushButton *cancelButton() const
    {
        return panel.findChild<QPushButton *>("progressCancelButton");
    }
};

} // namespace

TEST(QKHelpDeskProgressPanel, redrawsWaitForTheDeadlineWhichAdvancesFromItself)
{
    PanelFixture f;
    f.panel.openProgressPanel();
    ASSERT_TRUE(f.panel.isVisible());
    EXPECT_DOUBLE_EQ(f.panel.nextProgressUpdate(), 1000.5);

    // Within half a second of opening nothing is redrawn.
    f.now = 1000.1;
    EXPECT_EQ(f.panel.progressUpdate(0.1), QKHelpDeskProgressPanel::ContinuesResponse);
    f.now = 1000.49;
    EXPECT_EQ(f.panel.progressUpdate(0.2), QKHelpDeskProgressPanel::ContinuesResponse);
    EXPECT_EQ(f.panel.redrawCount(), 0);
    EXPECT_EQ(f.panel.progressValue(), 0.0);

    // The first call at the deadline redraws and moves it on by half a second.
    f.now = 1000.5;
    f.panel.progressUpdate(0.3);
    EXPECT_EQ(f.panel.redrawCount(), 1);
    EXPECT_NEAR(f.panel.progressValue(), 0.3, 0.001);
    EXPECT_DOUBLE_EQ(f.panel.nextProgressUpdate(), 1001.0);
    f.now = 1000.9;
    f.panel.progressUpdate(0.4);
    EXPECT_EQ(f.panel.redrawCount(), 1);
    EXPECT_NEAR(f.panel.progressValue(), 0.3, 0.001);

    // After a pause of two seconds the deadline catches up one step per call: the calls at
    // 1001.0, 1001.5, 1002.0, 1002.5 and 1003.0 are all due, the sixth is not.
    f.now = 1003.0;
    for (int call = 0; call < 6; ++call)
        f.panel.progressUpdate(0.5 + call * 0.05);
    EXPECT_EQ(f.panel.redrawCount(), 6);
    EXPECT_DOUBLE_EQ(f.panel.nextProgressUpdate(), 1003.5);
    EXPECT_NEAR(f.panel.progressValue(), 0.7, 0.001);

    // Unknown lengths give negative fractions; the bar stays at its minimum.
    f.now = 1003.5;
    f.panel.progressUpdate(-0.25);
    EXPECT_EQ(f.panel.progressValue(), 0.0);

    // Opening again keeps the session, its deadline and its title.
    f.panel.setProgressPanelTitle("Submitting request...");
    f.panel.openProgressPanel();
    EXPECT_DOUBLE_EQ(f.panel.nextProgressUpdate(), 1004.0);
    EXPECT_EQ(f.panel.progressPanelTitle(), "Submitting request...");
}

TEST(QKHelpDeskProgressPanel, cancelStopsTheSessionUntilItIsClosed)
{
    PanelFixture f;
    f.panel.setProgressCancelable(false);
    f.panel.openProgressPanel();
    QTest::keyClick(&f.panel, Qt::Key_Escape);
    EXPECT_EQ(f.panel.progressUpdate(0.1), QKHelpDeskProgressPanel::ContinuesResponse)
        << "escape cancels only a cancelable panel";
    f.panel.setProgressCancelable(true);
    QTest::mouseClick(f.cancelButton(), Qt::LeftButton);
    EXPECT_TRUE(f.panel.isCancelled());
    EXPECT_EQ(f.panel.progressUpdate(0.2), QKHelpDeskProgressPanel::StoppedResponse);
    EXPECT_EQ(f.panel.progressUpdate(0.3), QKHelpDeskProgressPanel::StoppedResponse);
    EXPECT_TRUE(f.panel.isVisible()) << "the caller closes the panel";

    f.panel.closeProgressPanel();
    EXPECT_FALSE(f.panel.isVisible());
    EXPECT_EQ(f.panel.progressUpdate(0.4), QKHelpDeskProgressPanel::AbortedResponse);

    // A new session starts afresh.
    f.panel.openProgressPanel();
    EXPECT_FALSE(f.panel.isCancelled());
    EXPECT_EQ(f.panel.progressUpdate(0.1), QKHelpDeskProgressPanel::ContinuesResponse);
    QTest::keyClick(&f.panel, Qt::Key_Escape);
    EXPECT_TRUE(f.panel.isVisible());
    EXPECT_EQ(f.panel.progressUpdate(0.2), QKHelpDeskProgressPanel::StoppedResponse);
}

TEST(QKHelpDeskProgressPanel, finalMessageShowsAFullBarThenClosesAfterTwoSeconds)
{
    PanelFixture f;
    f.panel.setProgressIsIndeterminate(true);
    f.panel.setProgressCancelable(true);
    f.panel.openProgressPanel();
    EXPECT_EQ(f.bar()->maximum(), 0) << "an indeterminate bar is Qt's busy indicator";

    f.panel.closeProgressPanelWithMessage("Request sent successfully!");
    EXPECT_TRUE(f.panel.isVisible());
    EXPECT_EQ(f.panel.progressPanelTitle(), "Request sent successfully!");
    EXPECT_FALSE(f.panel.progressIsIndeterminate());
    EXPECT_EQ(f.panel.progressValue(), 1.0);
    EXPECT_FALSE(f.panel.progressIsCancelable());
    QTest::qWait(1500);
    EXPECT_TRUE(f.panel.isVisible());
    EXPECT_TRUE(HelpDeskTest::waitUntil([&] { return !f.panel.isVisible(); }, 5000));
    EXPECT_EQ(f.panel.progressValue(), 0.0);
    EXPECT_FALSE(f.panel.isSessionRunning());
}

TEST(QKHelpDeskProgressPanel, withoutASessionNothingIsScheduledAndClosingResetsTheBar)
{
    PanelFixture f;
    f.now = 2000.0; // far past the (never set) deadline
    EXPECT_EQ(f.panel.progressUpdate(0.6), QKHelpDeskProgressPanel::AbortedResponse);
    EXPECT_NEAR(f.panel.progressValue(), 0.6, 0.001);
    f.panel.closeProgressPanel();
    EXPECT_EQ(f.panel.progressValue(), 0.0);

    f.panel.closeProgressPanelWithMessage("Submit failed!");
    EXPECT_NE(f.panel.progressPanelTitle(), "Submit failed!");
    // Opened right after, the panel must not be closed by a delayed close.
    f.panel.openProgressPanel();
    QTest::qWait(2500);
    EXPECT_TRUE(f.panel.isVisible());
    EXPECT_TRUE(f.panel.isSessionRunning());
}
