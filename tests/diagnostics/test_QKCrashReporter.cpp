#include "DiagnosticsTestSupport.h"

#include "QKCrashReporter.h"
#include "QKTestEnvironment.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <signal.h>

using namespace DiagnosticsTest;

namespace {

const QString HostName = QStringLiteral("Test Host");

// The one crash log a child left, cut into its parts.
struct CrashLog
{
    QString fileName;
    QByteArray header;
    QList<QByteArray> backtrace;
    QByteArray memoryMap;
};

CrashLog onlyCrashLog()
{
    const QStringList paths = QKCrashReporter::crashLogPaths(HostName);
    EXPECT_EQ(paths.size(), 1) << paths.join(QLatin1Char(' ')).toStdString();
    if (paths.isEmpty())
        return {};
    const QByteArray text = QKTestEnvironment::readAll(paths.first());
    const qsizetype backtraceStart = text.indexOf("\nBacktrace:\n");
    const qsizetype mapStart = text.indexOf("\nMemory map:\n");
    EXPECT_GT(backtraceStart, 0) << text.toStdString();
    EXPECT_GT(mapStart, backtraceStart) << text.toStdString();
    CrashLog log;
    log.fileName = QFileInfo(paths.first()).fileName();
    log.header = text.left(backtraceStart + 1);
    const QByteArray frames = text.mid(backtraceStart + 12, mapStart - backtraceStart - 12);
    log.backtrace = frames.trimmed().split('\n');
    log.memoryMap = text.mid(mapStart + 13);
    return log;
}

QString crashFolder()
{
    return QKTestEnvironment::homeFile(QStringLiteral("Library/Logs/CrashReporter"));
}

// backtrace_symbols_fd: "module(function+0xoffset)[0xaddress]" or "module(+0xoffset)[...]".
bool isFrameLine(const QByteArray &line)
{
    static const QRegularExpression frame(QStringLiteral("^/\\S.*\\(\\S*\\)\\[0x[0-9a-f]+\\]$"));
    return frame.match(QString::fromUtf8(line)).hasMatch();
}

} // namespace

