#pragma once

// Sound Lab on a real X server (Xvfb), driven by xdotool and watched through its trace.

#include "QKTestEnvironment.h"

#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <QTest>

#include <gtest/gtest.h>

#include <csignal>

class SoundLab
{
public:
    static constexpr int WaitLimit = 15000;

    /** False in a build without the examples. */
    static bool isBuilt()
    {
        return QFileInfo(QStringLiteral(QK_SOUNDLAB_EXECUTABLE)).isExecutable();
    }

    /** Xvfb and xdotool are there; a failure names the one missing. */
    static ::testing::AssertionResult toolsAreInstalled()
    {
        for (const char *tool : {"Xvfb", "xdotool"}) {
            if (QStandardPaths::findExecutable(tool).isEmpty())
                return ::testing::AssertionFailure()
                       << tool << " is not installed (scripts/test installs it)";
        }
        return ::testing::AssertionSuccess();
    }

    // Starts Xvfb on a display of its choosing, then Sound Lab on it.
    SoundLab()
    {
        m_xvfb.start(
            QStandardPaths::findExecutable("Xvfb"),
            {"-displayfd", "1", "-screen", "0", "1280x800x24", "-nolisten", "tcp", "-noreset"});
        // Xvfb writes the display number once it accepts connections. Without -noreset it
        // resets when its last client goes, and refuses the next launch meanwhile.
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
        launch();
    }
    // However the test ends; QProcess kills what does not stop in time.
    ~SoundLab()
    {
        for (QProcess *process : {&m_app, &m_xvfb}) {
            process->terminate();
            process->waitForFinished(3000);
        }
    }

    /** Starts Sound Lab again on the same display once the last run has ended; the trace
     *  starts afresh. */
    void launch()
    {
        m_output.clear();
        m_app.start(QStringLiteral(QK_SOUNDLAB_EXECUTABLE), {});
        m_app.waitForStarted(WaitLimit);
    }

    /** Sends @p signal to Sound Lab and waits until it has gone. */
    bool kill(int signal)
    {
        ::kill(pid_t(m_app.processId()), signal);
        return m_app.waitForFinished(WaitLimit);
    }

    bool isRunning() const { return m_app.state() == QProcess::Running; }

    /** How often the trace holds @p line (without its "trace: " prefix). */
    int count(const QString &line) const { return int(m_output.count("trace: " + line + '\n')); }

    /** Waits until the trace holds @p line at least @p times times. */
    bool waitFor(const QString &line, int times = 1)
    {
        return QTest::qWaitFor([&] { return count(line) >= times; }, WaitLimit);
    }

    /** The object name of the widget that took the focus last, empty before any. */
    QString lastFocus() const
    {
        const qsizetype at = m_output.lastIndexOf(QLatin1String("trace: focus "));
        if (at < 0)
            return {};
        const qsizetype start = at + 13;
        return m_output.mid(start, m_output.indexOf('\n', start) - start);
    }

    /** Presses Tab in @p window until the widget named @p name has the focus. */
    bool tabTo(const QString &window, const QString &name)
    {
        for (int presses = 0; presses < 40 && lastFocus() != name; ++presses) {
            xdotool({"key", "--window", window, "Tab"});
            QTest::qWait(50);
        }
        return lastFocus() == name;
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

    /** The visible windows whose title matches @p pattern. */
    QStringList visibleWindows(const QString &pattern) const
    {
        return xdotool({"search", "--onlyvisible", "--name", pattern})
            .split('\n', Qt::SkipEmptyParts);
    }

    std::string diagnostics() const
    {
        QString text = m_output;
        if (m_app.state() == QProcess::NotRunning)
            text += QStringLiteral("\n[Sound Lab ended: exit %1, %2, %3]")
                        .arg(m_app.exitCode())
                        .arg(m_app.exitStatus() == QProcess::CrashExit ? "crashed" : "exited")
                        .arg(m_app.errorString());
        return text.toStdString();
    }

private:
    // Some tests kill Sound Lab with a signal its crash reporter must see.
    QProcessEnvironment m_environment = QKTestEnvironment::crashingChildEnvironment();
    QProcess m_xvfb;
    QProcess m_app;
    QString m_output;
};
