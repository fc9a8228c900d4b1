#include "SupportTestSupport.h"

#include "QKCrashReporter.h"

#include <QCoreApplication>
#include <QProcess>

using namespace SupportTest;

namespace {

const char *const CrashHomeVariable = "QK_SUPPORT_TEST_CRASH_HOME";

// A copy of this executable started with QK_SUPPORT_TEST_CRASH_HOME starts the help desk in
// that HOME as a host does at launch, then writes through a null pointer before any test.
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
        QKTestEnvironment::writeThrough(nullptr);
    }
};

[[maybe_unused]] ::testing::Environment *const s_crashingHost =
    ::testing::AddGlobalTestEnvironment(new CrashingHost);

} // namespace

// The offer itself is checked with the help desk's start-up; here the crash is real and its
// log reaches the site.
TEST(CrashReport, theNextLaunchReportsTheCrashWithItsLog)
{
    useOwnTemporaryFolder();
    QKSupportSiteProcess site;
    ASSERT_TRUE(site.isRunning());
    QProcess host;
    QProcessEnvironment environment = QKTestEnvironment::crashingChildEnvironment();
    environment.insert(CrashHomeVariable, QKTestEnvironment::homePath());
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
    QKHelpDeskSupport *pane = QKHelpDesk::helpDesk()->supportView();
    ASSERT_NE(pane, nullptr);
    EXPECT_EQ(paneWidget<QLineEdit>(pane, "emailText")->text(), "ada@example.org");
    EXPECT_EQ(paneWidget<QLineEdit>(pane, "emailSearchText")->text(), "ada@example.org");
    ASSERT_TRUE(
        waitUntil([pane] { return paneWidget<QComboBox>(pane, "categoryPopup")->count() > 1; }));

    submitRequest(pane, "Crashes & Bugs", "I clicked Crash.");
    ASSERT_EQ(waitForPanelEnd(), "Request sent successfully!");
    const QJsonArray documents = inspect(site, "documents");
    ASSERT_EQ(documents.size(), 1);
    EXPECT_EQ(documents[0]["name"].toString(), "crash_log");
    const QMap<QString, QByteArray> archive = documentEntries(site, documents[0]["id"].toInteger());
    ASSERT_EQ(archive.keys(), QStringList(QFileInfo(crashLogs[0]).fileName()));
    EXPECT_TRUE(archive.first().contains("SIGSEGV"));
    EXPECT_TRUE(archive.first().contains("Backtrace:"));
}
