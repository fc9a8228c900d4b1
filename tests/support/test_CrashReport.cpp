#include "SupportTestSupport.h"

#include "QKCrashReporter.h"
#include "QKHelpDesk.h"
#include "QKSupportSiteProcess.h"
#include "QKTestEnvironment.h"

#include <QKAlert.h>
#include <QKApplicationLog.h>
#include <QKUserDefaults.h>

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDir>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProcess>

#include <gtest/gtest.h>

using namespace SupportTest;

namespace {

const char *const CrashHomeVariable = "QK_SUPPORT_TEST_CRASH_HOME";

// Written through a global volatile, so the compiler cannot drop the bad write.
int *volatile g_nowhere = nullptr;

/**
 * The other half of the crash report test: a copy of this executable started with
 * QK_SUPPORT_TEST_CRASH_HOME starts the help desk in that HOME as a host does at launch,
 * then writes through a null pointer. It never reaches the tests.
 */
class CrashingHost : public ::testing::Environment
{
public:
    void SetUp() override
    {
        const QByteArray home = qgetenv(CrashHomeVariable);
        if (home.isEmpty())
            return;
        qputenv("HOME", home);
        qputenv("XDG_CONFIG_HOME", home + "/.config");
        qputenv("TMPDIR", home + "/tmp");
        QKUserDefaults::resetStandardUserDefaults();
        QKHelpDesk::startup();
        *g_nowhere = 1;
    }
};

[[maybe_unused]] ::testing::Environment *const s_crashingHost =
    ::testing::AddGlobalTestEnvironment(new CrashingHost);

} // namespace

TEST(CrashReport, theNextLaunchReportsTheCrashWithItsLog)
{
    const QString home = QKTestEnvironment::homePath();
    QDir().mkpath(home + "/tmp");
    qputenv("TMPDIR", QFile::encodeName(home + "/tmp"));
    QKSupportSiteProcess site;
    ASSERT_TRUE(site.isRunning());

    QProcess host;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(CrashHomeVariable, home);
    host.setProcessEnvironment(environment);
    host.start(QCoreApplication::applicationFilePath(),
               {QStringLiteral("--gtest_filter=CrashReport.*")});
    ASSERT_TRUE(host.waitForFinished(60000));
    ASSERT_EQ(host.exitStatus(), QProcess::CrashExit);
    const QStringList crashLogs = QKCrashReporter::crashLogPaths("Test Host");
    ASSERT_EQ(crashLogs.size(), 1);

    QKApplicationLog::sharedLog()->_setThreshold(QKApplicationLog::Info, "HDSupport");
    QKUserDefaults::standardUserDefaults()->setObject("ada@example.org", "Help Desk Email");
    QKHelpDesk::startup();
    ASSERT_EQ(QKAlert::shownAlerts().size(), 1);
    EXPECT_EQ(QKAlert::shownAlerts()[0].message,
              "Test Host seems to have unexpectedly terminated! Would you like to file a report "
              "with the Help Desk?");
    QKHelpDeskSupport *pane = QKHelpDesk::helpDesk()->supportView();
    ASSERT_NE(pane, nullptr);
    EXPECT_TRUE(paneWidget<QCheckBox>(pane, "submitCrashLog1Button")->isChecked());
    EXPECT_EQ(paneWidget<QLineEdit>(pane, "emailText")->text(), "ada@example.org");
    EXPECT_EQ(paneWidget<QLineEdit>(pane, "emailSearchText")->text(), "ada@example.org");
    const QString body = paneWidget<QPlainTextEdit>(pane, "bodyText")->toPlainText();
    EXPECT_EQ(body, "I had a crash! Here's what happened...\n\n");
    ASSERT_TRUE(
        waitUntil([pane] { return paneWidget<QComboBox>(pane, "categoryPopup")->count() > 1; }));

    submitRequest(pane, "Crashes & Bugs", body + "I clicked Crash.");
    ASSERT_EQ(waitForPanelEnd(), "Request sent successfully!");
    const QJsonArray documents = inspect(site, "documents");
    ASSERT_EQ(documents.size(), 1);
    EXPECT_EQ(documents[0]["name"].toString(), "crash_log");
    const QMap<QString, QByteArray> archive =
        zipEntries(documentBytes(site, documents[0]["id"].toInteger()));
    ASSERT_EQ(archive.keys(), QStringList(QFileInfo(crashLogs[0]).fileName()));
    EXPECT_TRUE(archive.first().contains("SIGSEGV"));
    EXPECT_TRUE(archive.first().contains("Backtrace:"));
}
