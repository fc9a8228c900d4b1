#include "HelpDeskTestSupport.h"
#include "QKHelpDesk.h"
#include "QKHelpDeskProgressPanel.h"
#include "QKSupportSiteProcess.h"
#include "QKTestEnvironment.h"

#include <QKAlert.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <gtest/gtest.h>

using namespace HelpDeskTest;

namespace {

constexpr int downloadTimeoutMs = 60000;

/** The generated blob's bytes: byte i is i mod 251. */
bool isBlob(const QByteArray &data)
{
    for (qsizetype i = 0; i < data.size(); ++i) {
        if (uchar(data.at(i)) != uchar(i % 251))
            return false;
    }
    return true;
}

/** Starts a download and waits for its end; the result says whether it completed. */
std::optional<bool> download(QKHelpDesk *helpDesk, const QString &url)
{
    QSignalSpy ended(helpDesk, &QKHelpDesk::downloadEnded);
    helpDesk->downloadFromPath(url);
    if (!waitUntil([&] { return !ended.isEmpty(); }, downloadTimeoutMs))
        return std::nullopt;
    return ended.constFirst().constFirst().toBool();
}

/**
 * Waits until a large download is under way. The panel's clock runs a second per reading, so
 * that every data callback redraws the bar: its value shows the bytes received. (The partial
 * file itself may be invisible: QSaveFile writes to an unnamed file where it can.)
 */
bool waitForProgress(QKHelpDeskProgressPanel *panel)
{
    panel->setClock([now = 1.0e9]() mutable { return now += 1.0; });
    return waitUntil([&] { return panel->progressValue() > 0.0; }, downloadTimeoutMs);
}

class QKHelpDeskDownloadTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
        helpDesk = startHelpDesk();
        panel = helpDesk->progressPanel();
        ASSERT_TRUE(openWindowAndWaitForCasts(helpDesk));
    }
    QString blobURL(qint64 size) const
    {
        return site.baseURL() + QStringLiteral("/downloads/blob-%1.bin").arg(size);
    }

    QKSupportSiteProcess site;
    QKHelpDesk *helpDesk = nullptr;
    QKHelpDeskProgressPanel *panel = nullptr;
};

} // namespace

TEST_F(QKHelpDeskDownloadTest, fileArrivesInTheDownloadFolderReplacingAnOldOne)
{
    const QString path = downloadFolder() + "/blob-1048576.bin";
    ASSERT_TRUE(QKTestEnvironment::writeAll(path, "an older download"));
    QSignalSpy ended(helpDesk, &QKHelpDesk::downloadEnded);
    helpDesk->downloadFromPath(blobURL(1048576));
    EXPECT_TRUE(panel->isVisible());
    EXPECT_EQ(panel->progressPanelTitle(), "Downloading blob-1048576.bin...");
    EXPECT_TRUE(panel->progressIsCancelable());
    EXPECT_FALSE(panel->progressIsIndeterminate());
    ASSERT_TRUE(waitUntil([&] { return !ended.isEmpty(); }, downloadTimeoutMs));
    // The last bytes and the end often arrive in one panel pass: still one end, a good one.
    EXPECT_EQ(ended.size(), 1);
    EXPECT_TRUE(ended.constFirst().constFirst().toBool());

    EXPECT_FALSE(panel->isVisible());
    const QByteArray data = QKTestEnvironment::readAll(path);
    EXPECT_EQ(data.size(), 1048576);
    EXPECT_TRUE(isBlob(data));
    EXPECT_EQ(filesIn(downloadFolder()), QStringList{"blob-1048576.bin"});
    EXPECT_TRUE(QKAlert::shownAlerts().isEmpty());
}

