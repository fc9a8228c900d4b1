#include "HelpDeskTestSupport.h"
#include "QKHelpDesk.h"
#include "QKHelpDeskSupport.h"
#include "QKHelpDeskToolbar.h"
#include "QKHelpDeskWindow.h"
#include "QKSupportSiteProcess.h"
#include "QKTestEnvironment.h"
#include "SUConstants.h"
#include "SUUpdater.h"

#include <QKAlert.h>
#include <QKApplication.h>
#include <QKFile.h>
#include <QKUserDefaults.h>

#include <QDir>
#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace HelpDeskTest;

// A real crash leaving the marker behind is run by the crash report test of the support pane;
// here the marker is laid down by hand.

namespace {

QString markerPath()
{
    return QKTestEnvironment::homeFile(".local/share/Velmora/Test Host/.launched");
}

} // namespace

TEST(QKHelpDeskStartup, aMarkerLeftBehindOffersACrashReportThatOpensTheSupportPane)
{
    QKSupportSiteProcess site;
    ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
    ASSERT_TRUE(QKTestEnvironment::writeAll(markerPath(), QByteArray()));
    QKAlert::setAnswerer([](const QKAlertRequest &) { return 0; }); // "Yes"
    QKHelpDesk *helpDesk = startHelpDesk();
    QSignalSpy casts(helpDesk, &QKHelpDesk::castsLoaded);
    const QList<QKAlertRequest> alerts = QKAlert::shownAlerts();
    ASSERT_EQ(alerts.size(), 1);
    EXPECT_EQ(alerts[0].message, "Test Host seems to have unexpectedly terminated! Would you like "
                                 "to file a report with the Help Desk?");
    EXPECT_EQ(alerts[0].informativeText,
              "Reporting this crash will help track down the problem and solve it in future "
              "versions. Reporting it now may give the best recollection of what was happening "
              "in the application.");
    EXPECT_EQ(alerts[0].buttons, QStringList({"Yes", "No"}));

    ASSERT_NE(helpDesk->window(), nullptr);
    EXPECT_TRUE(helpDesk->window()->isVisible());
    EXPECT_EQ(helpDesk->currentView(), helpDesk->supportView());
    EXPECT_EQ(helpDesk->toolbar()->selectedItemIdentifier(), "support");
    EXPECT_TRUE(QFile::exists(markerPath())) << "the marker is made again for this run";
    ASSERT_TRUE(casts.wait(30000)) << "accepting the report loads the casts";
}

TEST(QKHelpDeskStartup, answeringNoForgetsTheCrashAndOpensNothing)
{
    ASSERT_TRUE(QKTestEnvironment::writeAll(markerPath(), QByteArray()));
    QKAlert::setAnswerer([](const QKAlertRequest &) { return 1; }); // "No"
    QKHelpDesk *helpDesk = startHelpDesk();
    EXPECT_EQ(QKAlert::shownAlerts().size(), 1);
    EXPECT_EQ(helpDesk->window(), nullptr);
    EXPECT_TRUE(QFile::exists(markerPath()));
}

TEST(QKHelpDeskStartup, aStartMakesTheMarkerAndEmptiesTheTemporaryFolderAndTerminationUndoesBoth)
{
    const QString temp = QKApplication::sharedApplication()->tempDirectory();
    ASSERT_TRUE(QDir().mkpath(temp + "/old/session"));
    ASSERT_TRUE(QKFile::createFileAtPath(temp + "/.leftover", "x"));
    startHelpDesk();
    EXPECT_TRUE(QKAlert::shownAlerts().isEmpty());
    EXPECT_TRUE(QFile::exists(markerPath()));
    EXPECT_TRUE(QFileInfo(temp).isDir());
    EXPECT_TRUE(QKFile::contentsOfDirectoryAtPath(temp).isEmpty());

    ASSERT_TRUE(QKFile::createFileAtPath(temp + "/upload.zip", "zip"));
    emit QKApplication::sharedApplication()->willTerminate();
    EXPECT_FALSE(QFile::exists(markerPath()));
    EXPECT_TRUE(QKFile::contentsOfDirectoryAtPath(temp).isEmpty());
    QDir(temp).removeRecursively();
}

TEST(QKHelpDeskStartup, aLinkPlantedAsTheTemporaryFolderLosesNoFiles)
{
    // Emptying a refused folder must neither follow the link nor fall back to the working
    // folder.
    const QString documents = QKTestEnvironment::homeFile("Documents");
    const QString work = QKTestEnvironment::homeFile("work");
    ASSERT_TRUE(QKTestEnvironment::writeAll(documents + "/song.aif", "song"));
    ASSERT_TRUE(QKTestEnvironment::writeAll(work + "/session.txt", "session"));
    ASSERT_TRUE(QDir::setCurrent(work));
    const QString temp = QKApplication::sharedApplication()->tempDirectory();
    ASSERT_TRUE(QDir(temp).removeRecursively());
    ASSERT_TRUE(QFile::link(documents, temp));
    startHelpDesk();
    emit QKApplication::sharedApplication()->willTerminate();
    EXPECT_EQ(QKTestEnvironment::readAll(documents + "/song.aif"), "song");
    EXPECT_EQ(QKTestEnvironment::readAll(work + "/session.txt"), "session");
}

TEST(QKHelpDeskStartup, anEmailAddressRegistersTheDefaultsAndBetaBuildsReadTheTestingFeed)
{
    QKSupportSiteProcess site;
    ASSERT_TRUE(site.isRunning());
    QKHelpDesk *helpDesk = startHelpDesk("sam.lee@example.org");
    const QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    EXPECT_EQ(defaults->stringForKey(SUFeedURLKey),
              site.baseURL() +
                  "/appcast.php?titleCode=tsth&titleVersion=2&testing=1&style=appcast");
    EXPECT_EQ(SUUpdater::userAgent(), "Test Host/2501 (Mac OS X) Sparkle/1.0");
    EXPECT_EQ(defaults->stringForKey("Help Desk Email"), "sam.lee@example.org");
    EXPECT_TRUE(defaults->boolForKey("Notify Documentation Updates"));
    EXPECT_TRUE(defaults->boolForKey("Notify Tutorial Updates"));
    EXPECT_TRUE(defaults->boolForKey(SUCheckAtStartupKey));
    EXPECT_TRUE(helpDesk->sparkle()->isChecking()) << "the start-up check now defaults to on";
}

TEST(QKHelpDeskStartup, releaseBuildsReadTheReleaseFeedAndWithoutAnEmailNoDefaultIsRegistered)
{
    ReleaseBuild release;
    QKApplication::sharedApplication()->setDelegate(&release);
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    defaults->setObject("stale", SUFeedURLKey);
    QKHelpDesk *helpDesk = startHelpDesk();
    EXPECT_EQ(defaults->stringForKey(SUFeedURLKey),
              helpDesk->baseURL() +
                  "/appcast.php?titleCode=tsth&titleVersion=2&testing=0&style=appcast");
    for (const QString &key : {QString("Help Desk Email"), QString("Notify Documentation Updates"),
                               QString("Notify Tutorial Updates"), QString(SUCheckAtStartupKey)}) {
        EXPECT_FALSE(defaults->hasKey(key)) << key.toStdString();
        EXPECT_FALSE(defaults->boolForKey(key)) << key.toStdString();
    }
    EXPECT_FALSE(helpDesk->sparkle()->isChecking()) << "no start-up check";
    QKApplication::sharedApplication()->setDelegate(nullptr);
}
