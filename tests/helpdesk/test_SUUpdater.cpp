#include "HelpDeskTestSupport.h"
#include "QKHelpDesk.h"
#include "QKSupportSiteProcess.h"
#include "QKTestEnvironment.h"
#include "SUConstants.h"
#include "SUUpdater.h"

#include <QKAlert.h>
#include <QKClock.h>
#include <QKUserDefaults.h>

#include <QDir>
#include <QSignalSpy>
#include <QTimer>

#include <gtest/gtest.h>

using namespace HelpDeskTest;

namespace {

/** Runs a check and waits for its end; returns the checkFinished arguments. */
QList<QVariant> check(SUUpdater *updater, bool userInitiated)
{
    QSignalSpy finished(updater, &SUUpdater::checkFinished);
    if (userInitiated)
        updater->checkForUpdates(nullptr);
    else
        updater->checkForUpdatesInBackground();
    return finished.wait(30000) ? finished.constFirst() : QList<QVariant>();
}

void pointAtFeed(const QString &url)
{
    QKUserDefaults::standardUserDefaults()->setObject(url, SUFeedURLKey);
}

/** An appcast whose items are @p items. */
QByteArray appcast(const QByteArray &items = QByteArray())
{
    return R"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
<channel><title>Test Host Changelog</title>)" +
           items + "</channel></rss>";
}

/** Ends the wait of the scheduled checks' timer now, as if its time had come. */
void wakeSchedule(SUUpdater &updater)
{
    auto *timer = updater.findChild<QTimer *>("scheduleTimer");
    ASSERT_TRUE(timer && timer->isActive()) << "no scheduled check is waiting";
    QTimerEvent event(timer->timerId());
    QCoreApplication::sendEvent(timer, &event);
}

} // namespace

TEST(SUUpdater, aNewerReleaseIsOfferedWithItsNotesAndOnceSkippedOnlyWhenTheUserAsks)
{
    // A feed whose newest release is 2.6 (build 2600).
    const QString title = "titles/tsth/2/";
    const QString data = sampleDataWith(
        {{title + "appcast.json",
          R"({"title": "Test Host Changelog", "items": [{"title": "Test Host 2.6",
              "version": "2600", "shortVersionString": "2.6",
              "published": "2025-01-15T10:00:00+00:00", "notes": "notes/2.6.html",
              "file": "TestHost-2.6.tar.gz"}]})"},
         {title + "notes/2.6.html", "<ul><li>Plug-in scanning is twice as fast.</li></ul>"},
         {title + "downloads/TestHost-2.6.tar.gz", "Test Host 2.6 update archive"}});
    QKSupportSiteProcess site(QKSupportSiteProcess::Environment::Export, data);
    ASSERT_TRUE(site.isRunning());
    ASSERT_TRUE(QDir().mkpath(downloadFolder()));

    // Through the help desk, whose download fetches the archive.
    QKHelpDesk *helpDesk = startHelpDesk();
    QSignalSpy downloaded(helpDesk, &QKHelpDesk::downloadEnded);
    QSignalSpy casts(helpDesk, &QKHelpDesk::castsLoaded);
    EXPECT_EQ(check(helpDesk->sparkle(), false), QList<QVariant>({true, true}));
    const QList<QKAlertRequest> alerts = QKAlert::shownAlerts();
    ASSERT_EQ(alerts.size(), 1);
    EXPECT_EQ(alerts[0].message, "A new version of Test Host is available!");
    EXPECT_TRUE(alerts[0].informativeText.contains(
        "Test Host 2.6 is now available; you have 2.5b1. Would you like to download it now?"));
    EXPECT_TRUE(alerts[0].informativeText.contains("<li>Plug-in scanning is twice as fast.</li>"));
    EXPECT_EQ(alerts[0].buttons, QStringList({"Download", "Skip This Version", "Remind Me Later"}));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !downloaded.isEmpty(); }, 30000));
    EXPECT_TRUE(downloaded.constFirst().constFirst().toBool());
    EXPECT_EQ(QKTestEnvironment::readAll(downloadFolder() + "/TestHost-2.6.tar.gz"),
              "Test Host 2.6 update archive");
    EXPECT_TRUE(QTest::qWaitFor([&] { return !casts.isEmpty(); }, 30000))
        << "the download opened the help desk";

    // Skipped, it is offered again only when asked for; without a download handler the
    // browser fetches it.
    OpenedURLs opened;
    SUUpdater updater;
    QKAlert::setAnswerer([](const QKAlertRequest &) { return 1; }); // "Skip This Version"
    EXPECT_EQ(check(&updater, false), QList<QVariant>({true, true}));
    EXPECT_EQ(QKUserDefaults::standardUserDefaults()->stringForKey(SUSkippedVersionKey), "2600");
    EXPECT_EQ(check(&updater, false), QList<QVariant>({true, false}));
    EXPECT_EQ(QKAlert::shownAlerts().size(), 1);
    QKAlert::setAnswerer([](const QKAlertRequest &) { return 0; });
    EXPECT_EQ(check(&updater, true), QList<QVariant>({true, true}));
    EXPECT_EQ(opened, QStringList{site.baseURL() + "/downloads/tsth/2/TestHost-2.6.tar.gz"});
}

