// Sound Lab on a real X server, typed at with real key events: the whole road of a key from
// the window system through Qt and the shortcut registry to the action.
#ifdef QK_SOUNDLAB_EXECUTABLE

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>
#include <QThread>

#include <gtest/gtest.h>

#include <memory>

namespace {

constexpr int WaitLimit = 15000;

// Stops a process this test started, however the test ends.
struct ProcessGuard
{
    std::unique_ptr<QProcess> process = std::make_unique<QProcess>();
    ~ProcessGuard()
    {
        if (process->state() == QProcess::NotRunning)
            return;
        process->terminate();
        if (!process->waitForFinished(3000)) {
            process->kill();
            process->waitForFinished(3000);
        }
    }
};

QString findTool(const QString &name)
{
    return QStandardPaths::findExecutable(name);
}

bool displayInUse(int number)
{
    return QFileInfo::exists(QStringLiteral("/tmp/.X11-unix/X%1").arg(number)) ||
           QFileInfo::exists(QStringLiteral("/tmp/.X%1-lock").arg(number));
}

// True once the server of @p number is up and is @p server: the lock file names its owner, so
// a server that another test started on the same number at the same moment is not taken.
bool serverReady(int number, const QProcess &server)
{
    QFile lock(QStringLiteral("/tmp/.X%1-lock").arg(number));
    if (!QFileInfo::exists(QStringLiteral("/tmp/.X11-unix/X%1").arg(number)) ||
        !lock.open(QIODevice::ReadOnly))
        return false;
    return lock.readAll().trimmed().toLongLong() == server.processId();
}

// Starts Xvfb on the first free display from :90 on; the display name, or empty.
QString startXvfb(ProcessGuard &xvfb, const QString &program)
{
    for (int number = 90; number < 190; ++number) {
        if (displayInUse(number))
            continue;
        const QString display = QStringLiteral(":%1").arg(number);
        xvfb.process->start(program, {display, "-screen", "0", "1280x800x24", "-nolisten", "tcp"});
        if (!xvfb.process->waitForStarted(5000))
            return QString();
        const bool ready = QTest::qWaitFor(
            [&] {
                return serverReady(number, *xvfb.process) ||
                       xvfb.process->state() == QProcess::NotRunning;
            },
            WaitLimit);
        if (ready && xvfb.process->state() == QProcess::Running)
            return display;
        // Another server took the number meanwhile; try the next one.
        xvfb.process->kill();
        xvfb.process->waitForFinished(3000);
    }
    return QString();
}

class SoundLab
{
public:
    explicit SoundLab(const QString &display) : m_display(display)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("DISPLAY", display);
        environment.insert("QT_QPA_PLATFORM", "xcb");
        environment.insert("SOUNDLAB_TRACE", "1");
        m_app.process->setProcessEnvironment(environment);
        QObject::connect(m_app.process.get(), &QProcess::readyReadStandardError, [this] {
            m_output += QString::fromUtf8(m_app.process->readAllStandardError());
        });
        m_app.process->start(QStringLiteral(QK_SOUNDLAB_EXECUTABLE), {});
    }

    QProcess *process() const { return m_app.process.get(); }

    /** The trace lines so far, without their "trace: " prefix. */
    QStringList trace() const
    {
        QStringList lines;
        for (const QString &line : m_output.split('\n')) {
            if (line.startsWith("trace: "))
                lines << line.mid(7);
        }
        return lines;
    }

    int count(const QString &line) const { return int(trace().count(line)); }

    /** Waits until the trace holds @p line at least @p times times. */
    bool waitFor(const QString &line, int times = 1)
    {
        return QTest::qWaitFor([&] { return count(line) >= times; }, WaitLimit);
    }

    /** Runs xdotool with @p arguments on Sound Lab's display; its standard output. */
    QString xdotool(const QStringList &arguments, int *exitCode = nullptr) const
    {
        QProcess tool;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("DISPLAY", m_display);
        tool.setProcessEnvironment(environment);
        tool.start(findTool("xdotool"), arguments);
        tool.waitForFinished(WaitLimit);
        if (exitCode)
            *exitCode = tool.exitStatus() == QProcess::NormalExit ? tool.exitCode() : -1;
        return QString::fromUtf8(tool.readAllStandardOutput()).trimmed();
    }

    QString diagnostics() const { return m_output; }

private:
    QString m_display;
    ProcessGuard m_app;
    QString m_output;
};

} // namespace

