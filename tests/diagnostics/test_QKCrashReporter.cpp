#include "DiagnosticsTestSupport.h"

#include "QKCrashReporter.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>

using namespace DiagnosticsTest;

namespace {

// The child side: when QK_CRASH_CHILD names a way to crash, this test program installs the
// reporter as a host would and crashes while the test environment is set up.

volatile bool g_stopRecursion = false;
char g_markerPath[PATH_MAX];

void writeMarker(const char *text)
{
    const int fd = ::open(g_markerPath, O_WRONLY | O_CREAT | O_APPEND, 0644);
    [[maybe_unused]] const ssize_t written = ::write(fd, text, std::strlen(text));
    ::close(fd);
}

// The host's fault handler must see the fault's genuine details.
void hostFaultHandler(int signal, siginfo_t *info, void *)
{
    const bool genuine = signal == SIGSEGV && info->si_addr == reinterpret_cast<void *>(0x40);
    writeMarker(genuine ? "fault at 0x40\n" : "wrong fault details\n");
    ::_exit(77);
}

// Returns, so abort() goes on to the default action.
void hostAbortHandler(int)
{
    writeMarker("abort handler ran\n");
}

Q_NEVER_INLINE int overflowStack(int depth)
{
    volatile char frame[2048];
    frame[0] = char(depth);
    if (g_stopRecursion)
        return frame[0];
    return overflowStack(depth + 1) + frame[0];
}

class CrashChildEnvironment : public ::testing::Environment
{
public:
    void SetUp() override
    {
        const QByteArray mode = qgetenv("QK_CRASH_CHILD");
        if (mode.isEmpty())
            return;
        // Crash logs go to the parent test's HOME.
        QDir(QKTestEnvironment::homePath()).removeRecursively();
        qputenv("HOME", qgetenv("QK_CRASH_CHILD_HOME"));
        const QByteArray marker = qgetenv("QK_CRASH_CHILD_HOME") + "/host-handler";
        std::strncpy(g_markerPath, marker.constData(), sizeof(g_markerPath) - 1);
        const rlimit noCoreFile = {0, 0};
        ::setrlimit(RLIMIT_CORE, &noCoreFile);

        struct sigaction host = {};
        sigemptyset(&host.sa_mask);
        if (mode == "chain-segv") {
            host.sa_sigaction = hostFaultHandler;
            host.sa_flags = SA_SIGINFO;
            ::sigaction(SIGSEGV, &host, nullptr);
        } else if (mode == "chain-abort") {
            host.sa_handler = hostAbortHandler;
            ::sigaction(SIGABRT, &host, nullptr);
        }
        if (!QKCrashReporter::install() || !QKCrashReporter::install())
            std::_Exit(2);
        if (mode.endsWith("segv")) {
            QKTestEnvironment::writeThrough(mode == "segv" ? nullptr
                                                           : reinterpret_cast<int *>(0x40));
        } else if (mode.endsWith("abort")) {
            std::abort();
        } else if (mode == "overflow") {
            overflowStack(0);
        }
        std::_Exit(3); // did not crash
    }
};

[[maybe_unused]] ::testing::Environment *const crashChildEnvironment =
    ::testing::AddGlobalTestEnvironment(new CrashChildEnvironment);

struct ChildRun
{
    QProcess::ExitStatus exitStatus;
    int exitCode; // the signal number after a crash
    qint64 pid;
    QByteArray output;
};

ChildRun runCrashChild(const char *mode)
{
    QProcessEnvironment environment = QKTestEnvironment::crashingChildEnvironment();
    environment.insert(u"QK_CRASH_CHILD"_s, QString::fromLatin1(mode));
    environment.insert(u"QK_CRASH_CHILD_HOME"_s, QKTestEnvironment::homePath());
    QProcess child;
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::MergedChannels);
    // The filter only has to leave one test, so that the environment is set up at all.
    child.start(QCoreApplication::applicationFilePath(), {u"--gtest_filter=QKCrashReporter.*"_s});
    const qint64 pid = child.waitForStarted(30000) ? child.processId() : 0;
    child.waitForFinished(60000);
    return {child.exitStatus(), child.exitCode(), pid, child.readAll()};
}

const QString HostName = u"Test Host"_s;

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
    EXPECT_EQ(paths.size(), 1) << paths.join(u' ').toStdString();
    const QByteArray text = QKTestEnvironment::readAll(paths.value(0));
    const qsizetype frames = text.indexOf("\nBacktrace:\n"), map = text.indexOf("\nMemory map:\n");
    EXPECT_TRUE(frames > 0 && map > frames) << text.toStdString();
    return {QFileInfo(paths.value(0)).fileName(), text.left(frames + 1),
            text.mid(frames + 12, map - frames - 12).trimmed().split('\n'), text.mid(map + 13)};
}

QString crashFolder()
{
    return QKTestEnvironment::homeFile(u".local/state/CrashReporter"_s);
}

} // namespace

