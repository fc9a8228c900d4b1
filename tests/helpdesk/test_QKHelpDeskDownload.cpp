#include "HelpDeskTestSupport.h"
#include "QKHelpDesk.h"
#include "QKHelpDeskProgressPanel.h"
#include "QKSupportSiteProcess.h"
#include "QKTestEnvironment.h"

#include "../QKBase/QKTestHttpServer.h"

#include <QKAlert.h>
#include <QKNetworkReplies.h>

#include <QDir>
#include <QFileInfo>
#include <QPushButton>
#include <QSignalSpy>
#include <QThread>

#include <gtest/gtest.h>

using namespace HelpDeskTest;
using namespace std::chrono_literals;

namespace {

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
    /** Starts a download of @p url, runs @p meanwhile, and waits for the end; returns the
     *  completed flags of the ends (none when it never ended). */
    QList<bool> download(const QString &url, const std::function<void()> &meanwhile = {})
    {
        QSignalSpy ended(helpDesk, &QKHelpDesk::downloadEnded);
        helpDesk->downloadFromPath(url);
        if (meanwhile)
            meanwhile();
        if (!QTest::qWaitFor([&] { return !ended.isEmpty(); }, 60000))
            return {};
        QList<bool> completed;
        for (const QList<QVariant> &end : ended)
            completed << end.constFirst().toBool();
        return completed;
    }

    QKSupportSiteProcess site;
    QKHelpDesk *helpDesk = nullptr;
    QKHelpDeskProgressPanel *panel = nullptr;
};

} // namespace

TEST_F(QKHelpDeskDownloadTest, filesArriveInTheDownloadFolderReplacingAnOldOne)
{
    const QString path = downloadFolder() + "/blob-1048576.bin";
    ASSERT_TRUE(QKTestEnvironment::writeAll(path, "an older download"));
    // The last bytes and the end often arrive in one panel pass: still one end, a good one.
    EXPECT_EQ(download(blobURL(1048576),
                       [&] {
                           EXPECT_TRUE(panel->isVisible());
                           EXPECT_EQ(panel->progressPanelTitle(),
                                     "Downloading blob-1048576.bin...");
                           EXPECT_TRUE(panel->progressIsCancelable());
                           EXPECT_FALSE(panel->progressIsIndeterminate());
                       }),
              QList<bool>{true});
    EXPECT_FALSE(panel->isVisible());
    const QByteArray data = QKTestEnvironment::readAll(path);
    ASSERT_EQ(data.size(), 1048576);
    for (qsizetype i = 0; i < data.size(); ++i)
        ASSERT_EQ(uchar(data.at(i)), uchar(i % 251)) << "byte " << i; // the site's blob
    EXPECT_EQ(filesIn(downloadFolder()), QStringList{"blob-1048576.bin"});
    EXPECT_TRUE(QKAlert::shownAlerts().isEmpty());

    // A slow clock gives the network time to deliver the rest of the body and the end while a
    // data callback is still inside its panel pass: that end is no cancel.
    panel->setClock([] {
        QThread::msleep(50);
        return QKHelpDeskProgressPanel::timeIntervalSinceReferenceDate();
    });
    EXPECT_EQ(download(blobURL(8388608)), QList<bool>{true});
    EXPECT_EQ(QFileInfo(downloadFolder() + "/blob-8388608.bin").size(), 8388608);
    EXPECT_FALSE(panel->isVisible());
}

TEST_F(QKHelpDeskDownloadTest, cancelOrTheServerGoingAwayMidwayRemovesThePartialFile)
{
    ASSERT_TRUE(QDir().mkpath(downloadFolder()));
    // A cancel closes the panel at once and is no failure; the server going away is one.
    for (const bool cancel : {true, false}) {
        SCOPED_TRACE(cancel ? "cancel" : "server stops");
        const auto interrupt = [&] {
            // A clock a second on per reading redraws the bar at every data callback.
            panel->setClock([now = 1.0e9]() mutable { return now += 1.0; });
            ASSERT_TRUE(QTest::qWaitFor([&] { return panel->progressValue() > 0.0; }, 60000));
            if (cancel)
                panel->findChild<QPushButton *>("progressCancelButton")->click();
            else
                site.stop();
        };
        EXPECT_EQ(download(blobURL(qint64(1) << 30), interrupt), QList<bool>{false});
        EXPECT_FALSE(panel->isVisible());
        EXPECT_TRUE(filesIn(downloadFolder()).isEmpty());
        EXPECT_EQ(logText().count("didFailWithError:"), cancel ? 0 : 1);
    }
}

