// Sound Lab on a real X server, typed at with real key events: the whole road of a key from
// the window system through Qt and the shortcut registry to the action.
#ifdef QK_SOUNDLAB_EXECUTABLE

#include "QKTestPrinters.h"

#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include <gtest/gtest.h>

namespace {

constexpr int WaitLimit = 15000;

class SoundLab
{
public:
    // Starts Xvfb on a display of its choosing, then Sound Lab on it.
    SoundLab()
    {
        m_xvfb.start(QStandardPaths::findExecutable("Xvfb"),
                     {"-displayfd", "1", "-screen", "0", "1280x800x24", "-nolisten", "tcp"});
        // Xvfb writes the display number once it accepts connections.
        while (!m_xvfb.canReadLine() && m_xvfb.waitForReadyRead(WaitLimit)) {
        }
        const QString number = QString::fromLatin1(m_xvfb.readLine().trimmed());
        if (number.isEmpty()) {
            m_output = "Xvfb reported no display: " + m_xvfb.readAllStandardError();
            return;
        }
        m_environment.insert("DISPLAY", ':' + number);
        QProcessEnvironment environment = m_environment;
        environment.insert("QT_QPA_PLATFORM", "xcb");
        environment.insert("SOUNDLAB_TRACE", "1");
        m_app.setProcessEnvironment(environment);
        QObject::connect(&m_app, &QProcess::readyReadStandardError,
                         [this] { m_output += QString::fromUtf8(m_app.readAllStandardError()); });
        m_app.start(QStringLiteral(QK_SOUNDLAB_EXECUTABLE), {});
    }
    // However the test ends; QProcess kills what does not stop in time.
    ~SoundLab()
    {
        for (QProcess *process : {&m_app, &m_xvfb}) {
            process->terminate();
            process->waitForFinished(3000);
        }
    }

    bool isRunning() const { return m_app.state() == QProcess::Running; }

    /** How often the trace holds @p line (without its "trace: " prefix). */
    int count(const QString &line) const { return int(m_output.count("trace: " + line + '\n')); }

    /** Waits until the trace holds @p line at least @p times times. */
    bool waitFor(const QString &line, int times = 1)
    {
        return QTest::qWaitFor([&] { return count(line) >= times; }, WaitLimit);
    }

    /** Runs xdotool with @p arguments on Sound Lab's display; its standard output. */
    QString xdotool(const QStringList &arguments) const
    {
        QProcess tool;
        tool.setProcessEnvironment(m_environment);
        tool.start(QStandardPaths::findExecutable("xdotool"), arguments);
        tool.waitForFinished(WaitLimit);
        return QString::fromUtf8(tool.readAllStandardOutput()).trimmed();
    }

    std::string diagnostics() const { return m_output.toStdString(); }

private:
    QProcessEnvironment m_environment = QProcessEnvironment::systemEnvironment();
    QProcess m_xvfb;
    QProcess m_app;
    QString m_output;
};

} // namespace

TEST(SoundLabEndToEnd, typedKeysReachActionsTextFieldsAndTables)
{
    for (const char *tool : {"Xvfb", "xdotool"}) {
        ASSERT_FALSE(QStandardPaths::findExecutable(tool).isEmpty())
            << tool << " is not installed (scripts/test installs it)";
    }
    ASSERT_TRUE(QFileInfo(QStringLiteral(QK_SOUNDLAB_EXECUTABLE)).isExecutable())
        << "Sound Lab is not built: " << QK_SOUNDLAB_EXECUTABLE;

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
        WaitLimit))
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

#endif