TEST(QKCrashReporter, fatalSignalsLeaveALogAndReachTheHandlersInstalledBefore)
{
    const struct
    {
        const char *mode;
        QProcess::ExitStatus status;
        int code;          // the host's fault handler ends the process its own way
        QByteArray marker; // what the host's own handler noted
        QByteArray headerLine;
    } cases[] = {
        {"segv", QProcess::CrashExit, SIGSEGV, "", "Fault address:   0x0000000000000000\n"},
        {"abort", QProcess::CrashExit, SIGABRT, "", "Signal:          6 (SIGABRT)\n"},
        // Caught on the alternate stack.
        {"overflow", QProcess::CrashExit, SIGSEGV, "", "Signal:          11 (SIGSEGV)\n"},
        {"chain-segv", QProcess::NormalExit, 77, "fault at 0x40\n",
         "Fault address:   0x0000000000000040\n"},
        {"chain-abort", QProcess::CrashExit, SIGABRT, "abort handler ran\n",
         "Signal:          6 (SIGABRT)\n"},
    };
    static const QRegularExpression name(u"^Test Host_(\\d{4}-\\d{2}-\\d{2}-\\d{6})\\.crash$"_s);
    // backtrace_symbols_fd: "module(function+0xoffset)[0xaddress]" or "module(+0xoffset)[...]".
    static const QRegularExpression frame(u"^/\\S.*\\(\\S*\\)\\[0x[0-9a-f]+\\]$"_s);
    const QString marker = QKTestEnvironment::homeFile(u"host-handler"_s);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.mode);
        QFile::remove(marker);
        QDir(crashFolder()).removeRecursively();
        QDateTime before = QDateTime::currentDateTime().addSecs(-1);
        before = before.addMSecs(-before.time().msec());
        const ChildRun run = runCrashChild(c.mode);
        const QDateTime after = QDateTime::currentDateTime().addSecs(1);
        EXPECT_EQ(run.exitStatus, c.status) << run.output.toStdString();
        EXPECT_EQ(run.exitCode, c.code);
        EXPECT_EQ(QKTestEnvironment::readAll(marker), c.marker) << "the host handler runs once";

        const CrashLog log = onlyCrashLog();
        const QRegularExpressionMatch match = name.match(log.fileName);
        ASSERT_TRUE(match.hasMatch()) << log.fileName.toStdString();
        const QDateTime time = QDateTime::fromString(match.captured(1), u"yyyy-MM-dd-HHmmss"_s);
        EXPECT_GE(time, before);
        EXPECT_LE(time, after);
        const bool aborted = c.code == SIGABRT;
        const std::string header = log.header.toStdString();
        EXPECT_TRUE(log.header.startsWith("Process:         Test Host\n")) << header;
        // The date is followed by the UTC offset.
        for (const QByteArray &line :
             {QByteArray("Version:         2.5b1 (2501)\n"),
              "PID:             " + QByteArray::number(run.pid) + '\n',
              "Date/Time:       " + time.toString(u"yyyy-MM-dd HH:mm:ss "_s).toUtf8(),
              QByteArray(aborted ? "Signal:          6 (SIGABRT)\n"
                                 : "Signal:          11 (SIGSEGV)\n"),
              c.headerLine})
            EXPECT_TRUE(log.header.contains('\n' + line)) << line.toStdString() << header;
        // A sent signal names its sender; a fault its address.
        EXPECT_EQ(log.header.contains("\nSender PID:      " + QByteArray::number(run.pid) + '\n'),
                  aborted);
        EXPECT_EQ(log.header.contains("\nFault address:"), !aborted);

        ASSERT_GE(log.backtrace.size(), 5);
        for (const QByteArray &line : log.backtrace)
            EXPECT_TRUE(frame.match(QString::fromUtf8(line)).hasMatch()) << line.toStdString();
        // It starts where the signal struck, not in the handler.
        EXPECT_EQ(log.backtrace.first().contains("/tst_diagnostics("), !aborted)
            << log.backtrace.first().toStdString();
        EXPECT_EQ(log.backtrace.join('\n').contains("(abort+0x"), aborted);
        // The recursion fills the backtrace with one and the same return address.
        EXPECT_EQ(log.backtrace.count(log.backtrace.last()) >= 100,
                  std::string_view(c.mode) == "overflow");
        EXPECT_TRUE(log.memoryMap.contains("libQKUtilities.so"));
        EXPECT_TRUE(log.memoryMap.contains("[stack]"));
    }
}

TEST(QKCrashReporter, installPreparesTheFolderButWritesNothingUntilACrash)
{
    ASSERT_FALSE(QFileInfo::exists(crashFolder()));
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
    for (const char *name :
         {"Foo_2026-11-20-101010.crash", "Bar_2026-11-21-090000.crash",
          "Foo Pro_2026-11-21-090000.crash", "foo_2026-11-21-090000.crash",
          "My Foo_2026-11-21-090000.crash", ".Foo_hidden.crash", "AC-DC_2026-11-22-080000.crash"}) {
        ASSERT_TRUE(QKTestEnvironment::writeAll(folder.filePath(QString::fromUtf8(name)), "log"));
    }
    ASSERT_TRUE(folder.mkdir(u"Foo crashes"_s));

    // Listing order, case-sensitive prefix: another application's name that starts with
    // this one counts, and so does a folder.
    EXPECT_EQ(QKCrashReporter::crashLogPaths(u"Foo"_s),
              QStringList({folder.filePath(u"Foo Pro_2026-11-21-090000.crash"_s),
                           folder.filePath(u"Foo crashes"_s),
                           folder.filePath(u"Foo_2026-11-20-101010.crash"_s)}));
    // The slash of a name stands as the dash the log's name was written with.
    EXPECT_EQ(QKCrashReporter::crashLogPaths(u"AC/DC"_s),
              QStringList({folder.filePath(u"AC-DC_2026-11-22-080000.crash"_s)}));
}