TEST_F(QKHelpDeskDownloadTest, failuresCloseThePanelLogAndLeaveNothing)
{
    int failures = 0;
    const auto expectFailure = [&](const QString &url) {
        EXPECT_EQ(download(url), QList<bool>{false}) << url.toStdString();
        EXPECT_FALSE(panel->isVisible());
        EXPECT_EQ(logText().count("didFailWithError:"), ++failures);
    };
    // A download folder that is a file cannot be written: the user is told where and why.
    ASSERT_TRUE(QKTestEnvironment::writeAll(downloadFolder(), "not a folder"));
    expectFailure(blobURL(4096));
    EXPECT_EQ(QKTestEnvironment::readAll(downloadFolder()), "not a folder");
    EXPECT_EQ(filesIn(QKTestEnvironment::homePath()).filter("Downloads").size(), 1);
    ASSERT_EQ(QKAlert::shownAlerts().size(), 1);
    EXPECT_EQ(QKAlert::shownAlerts().constFirst().message,
              u"The download could not be saved to \"%1/blob-4096.bin\"."_s.arg(downloadFolder()));
    EXPECT_FALSE(QKAlert::shownAlerts().constFirst().informativeText.isEmpty());

    // A missing file on the server is the documentation pane's failed download: no alert.
    ASSERT_TRUE(QFile::remove(downloadFolder()) && QDir().mkpath(downloadFolder()));
    site.stop();
    expectFailure(blobURL(4096));
    EXPECT_TRUE(filesIn(downloadFolder()).isEmpty());
    EXPECT_EQ(QKAlert::shownAlerts().size(), 1) << "network failures are not announced";
}

TEST(QKHelpDeskDownload, aFreshAccountGetsItsDownloadFolderAndEscapedNamesAreDecoded)
{
    ScriptedServer server;
    server.replies = {{u"/files/My Manual.pdf"_s, "%PDF-1.4 manual"}};
    QKHelpDesk *helpDesk = startHelpDesk();
    ASSERT_FALSE(QFileInfo::exists(downloadFolder()));
    QSignalSpy ended(helpDesk, &QKHelpDesk::downloadEnded);
    helpDesk->downloadFromPath(server.baseURL() + u"/files/My%20Manual.pdf"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !ended.isEmpty(); }, 20000));
    EXPECT_EQ(QKTestEnvironment::readAll(downloadFolder() + u"/My Manual.pdf"_s),
              "%PDF-1.4 manual");
    EXPECT_EQ(helpDesk->progressPanel()->progressPanelTitle(), u"Downloading My Manual.pdf..."_s);
    EXPECT_EQ(filesIn(downloadFolder()), QStringList{"My Manual.pdf"});
    EXPECT_TRUE(QKAlert::shownAlerts().isEmpty());
}

TEST_F(QKHelpDeskDownloadTest, aDownloadWithNoBytesMovingFails)
{
    ASSERT_TRUE(QDir().mkpath(downloadFolder()));
    QKNetworkReplies::setIdleTimeout(1s);
    // A server that accepts and never answers, and one that stops after the head.
    QKTestHttpServer server([](const QKTestHttpServer::Request &request) {
        return QKTestHttpServer::Response{
            request.path.endsWith("/hang.bin") ? QKTestHttpServer::Hang : QKTestHttpServer::Stall,
            "the start of a file"};
    });
    int failures = 0;
    for (const QString &path : {u"/hang.bin"_s, u"/stall.bin"_s}) {
        EXPECT_EQ(download(server.url(path).toString()), QList<bool>{false}) << path.toStdString();
        EXPECT_FALSE(panel->isVisible());
        EXPECT_TRUE(filesIn(downloadFolder()).isEmpty());
        EXPECT_EQ(logText().count("didFailWithError:"), ++failures);
    }
}
