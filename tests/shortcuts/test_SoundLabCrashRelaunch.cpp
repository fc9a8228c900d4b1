// Sound Lab killed by a fatal signal, started again, asked about the crash through a real
// message box while its splash screen goes away, and the report sent: the launch after a crash
// must survive and reach the help desk.
#include "QKTestPrinters.h"
#include "SoundLabProcess.h"

#include <QKCrashReporter.h>
#include <QKFile.h>
#include <QKSupportSiteProcess.h>

#include <QDir>
#include <QJsonArray>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <algorithm>

TEST(SoundLabEndToEnd, theLaunchAfterACrashAsksAboutItAndSendsTheReport)
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
    EXPECT_TRUE(QFileInfo::exists(marker));

    // The user picks a category and submits the pre-filled report: the site receives the
    // request with the crash log attached.
    const QStringList desks = lab.visibleWindows(u"Help Desk"_s);
    ASSERT_FALSE(desks.isEmpty()) << lab.diagnostics();
    const QString desk = desks.constFirst();
    lab.xdotool({"windowfocus", "--sync", desk});
    // The category pop-up takes the focus once the categories have arrived with the casts.
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return lab.tabTo(desk, u"categoryPopup"_s); }, SoundLab::WaitLimit))
        << lab.diagnostics();
    lab.xdotool({"key", "--window", desk, "Down"});
    ASSERT_TRUE(lab.tabTo(desk, u"submitButton"_s)) << lab.diagnostics();
    // Space alone is Sound Lab's Play/Stop, and every key reaches the shortcuts first.
    lab.xdotool({"key", "--window", desk, "shift+space"});
    QJsonArray documents;
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            documents = site.inspect(u"documents"_s);
            return !documents.isEmpty();
        },
        SoundLab::WaitLimit * 2))
        << lab.diagnostics();
    ASSERT_EQ(documents.size(), 1);
    EXPECT_EQ(documents.first()[u"name"_s].toString(), u"crash_log"_s);
    EXPECT_GT(documents.first()[u"size"_s].toInt(), 0);
    const QJsonArray requests = site.inspect(u"requests"_s);
    EXPECT_TRUE(std::any_of(requests.begin(), requests.end(), [](const QJsonValue &request) {
        return request[u"fields"_s][u"tBody"_s].toString().startsWith(u"I had a crash!"_s);
    }));
    EXPECT_TRUE(lab.isRunning()) << lab.diagnostics();
}