TEST(SoundLabEndToEnd, typedKeysReachActionsTextFieldsAndTables)
{
    const QString xvfbProgram = findTool("Xvfb");
    ASSERT_FALSE(xvfbProgram.isEmpty())
        << "Xvfb is not installed (Debian package xvfb; scripts/test installs it)";
    ASSERT_FALSE(findTool("xdotool").isEmpty())
        << "xdotool is not installed (Debian package xdotool; scripts/test installs it)";
    ASSERT_TRUE(QFileInfo(QStringLiteral(QK_SOUNDLAB_EXECUTABLE)).isExecutable())
        << "Sound Lab is not built: " << QK_SOUNDLAB_EXECUTABLE;

    ProcessGuard xvfb;
    const QString display = startXvfb(xvfb, xvfbProgram);
    ASSERT_FALSE(display.isEmpty()) << "Xvfb did not start on any free display";

    SoundLab lab(display);
    ASSERT_TRUE(lab.waitFor("ready")) << qPrintable(lab.diagnostics());
    // The splash screen carries the application's name too until its fade-out ends; wait
    // until the main window is the only one left.
    QString window;
    for (int attempt = 0; attempt < 50; ++attempt) {
        const QStringList found =
            lab.xdotool({"search", "--sync", "--onlyvisible", "--name", "^Sound Lab$"})
                .split('\n', Qt::SkipEmptyParts);
        if (found.size() == 1) {
            window = found.first();
            break;
        }
        QThread::msleep(100);
    }
    ASSERT_FALSE(window.isEmpty()) << qPrintable(lab.diagnostics());

    // The shortcut editor opens at the first launch and takes the focus; give it back to the
    // main window. Without a window manager, activation falls back to focusing the window.
    int exitCode = 0;
    lab.xdotool({"windowactivate", "--sync", window}, &exitCode);
    if (exitCode != 0)
        lab.xdotool({"windowfocus", "--sync", window});
    ASSERT_TRUE(lab.waitFor("focus trackTable")) << qPrintable(lab.diagnostics());

    // A bound combination performs its action once, through the registry.
    lab.xdotool({"key", "ctrl+t"});
    // Down reaches the table and marks that everything typed before was handled.
    lab.xdotool({"key", "Down"});
    ASSERT_TRUE(lab.waitFor("track row 1")) << qPrintable(lab.diagnostics());
    EXPECT_EQ(lab.count("action newTrack: from QKShortcut"), 1);
    EXPECT_EQ(lab.count("action newTrack: from QAction"), 0);

    // Left is not the table's: it nudges. Up is the table's again.
    lab.xdotool({"key", "Left", "Up"});
    ASSERT_TRUE(lab.waitFor("track row 0", 2)) << qPrintable(lab.diagnostics());
    EXPECT_EQ(lab.count("action nudgeLeft: from QKShortcut"), 1);

    // Space plays in the table.
    lab.xdotool({"key", "space", "Down"});
    ASSERT_TRUE(lab.waitFor("track row 1", 2)) << qPrintable(lab.diagnostics());
    EXPECT_EQ(lab.count("action togglePlayback: from QKShortcut"), 1);

    // The same keys in the notes only edit the text.
    const QStringList geometry = lab.xdotool({"getwindowgeometry", "--shell", window}).split('\n');
    int width = 0;
    int height = 0;
    for (const QString &entry : geometry) {
        if (entry.startsWith("WIDTH="))
            width = entry.mid(6).toInt();
        else if (entry.startsWith("HEIGHT="))
            height = entry.mid(7).toInt();
    }
    ASSERT_GT(height, 200);
    // The notes fill the lower half of the window, above the status bar.
    lab.xdotool({"mousemove", "--window", window, QString::number(width / 2),
                 QString::number(height - 80), "click", "1"});
    ASSERT_TRUE(lab.waitFor("focus notes")) << qPrintable(lab.diagnostics());
    lab.xdotool({"key", "ctrl+t", "a", "space", "b", "Left", "c"});
    ASSERT_TRUE(lab.waitFor("notes a cb")) << qPrintable(lab.diagnostics());
    EXPECT_EQ(lab.count("action newTrack: from QKShortcut"), 1);
    EXPECT_EQ(lab.count("action togglePlayback: from QKShortcut"), 1);
    EXPECT_EQ(lab.count("action nudgeLeft: from QKShortcut"), 1);
    EXPECT_EQ(lab.process()->state(), QProcess::Running);
}

#endif