TEST(SUUpdater, unreadableFeedsRecordNoCheckAndAreReportedOnlyWhenAsked)
{
    ScriptedServer server;
    server.replies["/feed"] = "<html><body>Not a feed</body></html>";
    pointAtFeed(server.baseURL() + "/feed");
    SUUpdater updater;
    EXPECT_EQ(check(&updater, false), QList<QVariant>({false, false}));
    EXPECT_TRUE(QKAlert::shownAlerts().isEmpty());
    EXPECT_EQ(check(&updater, true), QList<QVariant>({false, false}));
    ASSERT_EQ(QKAlert::shownAlerts().size(), 1);
    EXPECT_EQ(QKAlert::shownAlerts()[0].message, "Checking for updates failed");

    pointAtFeed(server.baseURL() + "/missing");
    EXPECT_EQ(check(&updater, true), QList<QVariant>({false, false}));
    EXPECT_FALSE(QKUserDefaults::standardUserDefaults()->hasKey(SULastCheckTimeKey));
    EXPECT_TRUE(logText().contains("RSS")) << "the feed reader logs why";
}

TEST(SUUpdater, startupCheckFollowsTheSettingsAndOnlyAnAskedCheckAnnouncesUpToDate)
{
    QKSupportSiteProcess site;
    ASSERT_TRUE(site.isRunning());
    pointAtFeed(site.baseURL() + "/appcasts/tsth/2/index.xml");
    // Without the setting there is no check: see the help desk's start-up.
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    SUUpdater updater;
    defaults->setBool(true, SUCheckAtStartupKey);
    defaults->setInteger(86400, SUScheduledCheckIntervalKey);
    QSignalSpy finished(&updater, &SUUpdater::checkFinished);
    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    updater.startupCheck();
    EXPECT_TRUE(updater.isChecking());
    EXPECT_EQ(updater.scheduledCheckInterval(), 86400.0);
    ASSERT_TRUE(finished.wait(30000));
    // The release feed's newest build (2400) is older than this one (2501).
    EXPECT_EQ(finished.constFirst(), QList<QVariant>({true, false}));
    EXPECT_TRUE(QKAlert::shownAlerts().isEmpty()) << "an up-to-date background check is silent";
    EXPECT_GE(defaults->objectForKey(SULastCheckTimeKey).toDateTime(), before);
    EXPECT_FALSE(updater.isChecking());

    // Asked for, the same result is announced.
    pointAtFeed(site.baseURL() + "/appcast.php?titleCode=tsth&titleVersion=2&testing=1");
    EXPECT_EQ(check(&updater, true), QList<QVariant>({true, false}));
    ASSERT_EQ(QKAlert::shownAlerts().size(), 1);
    EXPECT_EQ(QKAlert::shownAlerts()[0].message, "Test Host is up to date");
    EXPECT_EQ(QKAlert::shownAlerts()[0].informativeText,
              "Test Host 2.5b1 is the newest version available.");
    EXPECT_EQ(QKAlert::shownAlerts()[0].style, QKAlertRequest::Style::Informational);
}

