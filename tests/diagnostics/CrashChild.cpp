// The child side of the crash tests: when QK_CRASH_CHILD names a way to crash, this test
// program installs the crash reporter as a host would and crashes that way while the test
// environment is set up, after the application object exists and before any test runs.

#include "QKCrashReporter.h"
#include "QKTestEnvironment.h"

#include <QDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

volatile bool g_stopRecursion = false;
char g_markerPath[PATH_MAX];

void writeMarker(const char *text)
{
    const int fd = ::open(g_markerPath, O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (fd < 0)
        return;
    [[maybe_unused]] const ssize_t written = ::write(fd, text, std::strlen(text));
    ::close(fd);
}

// "signal <n> address 0x<hex>\n", without stdio: this runs in a signal handler.
void hostFaultHandler(int signal, siginfo_t *info, void *)
{
    char text[64] = "signal ";
    size_t length = std::strlen(text);
    text[length++] = char('0' + signal / 10);
    text[length++] = char('0' + signal % 10);
    std::memcpy(text + length, " address 0x", 11);
    length += 11;
    const uintptr_t address = uintptr_t(info->si_addr);
    for (int shift = 60; shift >= 0; shift -= 4) {
        if ((address >> shift) != 0 || shift == 0)
            text[length++] = "0123456789abcdef"[(address >> shift) & 0xf];
    }
    text[length++] = '\n';
    text[length] = '\0';
    writeMarker(text);
    ::_exit(77);
}

// Returns, so abort() goes on to the default action.
void hostAbortHandler(int)
{
    writeMarker("abort handler ran\n");
}

void installHostHandler(int signal, bool withInfo)
{
    struct sigaction action = {};
    if (withInfo) {
        action.sa_sigaction = hostFaultHandler;
        action.sa_flags = SA_SIGINFO;
    } else {
        action.sa_handler = hostAbortHandler;
    }
    sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
}

Q_NEVER_INLINE int overflowStack(int depth)
{
    volatile char frame[2048];
    frame[0] = char(depth);
    if (g_stopRecursion)
        return frame[0];
    return overflowStack(depth + 1) + frame[0];
}

// Read through a volatile, so the compiler cannot see the bad address and drop the write.
int *volatile g_target = nullptr;

Q_NEVER_INLINE void writeThrough(int *pointer)
{
    g_target = pointer;
    *g_target = 42;
}

void crash(const QByteArray &mode)
{
    if (mode == "segv" || mode == "chain-segv")
        writeThrough(mode == "segv" ? nullptr : reinterpret_cast<int *>(0x40));
    else if (mode == "abort" || mode == "chain-abort")
        std::abort();
    else if (mode == "overflow")
        overflowStack(0);
}

class CrashChildEnvironment : public ::testing::Environment
{
public:
    void SetUp() override
    {
        const QByteArray mode = qgetenv("QK_CRASH_CHILD");
        if (mode.isEmpty())
            return;
        // Crash logs go to the parent test's HOME; this process's own one is not needed.
        QDir(QKTestEnvironment::homePath()).removeRecursively();
        qputenv("HOME", qgetenv("QK_CRASH_CHILD_HOME"));
        const QByteArray marker = qgetenv("QK_CRASH_CHILD_MARKER");
        std::strncpy(g_markerPath, marker.constData(), sizeof(g_markerPath) - 1);
        const rlimit noCoreFile = {0, 0};
        ::setrlimit(RLIMIT_CORE, &noCoreFile);

        if (mode == "chain-segv")
            installHostHandler(SIGSEGV, true);
        else if (mode == "chain-abort")
            installHostHandler(SIGABRT, false);
        if (!QKCrashReporter::install() || !QKCrashReporter::install())
            std::_Exit(2);
        crash(mode);
        std::_Exit(3); // did not crash
    }
};

[[maybe_unused]] ::testing::Environment *const crashChildEnvironment =
    ::testing::AddGlobalTestEnvironment(new CrashChildEnvironment);

} // namespace
