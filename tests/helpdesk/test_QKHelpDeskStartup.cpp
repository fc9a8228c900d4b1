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

#include <QCheckBox>
#include <QDir>
#include <QFile>
#include <QPlainTextEdit>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>

using namespace HelpDeskTest;

namespace {

const char *const ChildModeVariable = "QK_HELPDESK_TEST_CHILD";
const char *const ChildHomeVariable = "QK_HELPDESK_TEST_CHILD_HOME";

/**
 * The other half of the launch marker tests: a copy of this executable started with
 * QK_HELPDESK_TEST_CHILD runs the help desk in the parent's HOME as a host would, then
 * either kills itself ("kill") or quits normally ("quit"). It never returns to the tests.
 */
class LaunchChild : public ::testing::Environment
{
public:
    void SetUp() override
    {
        const QByteArray mode = qgetenv(ChildModeVariable);
        if (mode.isEmpty())
            return;
        const QByteArray home = qgetenv(ChildHomeVariable);
        qputenv("HOME", home);
        qputenv("XDG_CONFIG_HOME", home + "/.config");
        QKUserDefaults::resetStandardUserDefaults();
        QKHelpDesk::startup();
        std::printf("marker %s\n", QFile::exists(QKHelpDesk::helpDesk()->launchFilePath())
                                       ? "present"
                                       : "missing");
        std::fflush(stdout);
        if (mode == "kill")
            std::raise(SIGKILL);
        QTimer::singleShot(0, qApp, &QCoreApplication::quit);
        QCoreApplication::exec();
        std::fflush(stdout);
        std::_Exit(0);
    }
};

[[maybe_unused]] ::testing::Environment *const s_launchChild =
    ::testing::AddGlobalTestEnvironment(new LaunchChild);

struct ChildRun
{
    QProcess::ExitStatus exitStatus = QProcess::NormalExit;
    int exitCode = -1;
    QByteArray output;
};

/** Runs a host run of the help desk in a child process that shares this test's HOME. */
ChildRun runChild(const char *mode)
{
    // The child's own sandbox lives here, so nothing of it outlives the test.
    QTemporaryDir childTemp;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(ChildModeVariable, QString::fromLatin1(mode));
    environment.insert(ChildHomeVariable, QKTestEnvironment::homePath());
    environment.insert("TMPDIR", childTemp.path());
    environment.remove("EMAIL");
    QProcess child;
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    // Environments are only set up when some test is selected; this one is quick.
    child.start(QCoreApplication::applicationFilePath(),
                {"--gtest_filter=SUStandardVersionComparator.*"});
    ChildRun run;
    if (!child.waitForFinished(60000)) {
        child.kill();
        child.waitForFinished();
    }
    run.exitStatus = child.exitStatus();
    run.exitCode = child.exitCode();
    run.output = child.readAllStandardOutput();
    return run;
}

const QString crashMessage = "Test Host seems to have unexpectedly terminated! Would you like "
                             "to file a report with the Help Desk?";
const QString crashInformation =
    "Reporting this crash will help track down the problem and solve it in future versions. "
    "Reporting it now may give the best recollection of what was happening in the application.";

QString markerPath()
{
    return QKTestEnvironment::homePath() +
           "/Library/Application Support/Velmora/Test Host/.launched";
}

class ReleaseBuild : public QKApplicationDelegate
{
public:
    bool isBetaVersion() const override { return false; }
};

} // namespace

TEST(QKHelpDeskStartup, aKilledRunLeavesTheMarkerAndTheNextStartOffersACrashReport)
{
    QKSupportSiteProcess site;
    ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
    const ChildRun killed = runChild("kill");
    EXPECT_TRUE(killed.output.endsWith("marker present\n")) << killed.output.constData();
    EXPECT_EQ(killed.exitStatus, QProcess::CrashExit);
    EXPECT_EQ(killed.exitCode, SIGKILL);
    ASSERT_TRUE(QFile::exists(markerPath()));

    QKAlert::setAnswerer([](const QKAlertRequest &) { return 0; }); // "Yes"
    QKHelpDesk *helpDesk = startHelpDesk();
    QSignalSpy casts(helpDesk, &QKHelpDesk::castsLoaded);
    const QList<QKAlertRequest> alerts = QKAlert::shownAlerts();
    ASSERT_EQ(alerts.size(), 1);
    EXPECT_EQ(alerts[0].message, crashMessage);
    EXPECT_EQ(alerts[0].informativeText, crashInformation);
    EXPECT_EQ(alerts[0].buttons, QStringList({"Yes", "No"}));

    ASSERT_NE(helpDesk->window(), nullptr);
    EXPECT_TRUE(helpDesk->window()->isVisible());
    EXPECT_EQ(helpDesk->currentView(), helpDesk->supportView());
    EXPECT_EQ(helpDesk->toolbar()->selectedItemIdentifier(), "support");
    EXPECT_EQ(helpDesk->supportView()->findChild<QPlainTextEdit *>("bodyText")->toPlainText(),
              "I had a crash! Here's what happened...\n\n");
    EXPECT_TRUE(
        helpDesk->supportView()->findChild<QCheckBox *>("submitCrashLog1Button")->isChecked());
    EXPECT_TRUE(QFile::exists(markerPath())) << "the marker is made again for this run";
    ASSERT_TRUE(casts.wait(30000)) << "accepting the report loads the casts";
}

TEST(QKHelpDeskStartup, answeringNoForgetsTheCrashAndOpensNothing)
{
    ASSERT_EQ(runChild("kill").exitStatus, QProcess::CrashExit);
    QKAlert::setAnswerer([](const QKAlertRequest &) { return 1; }); // "No"
    QKHelpDesk *helpDesk = startHelpDesk();
    EXPECT_EQ(QKAlert::shownAlerts().size(), 1);
    EXPECT_EQ(helpDesk->window(), nullptr);
    EXPECT_TRUE(QFile::exists(markerPath()));
}

TEST(QKHelpDeskStartup, aCleanQuitLeavesNoMarkerAndNoPromptAndStartEmptiesTheTemporaryFolder)
{
    const ChildRun quit = runChild("quit");
    EXPECT_TRUE(quit.output.endsWith("marker present\n")) << quit.output.constData();
    EXPECT_EQ(quit.exitStatus, QProcess::NormalExit);
    EXPECT_EQ(quit.exitCode, 0);
    EXPECT_FALSE(QFile::exists(markerPath()));

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

TEST(QKHelpDeskStartup, betaBuildsReadTheTestingFeed)
{
    QKSupportSiteProcess site;
    ASSERT_TRUE(site.isRunning());
    QKHelpDesk *helpDesk = startHelpDesk();
    EXPECT_EQ(helpDesk->baseURL(), site.baseURL());
    EXPECT_EQ(helpDesk->appCode(), "tsth");
    EXPECT_EQ(helpDesk->version(), "2");
    EXPECT_EQ(QKUserDefaults::standardUserDefaults()->stringForKey(SUFeedURLKey),
              site.baseURL() +
                  "/appcast.php?titleCode=tsth&titleVersion=2&testing=1&style=appcast");
    EXPECT_EQ(SUUpdater::userAgent(), "Test Host/2501 (Mac OS X) Sparkle/1.0");
}

TEST(QKHelpDeskStartup, anEmailAddressRegistersTheDefaults)
{
    QKSupportSiteProcess site;
    ASSERT_TRUE(site.isRunning());
    QKHelpDesk *helpDesk = startHelpDesk("sam.lee@example.org");
    const QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
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
