#include "HelpDeskTestSupport.h"
#include "QKHelpDeskProgressPanel.h"

#include <QMainWindow>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>

#include <gtest/gtest.h>

namespace {

/** A panel over a window of its own, on a clock the test moves. */
class QKHelpDeskProgressPanelTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        window.show();
        panel.setClock([this] { return now; });
    }

    QMainWindow window;
    QKHelpDeskProgressPanel panel{&window};
    double now = 1000.0;
};

constexpr auto Continues = QKHelpDeskProgressPanel::ContinuesResponse;
constexpr auto Stopped = QKHelpDeskProgressPanel::StoppedResponse;
constexpr auto Aborted = QKHelpDeskProgressPanel::AbortedResponse;

} // namespace

TEST_F(QKHelpDeskProgressPanelTest, redrawsWaitForTheDeadlineWhichAdvancesFromItself)
{
    panel.openProgressPanel();
    ASSERT_TRUE(panel.isVisible());
    EXPECT_DOUBLE_EQ(panel.nextProgressUpdate(), 1000.5);
    // Nothing is redrawn within half a second of opening; each call at or past the deadline
    // redraws and moves it on by half a second, so after a pause of two seconds it catches
    // up one step per call. Unknown lengths give negative fractions: the bar's minimum.
    const struct
    {
        double now, fraction;
        int redraws;
        double value, next;
    } steps[] = {
        {1000.1, 0.1, 0, 0.0, 1000.5},   {1000.49, 0.2, 0, 0.0, 1000.5},
        {1000.5, 0.3, 1, 0.3, 1001.0},   {1000.9, 0.4, 1, 0.3, 1001.0},
        {1003.0, 0.5, 2, 0.5, 1001.5},   {1003.0, 0.55, 3, 0.55, 1002.0},
        {1003.0, 0.6, 4, 0.6, 1002.5},   {1003.0, 0.65, 5, 0.65, 1003.0},
        {1003.0, 0.7, 6, 0.7, 1003.5},   {1003.0, 0.75, 6, 0.7, 1003.5},
        {1003.5, -0.25, 7, 0.0, 1004.0},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(step.fraction);
        now = step.now;
        EXPECT_EQ(panel.progressUpdate(step.fraction), Continues);
        EXPECT_EQ(panel.redrawCount(), step.redraws);
        EXPECT_NEAR(panel.progressValue(), step.value, 0.001);
        EXPECT_DOUBLE_EQ(panel.nextProgressUpdate(), step.next);
    }

    // Opening again keeps the session, its deadline and its title.
    panel.setProgressPanelTitle("Submitting request...");
    panel.openProgressPanel();
    EXPECT_DOUBLE_EQ(panel.nextProgressUpdate(), 1004.0);
    EXPECT_EQ(panel.progressPanelTitle(), "Submitting request...");
}

TEST_F(QKHelpDeskProgressPanelTest, onlyAnOpenSessionContinuesAndACancelStopsItUntilItIsClosed)
{
    // Without a session the bar still follows, but the caller is told to give up.
    EXPECT_EQ(panel.progressUpdate(0.6), Aborted);
    EXPECT_NEAR(panel.progressValue(), 0.6, 0.001);
    panel.closeProgressPanel();
    EXPECT_EQ(panel.progressValue(), 0.0);

    panel.setProgressCancelable(false);
    panel.openProgressPanel();
    QTest::keyClick(&panel, Qt::Key_Escape);
    EXPECT_EQ(panel.progressUpdate(0.1), Continues) << "escape cancels only a cancelable panel";
    panel.setProgressCancelable(true);
    QTest::mouseClick(panel.findChild<QPushButton *>("progressCancelButton"), Qt::LeftButton);
    EXPECT_TRUE(panel.isCancelled());
    EXPECT_EQ(panel.progressUpdate(0.2), Stopped);
    EXPECT_EQ(panel.progressUpdate(0.3), Stopped);
    EXPECT_TRUE(panel.isVisible()) << "the caller closes the panel";

    panel.closeProgressPanel();
    EXPECT_FALSE(panel.isVisible());
    EXPECT_EQ(panel.progressUpdate(0.4), Aborted);

    // A new session starts afresh.
    panel.openProgressPanel();
    EXPECT_FALSE(panel.isCancelled());
    EXPECT_EQ(panel.progressUpdate(0.1), Continues);
    QTest::keyClick(&panel, Qt::Key_Escape);
    EXPECT_TRUE(panel.isVisible());
    EXPECT_EQ(panel.progressUpdate(0.2), Stopped);
}

TEST_F(QKHelpDeskProgressPanelTest, finalMessageShowsAFullBarThenClosesAfterTwoSeconds)
{
    panel.setProgressIsIndeterminate(true);
    panel.setProgressCancelable(true);
    panel.openProgressPanel();
    EXPECT_EQ(panel.findChild<QProgressBar *>("progressProgressBar")->maximum(), 0)
        << "an indeterminate bar is Qt's busy indicator";

    panel.closeProgressPanelWithMessage("Request sent successfully!");
    EXPECT_TRUE(panel.isVisible());
    EXPECT_EQ(panel.progressPanelTitle(), "Request sent successfully!");
    EXPECT_FALSE(panel.progressIsIndeterminate());
    EXPECT_EQ(panel.progressValue(), 1.0);
    EXPECT_FALSE(panel.progressIsCancelable());
    QTest::qWait(1500);
    EXPECT_TRUE(panel.isVisible());
    EXPECT_TRUE(QTest::qWaitFor([&] { return !panel.isVisible(); }, 5000));
    EXPECT_EQ(panel.progressValue(), 0.0);
    EXPECT_FALSE(panel.isSessionRunning());

    // Without a session a final message does nothing, so it cannot close the next session.
    panel.closeProgressPanelWithMessage("Submit failed!");
    EXPECT_NE(panel.progressPanelTitle(), "Submit failed!");
    panel.openProgressPanel();
    QTest::qWait(2500);
    EXPECT_TRUE(panel.isVisible());
    EXPECT_TRUE(panel.isSessionRunning());
}
