#include "QKCrashReporter.h"

#include "QKApplication.h"
#include "QKApplicationLog.h"
#include "QKBundle.h"
#include "QKFile.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>

#include <execinfo.h>
#include <fcntl.h>
#include <iterator>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <mutex>

namespace {

constexpr int FatalSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
constexpr int FatalSignalCount = int(std::size(FatalSignals));
constexpr int MaximumFrames = 128;
// Room for the unwinder and the formatting buffers of the handler.
constexpr size_t AlternateStackSize = 128 * 1024;
// "yyyy-MM-dd-HHmmss.crash" and its terminating zero.
constexpr size_t FileNameDateLength = 24;

const char *signalName(int signal)
{
    switch (signal) {
    case SIGSEGV:
        return "SIGSEGV";
    case SIGBUS:
        return "SIGBUS";
    case SIGILL:
        return "SIGILL";
    case SIGFPE:
        return "SIGFPE";
    case SIGABRT:
        return "SIGABRT";
    }
    return "?";
}

// Everything the handler needs, prepared at installation: in the handler there is no
// allocation, no Qt, no stdio and no lock.
struct CrashState
{
    char folder[PATH_MAX];
    char pathPrefix[PATH_MAX]; // "<folder>/<application name>_"
    char header[2048];         // process, path and version lines
    long utcOffset = 0;        // seconds east of UTC at installation
    struct sigaction previous[FatalSignalCount];
    bool handled[FatalSignalCount] = {};
    std::atomic<pid_t> reportingThread{0};
    std::atomic<bool> reportWritten{false};
};

CrashState state;
alignas(16) char alternateStack[AlternateStackSize];

// Text built in a fixed buffer; what does not fit is cut off.
template<size_t Capacity> class FixedText
{
public:
    FixedText &append(const char *text)
    {
        while (*text && m_length + 1 < Capacity)
            m_buffer[m_length++] = *text++;
        m_buffer[m_length] = '\0';
        return *this;
    }
    FixedText &append(char character)
    {
        const char text[2] = {character, '\0'};
        return append(text);
    }
    FixedText &decimal(long long value, int width = 0)
    {
        // Filled from the back, so the digits come out in reading order.
        char digits[24];
        char *first = std::end(digits) - 1;
        *first = '\0';
        const bool negative = value < 0;
        unsigned long long magnitude = negative ? 0ULL - value : value;
        do {
            *--first = char('0' + magnitude % 10);
            magnitude /= 10;
        } while (magnitude != 0);
        while (first > digits && std::end(digits) - 1 - first < width)
            *--first = '0';
        if (negative)
            append('-');
        return append(first);
    }
    FixedText &hex(uintptr_t value)
    {
        append("0x");
        for (int shift = int(sizeof(value)) * 8 - 4; shift >= 0; shift -= 4)
            append("0123456789abcdef"[(value >> shift) & 0xf]);
        return *this;
    }
    const char *data() const { return m_buffer; }
    size_t length() const { return m_length; }

private:
    char m_buffer[Capacity] = {};
    size_t m_length = 0;
};

void writeAll(int fd, const char *data, size_t length)
{
    while (length > 0) {
        const ssize_t written = ::write(fd, data, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        data += written;
        length -= size_t(written);
    }
}

template<size_t Capacity> void writeText(int fd, const FixedText<Capacity> &text)
{
    writeAll(fd, text.data(), text.length());
}

struct LocalTime
{
    long long year;
    int month, day, hour, minute, second;
};

// Days since 1970-01-01 to a civil date (proleptic Gregorian), without the C library.
LocalTime localTime(time_t utcSeconds)
{
    const long long local = (long long)utcSeconds + state.utcOffset;
    long long days = local / 86400;
    long long secondOfDay = local % 86400;
    if (secondOfDay < 0) {
        secondOfDay += 86400;
        --days;
    }
    days += 719468;
    const long long era = (days >= 0 ? days : days - 146096) / 146097;
    const long long dayOfEra = days - era * 146097;
    const long long yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const long long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const long long monthIndex = (5 * dayOfYear + 2) / 153;
    LocalTime time;
    time.day = int(dayOfYear - (153 * monthIndex + 2) / 5 + 1);
    time.month = int(monthIndex < 10 ? monthIndex + 3 : monthIndex - 9);
    time.year = yearOfEra + era * 400 + (time.month <= 2 ? 1 : 0);
    time.hour = int(secondOfDay / 3600);
    time.minute = int(secondOfDay / 60 % 60);
    time.second = int(secondOfDay % 60);
    return time;
}

// mkdir -p of the crash folder, for when it was removed after installation.
void makeFolder()
{
    char path[PATH_MAX];
    std::memcpy(path, state.folder, sizeof(path));
    for (char *slash = std::strchr(path + 1, '/'); slash; slash = std::strchr(slash + 1, '/')) {
        *slash = '\0';
        ::mkdir(path, 0755);
        *slash = '/';
    }
    ::mkdir(path, 0755);
}

int openLogFile(const LocalTime &time)
{
    FixedText<PATH_MAX> path;
    path.append(state.pathPrefix);
    path.decimal(time.year, 4).append('-').decimal(time.month, 2).append('-');
    path.decimal(time.day, 2).append('-').decimal(time.hour, 2).decimal(time.minute, 2);
    path.decimal(time.second, 2).append(".crash");
    const int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
    int fd = ::open(path.data(), flags, 0644);
    if (fd < 0 && errno == ENOENT) {
        makeFolder();
        fd = ::open(path.data(), flags, 0644);
    }
    return fd;
}

void writeSignalLines(int fd, int signal, const siginfo_t *info, const LocalTime &time)
{
    FixedText<512> text;
    text.append("PID:             ").decimal(::getpid()).append('\n');
    text.append("Thread:          ").decimal(::syscall(SYS_gettid)).append('\n');
    text.append("Date/Time:       ").decimal(time.year, 4).append('-').decimal(time.month, 2);
    text.append('-').decimal(time.day, 2).append(' ').decimal(time.hour, 2).append(':');
    text.decimal(time.minute, 2).append(':').decimal(time.second, 2).append(' ');
    const long offsetMinutes = (state.utcOffset < 0 ? -state.utcOffset : state.utcOffset) / 60;
    text.append(state.utcOffset < 0 ? '-' : '+').decimal(offsetMinutes / 60, 2);
    text.decimal(offsetMinutes % 60, 2).append('\n');
    text.append("Signal:          ").decimal(signal).append(" (").append(signalName(signal));
    text.append(")\n");
    if (info) {
        text.append("Signal code:     ").decimal(info->si_code).append('\n');
        if (info->si_code <= 0)
            text.append("Sender PID:      ").decimal(info->si_pid).append('\n');
        else if (signal != SIGABRT)
            text.append("Fault address:   ").hex(uintptr_t(info->si_addr)).append('\n');
    }
    writeText(fd, text);
}

void copyMemoryMap(int fd)
{
    const int maps = ::open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (maps < 0)
        return;
    static char buffer[4096]; // one crashing thread at a time writes the report
    for (;;) {
        const ssize_t count = ::read(maps, buffer, sizeof(buffer));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        writeAll(fd, buffer, size_t(count));
    }
    ::close(maps);
}

// Where the signal struck, to leave the handler's own frames out of the backtrace; null
// where the machine context is not known.
uintptr_t interruptedAddress(const void *context)
{
    if (!context)
        return 0;
    const mcontext_t &machine = static_cast<const ucontext_t *>(context)->uc_mcontext;
#if defined(__x86_64__)
    return uintptr_t(machine.gregs[REG_RIP]);
#elif defined(__i386__)
    return uintptr_t(machine.gregs[REG_EIP]);
#elif defined(__aarch64__)
    return uintptr_t(machine.pc);
#else
    Q_UNUSED(machine);
    return 0;
#endif
}

void writeBacktrace(int fd, const void *context)
{
    void *frames[MaximumFrames];
    const int count = ::backtrace(frames, MaximumFrames);
    const uintptr_t interrupted = interruptedAddress(context);
    int first = 0;
    while (first < count && uintptr_t(frames[first]) != interrupted)
        ++first;
    if (first == count)
        first = 0;
    ::backtrace_symbols_fd(frames + first, count - first, fd);
}

void writeReport(int signal, const siginfo_t *info, const void *context)
{
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const LocalTime time = localTime(now.tv_sec);
    const int fd = openLogFile(time);
    if (fd < 0)
        return;
    writeAll(fd, state.header, std::strlen(state.header));
    writeSignalLines(fd, signal, info, time);
    const char backtraceTitle[] = "\nBacktrace:\n";
    writeAll(fd, backtraceTitle, sizeof(backtraceTitle) - 1);
    writeBacktrace(fd, context);
    const char mapTitle[] = "\nMemory map:\n";
    writeAll(fd, mapTitle, sizeof(mapTitle) - 1);
    copyMemoryMap(fd);
    ::close(fd);
}

void waitForReport()
{
    const timespec pause = {0, 10 * 1000 * 1000};
    for (int i = 0; i < 1000 && !state.reportWritten.load(); ++i)
        ::nanosleep(&pause, nullptr);
}

void reinstatePreviousActions()
{
    for (int i = 0; i < FatalSignalCount; ++i) {
        if (state.handled[i])
            ::sigaction(FatalSignals[i], &state.previous[i], nullptr);
    }
}

void handleFatalSignal(int signal, siginfo_t *info, void *context)
{
    const int savedErrno = errno;
    const pid_t thread = pid_t(::syscall(SYS_gettid));
    pid_t reporter = 0;
    if (state.reportingThread.compare_exchange_strong(reporter, thread)) {
        writeReport(signal, info, context);
        state.reportWritten.store(true);
    } else if (reporter != thread) {
        // Another thread crashed first; let its report finish before the process goes.
        waitForReport();
    }
    reinstatePreviousActions();
    // Returning repeats a fault, which now meets the previous action; a signal that was sent
    // does not come back by itself. It stays pending until this handler returns.
    if (!info || info->si_code <= 0 || signal == SIGABRT)
        ::raise(signal);
    errno = savedErrno;
}

// Copies @p text into a handler buffer, keeping room for @p reserve more bytes; false when
// it does not fit.
template<size_t Capacity>
bool copyText(char (&buffer)[Capacity], const QByteArray &text, size_t reserve = 0)
{
    if (size_t(text.size()) + reserve + 1 > Capacity)
        return false;
    std::memcpy(buffer, text.constData(), size_t(text.size()));
    buffer[text.size()] = '\0';
    return true;
}

QByteArray reportHeader()
{
    const QKBundle *bundle = QKBundle::mainBundle();
    const QString shortVersion =
        bundle->objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString")).toString();
    const QString version =
        bundle->objectForInfoDictionaryKey(QStringLiteral("CFBundleVersion")).toString();
    const QString executable = QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget();
    return QStringLiteral("Process:         %1\nPath:            %2\nVersion:         %3 (%4)\n")
        .arg(QKApplication::currentName(), executable, shortVersion, version)
        .toUtf8();
}

// The start of the file name of an application's crash logs, one rule for writing and
// finding them: a slash in the name would point the log into another folder.
QString crashLogFileStem(QString applicationName)
{
    return applicationName.replace(QLatin1Char('/'), QLatin1Char('-'));
}

void logWarning(const QString &message)
{
    QKApplicationLog::sharedLog()->warning(
        QKApplicationLogContext(QStringLiteral("QKCrashReporter")), message);
}

bool prepareState()
{
    const QString folder = QKCrashReporter::crashReporterFolder();
    const QString prefix = crashLogFileStem(QKApplication::currentName()) + QLatin1Char('_');
    if (!copyText(state.folder, QFile::encodeName(folder)) ||
        !copyText(state.pathPrefix, QFile::encodeName(QDir(folder).filePath(prefix)),
                  FileNameDateLength) ||
        !copyText(state.header, reportHeader().left(sizeof(state.header) - 1))) {
        logWarning(QStringLiteral("crash log path too long: %1").arg(folder));
        return false;
    }
    state.utcOffset = QDateTime::currentDateTime().offsetFromUtc();
    QString error;
    if (!QKFile::createDirectoryAtPath(folder, &error))
        logWarning(QStringLiteral("cannot create the crash log folder: %1").arg(error));
    return true;
}

void installAlternateStack()
{
    stack_t current = {};
    if (::sigaltstack(nullptr, &current) == 0 && !(current.ss_flags & SS_DISABLE))
        return; // the host has one already
    stack_t stack = {};
    stack.ss_sp = alternateStack;
    stack.ss_size = sizeof(alternateStack);
    if (::sigaltstack(&stack, nullptr) != 0)
        logWarning(QStringLiteral("no alternate signal stack: %1")
                       .arg(QString::fromLocal8Bit(std::strerror(errno))));
}

bool installHandlers()
{
    struct sigaction action = {};
    action.sa_sigaction = handleFatalSignal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (int signal : FatalSignals)
        sigaddset(&action.sa_mask, signal);
    bool any = false;
    for (int i = 0; i < FatalSignalCount; ++i) {
        if (::sigaction(FatalSignals[i], &action, &state.previous[i]) != 0)
            continue;
        if (state.previous[i].sa_handler == SIG_IGN && !(state.previous[i].sa_flags & SA_SIGINFO)) {
            ::sigaction(FatalSignals[i], &state.previous[i], nullptr);
            continue;
        }
        state.handled[i] = true;
        any = true;
    }
    if (!any)
        logWarning(QStringLiteral("cannot install the crash handler"));
    return any;
}

} // namespace

bool QKCrashReporter::install()
{
    static std::mutex mutex;
    static bool installed = false;
    const std::lock_guard lock(mutex);
    if (installed)
        return true;
    if (!prepareState())
        return false;
    // The first backtrace() loads the unwinder, which a signal handler must not do.
    void *frame[1];
    ::backtrace(frame, 1);
    installAlternateStack();
    installed = installHandlers();
    return installed;
}

QString QKCrashReporter::crashReporterFolder()
{
    return QKFile::conformPath(QStringLiteral("~/Library/Logs/CrashReporter"));
}

QStringList QKCrashReporter::crashLogPaths(const QString &applicationName)
{
    QStringList paths;
    const QString stem = crashLogFileStem(applicationName);
    // The per-user folder is where install() writes.
    for (const QString &folder :
         {crashReporterFolder(), QStringLiteral("/Library/Logs/CrashReporter")}) {
        const QDir directory(folder);
        for (const QString &name : QKFile::contentsOfDirectoryAtPath(folder)) {
            if (name.startsWith(stem))
                paths << directory.filePath(name);
        }
    }
    return paths;
}
