// Sound Lab killed by a fatal signal, started again, and asked about the crash through a real
// message box while its splash screen goes away: the launch after a crash must survive.
#include "QKTestPrinters.h"
#include "SoundLabProcess.h"

#include <QKCrashReporter.h>
#include <QKFile.h>
#include <QKSupportSiteProcess.h>

#include <QDir>

#include <gtest/gtest.h>

TEST(SoundLabEndToEnd, theLaunchAfterACrashAsksAboutItAndCarriesOn)
{
    if (!SoundLab::isBuilt())
        GTEST_SKIP() << "Sound Lab is not built (configured with QK_BUILD_EXAMPLES=OFF)";
    ASSERT_TRUE(SoundLab::toolsAreInstalled());
    QKSupportSiteProcess site;
    ASSERT_TRUE(site.isRunning()) << qPrintable(site.errorString());

    SoundLab lab;
    ASSERT_TRUE(lab.waitFor("ready")) << lab.diagnostics();
    const QString marker =
        QKFile::conformPath(u"~/Library/Application Support/Velmora/Sound Lab/.launched"_s);
    ASSERT_TRUE(QFileInfo::exists(marker)) << qPrintable(marker);
    ASSERT_TRUE(lab.kill(SIGSEGV));
    EXPECT_TRUE(QFileInfo::exists(marker));
    EXPECT_EQ(QDir(QKCrashReporter::crashReporterFolder()).entryList({u"*.crash"_s}).size(), 1);

    // The question comes up while the splash screen closes. Windows behind a modal box take
    // no keys, so Return is sent to every window of that name and only the box answers Yes.
    lab.launch();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            for (const QString &window : lab.visibleWindows(u"^Sound Lab$"_s)) {
                lab.xdotool({"windowfocus", "--sync", window});
                lab.xdotool({"key", "--window", window, "Return"});
            }
            return lab.count(u"ready"_s) > 0 || !lab.isRunning();
        },
        SoundLab::WaitLimit * 2))
        << lab.diagnostics();
    ASSERT_TRUE(lab.isRunning()) << lab.diagnostics();
    // Yes opened the help desk on its support pane; the run goes on with a new marker.
    EXPECT_TRUE(QTest::qWaitFor([&] { return !lab.visibleWindows(u"Help Desk"_s).isEmpty(); },
                                SoundLab::WaitLimit))
        << lab.diagnostics();
    QTest::qWait(500);
    EXPECT_TRUE(lab.isRunning()) << lab.diagnostics();
    EXPECT_TRUE(QFileInfo::exists(marker));
}