TEST(SUUpdater, scheduledChecksComeAnIntervalAfterTheLastCheckForIntervalsUpToAYear)
{
    ScriptedServer server;
    server.replies["/feed"] = appcast();
    pointAtFeed(server.baseURL() + "/feed");
    const QDateTime start(QDate(2024, 3, 1), QTime(12, 0), Qt::UTC);
    QDateTime now;
    QKClock::setClock([&now] { return now; });
    constexpr qint64 day = 86400;
    constexpr qint64 monthly = 2629800; // beyond what one timer can wait
    const struct
    {
        const char *what;
        QVariant lastCheck;
        double interval;
        qint64 keptInterval;
        QDateTime due;
    } cases[] = {
        {"due", start.addSecs(-7200), day, day, start.addSecs(day - 7200)},
        {"overdue", start.addSecs(-2 * day), day, day, start.addSecs(-day)},
        {"never checked", {}, 3600, 3600, start},
        {"checked in the future", start.addDays(3), 3600, 3600, start.addSecs(3600)},
        {"monthly", start.addSecs(-day), monthly, monthly, start.addSecs(monthly - day)},
        {"ten years", start, 10 * 365 * day, 31557600, start.addSecs(31557600)},
    };
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        now = start;
        defaults->setObject(c.lastCheck, SULastCheckTimeKey);
        SUUpdater updater;
        updater.scheduleCheckWithInterval(c.interval);
        EXPECT_EQ(updater.scheduledCheckInterval(), double(c.keptInterval));
        EXPECT_EQ(updater.nextScheduledCheck(), c.due);
        if (c.due > now) {
            // The timer wakes in steps; before its time a wake only waits on.
            now = c.due.addSecs(-1);
            wakeSchedule(updater);
            EXPECT_FALSE(updater.isChecking());
            now = c.due;
        }
        QSignalSpy finished(&updater, &SUUpdater::checkFinished);
        wakeSchedule(updater);
        EXPECT_TRUE(updater.isChecking());
        ASSERT_TRUE(finished.wait(30000));
        EXPECT_EQ(finished.constFirst(), QList<QVariant>({true, false}));
        EXPECT_EQ(defaults->objectForKey(SULastCheckTimeKey).toDateTime(), now);
        EXPECT_EQ(updater.nextScheduledCheck(), now.addSecs(c.keptInterval));
    }

    // A check that cannot read the feed is not repeated at once, and 0 ends the schedule.
    SUUpdater updater;
    defaults->removeObjectForKey(SULastCheckTimeKey);
    pointAtFeed(server.baseURL() + "/missing");
    updater.scheduleCheckWithInterval(3600);
    QSignalSpy finished(&updater, &SUUpdater::checkFinished);
    wakeSchedule(updater);
    ASSERT_TRUE(finished.wait(30000));
    EXPECT_EQ(finished.constFirst(), QList<QVariant>({false, false}));
    EXPECT_EQ(updater.nextScheduledCheck(), now.addSecs(3600));
    updater.scheduleCheckWithInterval(0);
    EXPECT_FALSE(updater.nextScheduledCheck().isValid());
    EXPECT_FALSE(updater.findChild<QTimer *>("scheduleTimer")->isActive());
    QKClock::setClock({});
}

TEST(SUUpdater, anUpdateWithoutADownloadAddressIsExplainedInsteadOfDownloaded)
{
    ScriptedServer server;
    server.replies["/feed"] = appcast(R"(<item><title>Test Host 2.6</title>
        <sparkle:version>2600</sparkle:version>
        <sparkle:shortVersionString>2.6</sparkle:shortVersionString>
        <description>Faster scanning</description></item>)");
    pointAtFeed(server.baseURL() + "/feed");
    OpenedURLs opened;
    QList<QUrl> downloads;
    SUUpdater updater;
    updater.setDownloadHandler([&downloads](const QUrl &url) { downloads << url; });
    EXPECT_EQ(check(&updater, true), QList<QVariant>({true, true}));

    const QList<QKAlertRequest> alerts = QKAlert::shownAlerts();
    ASSERT_EQ(alerts.size(), 2);
    EXPECT_EQ(alerts[0].message, "A new version of Test Host is available!");
    EXPECT_EQ(alerts[1].message, "Test Host 2.6 cannot be downloaded");
    EXPECT_EQ(alerts[1].informativeText,
              "The update information gives no address to download it from. Please try again "
              "later or get the update from the Test Host web site.");
    EXPECT_TRUE(downloads.isEmpty());
    EXPECT_TRUE(opened.isEmpty());
    EXPECT_TRUE(logText().contains("the update to 2.6 (2600) has no download address"));
}