TEST(QKCrashReporter, segmentationFaultLeavesALogAndTheProcessDiesOfIt)
{
    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    const ChildRun run = runCrashChild(QStringLiteral("segv"));
    const QDateTime after = QDateTime::currentDateTime().addSecs(1);
    EXPECT_EQ(run.exitStatus, QProcess::CrashExit) << run.output.toStdString();
    EXPECT_EQ(run.exitCode, SIGSEGV);

    const CrashLog log = onlyCrashLog();
    static const QRegularExpression name(
        QStringLiteral("^Test Host_(\\d{4}-\\d{2}-\\d{2}-\\d{6})\\.crash$"));
    const QRegularExpressionMatch match = name.match(log.fileName);
    ASSERT_TRUE(match.hasMatch()) << log.fileName.toStdString();
    const QDateTime crashTime =
        QDateTime::fromString(match.captured(1), QStringLiteral("yyyy-MM-dd-HHmmss"));
    EXPECT_GE(crashTime, before.addMSecs(-before.time().msec()));
    EXPECT_LE(crashTime, after);

    const std::string header = log.header.toStdString();
    EXPECT_TRUE(log.header.startsWith("Process:         Test Host\n")) << header;
    EXPECT_TRUE(log.header.contains("\nVersion:         2.5b1 (2501)\n")) << header;
    EXPECT_TRUE(log.header.contains("\nPID:             " + QByteArray::number(run.pid) + '\n'))
        << header;
    EXPECT_TRUE(log.header.contains("\nSignal:          11 (SIGSEGV)\n")) << header;
    EXPECT_TRUE(log.header.contains("\nFault address:   0x0000000000000000\n")) << header;
    EXPECT_TRUE(log.header.contains(
        "\nDate/Time:       " + crashTime.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")).toUtf8()))
        << header;

    ASSERT_GE(log.backtrace.size(), 5);
    for (const QByteArray &line : log.backtrace)
        EXPECT_TRUE(isFrameLine(line)) << line.toStdString();
    // It starts where the fault happened, in the test program, not in the handler.
    EXPECT_TRUE(log.backtrace.first().contains("/tst_diagnostics("))
        << log.backtrace.first().toStdString();
    EXPECT_TRUE(log.memoryMap.contains("libQKUtilities.so"));
    EXPECT_TRUE(log.memoryMap.contains("[stack]"));
}

TEST(QKCrashReporter, abortIsLoggedWithItsSenderAndStillAborts)
{
    const ChildRun run = runCrashChild(QStringLiteral("abort"));
    EXPECT_EQ(run.exitStatus, QProcess::CrashExit) << run.output.toStdString();
    EXPECT_EQ(run.exitCode, SIGABRT);

    const CrashLog log = onlyCrashLog();
    EXPECT_TRUE(log.header.contains("\nSignal:          6 (SIGABRT)\n"))
        << log.header.toStdString();
    EXPECT_TRUE(log.header.contains("\nSender PID:      " + QByteArray::number(run.pid) + '\n'))
        << log.header.toStdString();
    EXPECT_FALSE(log.header.contains("Fault address"));
    EXPECT_TRUE(log.backtrace.join('\n').contains("(abort+0x"))
        << log.backtrace.join('\n').toStdString();
}

TEST(QKCrashReporter, stackOverflowIsCaughtOnTheAlternateStack)
{
    const ChildRun run = runCrashChild(QStringLiteral("overflow"));
    EXPECT_EQ(run.exitStatus, QProcess::CrashExit) << run.output.toStdString();
    EXPECT_EQ(run.exitCode, SIGSEGV);

    const CrashLog log = onlyCrashLog();
    EXPECT_TRUE(log.header.contains("\nSignal:          11 (SIGSEGV)\n"))
        << log.header.toStdString();
    // The recursion fills the backtrace with one and the same return address.
    ASSERT_FALSE(log.backtrace.isEmpty());
    EXPECT_GE(log.backtrace.count(log.backtrace.last()), 100);
}

TEST(QKCrashReporter, hostHandlersInstalledBeforeRunWithTheFaultDetails)
{
    const struct
    {
        const char *mode;
        QProcess::ExitStatus status;
        int code; // the host's segmentation handler ends the process its own way
        QByteArray marker, header;
    } cases[] = {
        {"chain-segv", QProcess::NormalExit, 77, "signal 11 address 0x40\n",
         "\nFault address:   0x0000000000000040\n"},
        {"chain-abort", QProcess::CrashExit, SIGABRT, "abort handler ran\n", "(SIGABRT)"},
    };
    const QString marker = QKTestEnvironment::homeFile(QStringLiteral("host-handler"));
    for (const auto &c : cases) {
        SCOPED_TRACE(c.mode);
        QFile::remove(marker);
        QDir(crashFolder()).removeRecursively();
        const ChildRun run = runCrashChild(QString::fromLatin1(c.mode), marker);
        EXPECT_EQ(run.exitStatus, c.status) << run.output.toStdString();
        EXPECT_EQ(run.exitCode, c.code);
        EXPECT_EQ(QKTestEnvironment::readAll(marker), c.marker) << "the host handler runs once";
        EXPECT_TRUE(onlyCrashLog().header.contains(c.header));
    }
}

TEST(QKCrashReporter, installPreparesTheFolderButWritesNothingUntilACrash)
{
    // Neither the user's folder nor the system folder exists here.
    ASSERT_FALSE(QFileInfo::exists(crashFolder()));
    ASSERT_FALSE(QFileInfo::exists(QStringLiteral("/Library/Logs/CrashReporter")));
    EXPECT_TRUE(QKCrashReporter::crashLogPaths(HostName).isEmpty());

    EXPECT_TRUE(QKCrashReporter::install());
    EXPECT_TRUE(QKCrashReporter::install());
    EXPECT_EQ(QKCrashReporter::crashReporterFolder(), crashFolder());
    EXPECT_TRUE(QFileInfo(crashFolder()).isDir());
    EXPECT_TRUE(
        QDir(crashFolder()).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));

    // A file where the folder should be is no folder to list.
    ASSERT_TRUE(QDir(crashFolder()).removeRecursively());
    ASSERT_TRUE(QKTestEnvironment::writeAll(crashFolder(), "not a folder"));
    EXPECT_TRUE(QKCrashReporter::crashLogPaths(HostName).isEmpty());
}

TEST(QKCrashReporter, crashLogPathsTakeEveryEntryThatBeginsWithTheName)
{
    const QDir folder(crashFolder());
    for (const char *name : {"Foo_2026-11-20-101010.crash", "Bar_2026-11-21-090000.crash",
                             "Foo Pro_2026-11-21-090000.crash", "foo_2026-11-21-090000.crash",
                             "My Foo_2026-11-21-090000.crash", ".Foo_hidden.crash"}) {
        ASSERT_TRUE(QKTestEnvironment::writeAll(folder.filePath(QString::fromUtf8(name)), "log"));
    }
    ASSERT_TRUE(folder.mkdir(QStringLiteral("Foo crashes")));

    // Listing order, case-sensitive prefix: another application's name that starts with
    // this one counts, and so does a folder.
    EXPECT_EQ(QKCrashReporter::crashLogPaths(QStringLiteral("Foo")),
              QStringList({folder.filePath(QStringLiteral("Foo Pro_2026-11-21-090000.crash")),
                           folder.filePath(QStringLiteral("Foo crashes")),
                           folder.filePath(QStringLiteral("Foo_2026-11-20-101010.crash"))}));
    EXPECT_EQ(QKCrashReporter::crashLogPaths(QStringLiteral("Foo Pro")).size(), 1);
    EXPECT_TRUE(QKCrashReporter::crashLogPaths(QStringLiteral("Baz")).isEmpty());
}