TEST_F(QKHelpDeskDownloadTest, anEndArrivingDuringAPanelPassIsNoCancel)
{
    ASSERT_TRUE(QDir().mkpath(downloadFolder()));
    // A slow clock gives the network time to deliver the rest of the body and the end
    // while a data callback is still inside its panel pass.
    panel->setClock([] {
        QThread::msleep(50);
        return QKHelpDeskProgressPanel::timeIntervalSinceReferenceDate();
    });
    QSignalSpy ended(helpDesk, &QKHelpDesk::downloadEnded);
    helpDesk->downloadFromPath(blobURL(8388608));
    ASSERT_TRUE(waitUntil([&] { return !ended.isEmpty(); }, downloadTimeoutMs));
    ASSERT_EQ(ended.size(), 1);
    EXPECT_TRUE(ended.constFirst().constFirst().toBool());
    EXPECT_EQ(QFileInfo(downloadFolder() + "/blob-8388608.bin").size(), 8388608);
    EXPECT_FALSE(panel->isVisible());
}

TEST_F(QKHelpDeskDownloadTest, failuresCloseThePanelLogAndLeaveNothing)
{
    ASSERT_TRUE(QDir().mkpath(downloadFolder()));
    EXPECT_EQ(download(helpDesk, site.baseURL() + "/downloads/no-such-file.bin"), false);
    EXPECT_FALSE(panel->isVisible());
    EXPECT_TRUE(logText().contains("didFailWithError:")) << logText().toStdString();
    EXPECT_TRUE(filesIn(downloadFolder()).isEmpty());

    site.stop();
    EXPECT_EQ(download(helpDesk, blobURL(4096)), false);
    EXPECT_FALSE(panel->isVisible());
    EXPECT_EQ(logText().count("didFailWithError:"), 2);
    EXPECT_TRUE(filesIn(downloadFolder()).isEmpty());
    EXPECT_TRUE(QKAlert::shownAlerts().isEmpty()) << "failures are not announced";
}

TEST_F(QKHelpDeskDownloadTest, cancelOrTheServerGoingAwayMidwayRemovesThePartialFile)
{
    ASSERT_TRUE(QDir().mkpath(downloadFolder()));
    // A cancel closes the panel at once and is no failure; the server going away is one.
    for (const bool cancel : {true, false}) {
        SCOPED_TRACE(cancel ? "cancel" : "server stops");
        QSignalSpy ended(helpDesk, &QKHelpDesk::downloadEnded);
        helpDesk->downloadFromPath(blobURL(qint64(1) << 30));
        ASSERT_TRUE(waitForProgress(panel));
        if (cancel)
            panel->findChild<QPushButton *>("progressCancelButton")->click();
        else
            site.stop();
        ASSERT_TRUE(waitUntil([&] { return !ended.isEmpty(); }, downloadTimeoutMs));
        EXPECT_FALSE(ended.constFirst().constFirst().toBool());
        EXPECT_FALSE(panel->isVisible());
        EXPECT_TRUE(filesIn(downloadFolder()).isEmpty());
        EXPECT_EQ(logText().count("didFailWithError:"), cancel ? 0 : 1);
    }
}

TEST_F(QKHelpDeskDownloadTest, missingOrUnwritableDownloadFolderFailsWithoutLeftovers)
{
    EXPECT_EQ(download(helpDesk, blobURL(4096)), false);
    EXPECT_FALSE(panel->isVisible());
    EXPECT_FALSE(QFileInfo::exists(downloadFolder())) << "the folder is not made up";
    EXPECT_EQ(logText().count("didFailWithError:"), 1);

    // A file where the folder should be.
    ASSERT_TRUE(QKTestEnvironment::writeAll(downloadFolder(), "not a folder"));
    EXPECT_EQ(download(helpDesk, blobURL(4096)), false);
    EXPECT_FALSE(panel->isVisible());
    EXPECT_EQ(QKTestEnvironment::readAll(downloadFolder()), "not a folder");
    EXPECT_EQ(filesIn(QFileInfo(downloadFolder()).path()).filter("Downloads").size(), 1);
    EXPECT_EQ(logText().count("didFailWithError:"), 2);
}
