// Sound Lab on a real X server, typed at with real key events: the whole road of a key from
// the window system through Qt and the shortcut registry to the action.
#include "QKTestPrinters.h"
#include "SoundLabProcess.h"

#include <gtest/gtest.h>

TEST(SoundLabEndToEnd, typedKeysReachActionsTextFieldsAndTables)
{
    if (!SoundLab::isBuilt())
        GTEST_SKIP() << "Sound Lab is not built (configured with QK_BUILD_EXAMPLES=OFF)";
    ASSERT_TRUE(SoundLab::toolsAreInstalled());

    SoundLab lab;
    ASSERT_TRUE(lab.waitFor("ready")) << lab.diagnostics();
    // The splash screen carries the application's name too until its fade-out ends; wait
    // until the main window is the only one left.
    QString window;
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            const QStringList found =
                lab.xdotool({"search", "--sync", "--onlyvisible", "--name", "^Sound Lab$"})
                    .split('\n', Qt::SkipEmptyParts);
            window = found.size() == 1 ? found.first() : QString();
            return !window.isEmpty();
        },
        SoundLab::WaitLimit))
        << lab.diagnostics();

    // The shortcut editor opens at the first launch and takes the focus; give it back to the
    // main window (there is no window manager to activate it).
    lab.xdotool({"windowfocus", "--sync", window});
    ASSERT_TRUE(lab.waitFor("focus trackTable")) << lab.diagnostics();

    // A bound combination performs its action once, through the registry. Down reaches the
    // table and marks that everything typed before was handled.
    lab.xdotool({"key", "ctrl+t", "Down"});
    ASSERT_TRUE(lab.waitFor("track row 1")) << lab.diagnostics();
    EXPECT_EQ(lab.count("action newTrack: from QKShortcut"), 1);
    EXPECT_EQ(lab.count("action newTrack: from QAction"), 0);
    // Left is not the table's: it nudges. Up is the table's again.
    lab.xdotool({"key", "Left", "Up"});
    ASSERT_TRUE(lab.waitFor("track row 0", 2)) << lab.diagnostics();
    EXPECT_EQ(lab.count("action nudgeLeft: from QKShortcut"), 1);
    // Space plays in the table.
    lab.xdotool({"key", "space", "Down"});
    ASSERT_TRUE(lab.waitFor("track row 1", 2)) << lab.diagnostics();
    EXPECT_EQ(lab.count("action togglePlayback: from QKShortcut"), 1);

    // The same keys in the notes, which fill the lower half of the window above the status
    // bar, only edit the text.
    const QString geometry = lab.xdotool({"getwindowgeometry", "--shell", window});
    const auto value = [&geometry](const QString &name) {
        return geometry.section(name + '=', 1).section('\n', 0, 0).toInt();
    };
    ASSERT_GT(value("HEIGHT"), 200);
    lab.xdotool({"mousemove", "--window", window, QString::number(value("WIDTH") / 2),
                 QString::number(value("HEIGHT") - 80), "click", "1"});
    ASSERT_TRUE(lab.waitFor("focus notes")) << lab.diagnostics();
    lab.xdotool({"key", "ctrl+t", "a", "space", "b", "Left", "c"});
    ASSERT_TRUE(lab.waitFor("notes a cb")) << lab.diagnostics();
    EXPECT_EQ(lab.count("action newTrack: from QKShortcut"), 1);
    EXPECT_EQ(lab.count("action togglePlayback: from QKShortcut"), 1);
    EXPECT_EQ(lab.count("action nudgeLeft: from QKShortcut"), 1);
    EXPECT_TRUE(lab.isRunning());
}
