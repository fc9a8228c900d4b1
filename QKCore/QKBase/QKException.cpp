#include "QKException.h"

#include <QFileInfo>
#include <QHash>
#include <QProcess>
#include <QStandardPaths>

#include <cxxabi.h>
#include <dlfcn.h>
#include <elf.h>
#include <execinfo.h>
#include <link.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <vector>

namespace {

QString symbolise(const std::vector<void *> &addresses);

} // namespace

struct QKException::Trace
{
    std::vector<void *> addresses;
    std::once_flag once;
    QString text;

    QString symbolised()
    {
        std::call_once(once, [this] { text = symbolise(addresses); });
        return text;
    }
};

namespace {

constexpr int MaximumFrames = 128;

// Never inlined, so that it has a caller's frame to start from. The caller is found by its
// return address rather than by counting: a sanitizer's backtrace() interceptor adds a frame
// of its own.
Q_NEVER_INLINE std::vector<void *> returnAddresses(int skipFrames)
{
    void *addresses[MaximumFrames];
    const int count = backtrace(addresses, MaximumFrames);
    void *const caller = __builtin_return_address(0);
    const int callerFrame = int(std::find(addresses, addresses + count, caller) - addresses);
    const int first = std::clamp((callerFrame < count ? callerFrame : 1) + skipFrames, 0, count);
    return std::vector<void *>(addresses + first, addresses + count);
}

struct Frame
{
    quintptr address = 0;
    QString modulePath;
    QString module = QStringLiteral("???");
    // Where the return address lies in the module's file, as addr2line and objdump count.
    quintptr moduleOffset = 0;
    QString function;
    quintptr functionOffset = 0;
    bool exported = false;
    QString sourceLocation;
};

QString demangled(const char *symbol)
{
    int status = 0;
    char *name = abi::__cxa_demangle(symbol, nullptr, nullptr, &status);
    const QString result =
        status == 0 && name ? QString::fromUtf8(name) : QString::fromUtf8(symbol);
    std::free(name);
    return result;
}

// The main program is known by argv[0], which may be relative to a folder left since;
// addr2line needs the real file.
QString modulePath(const char *loadedName)
{
    const QString path = QFile::decodeName(loadedName);
    if (QFileInfo(path).isAbsolute())
        return path;
    static const QString executable = QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget();
    return QFileInfo(executable).fileName() == QFileInfo(path).fileName() ? executable : path;
}

Frame describe(void *address)
{
    Frame frame;
    frame.address = quintptr(address);
    // A return address follows its call; looking up the byte before keeps a call at the very
    // end of a function (to a function that never returns) inside that function.
    Dl_info info{};
    if (!dladdr(reinterpret_cast<void *>(frame.address - 1), &info) || !info.dli_fname ||
        !info.dli_fbase)
        return frame;
    frame.modulePath = modulePath(info.dli_fname);
    frame.module = QFileInfo(frame.modulePath).fileName();
    // A position-dependent executable counts absolute addresses; everything else counts from
    // where it was loaded.
    const auto *header = static_cast<const ElfW(Ehdr) *>(info.dli_fbase);
    const bool absolute = header->e_type == ET_EXEC;
    frame.moduleOffset = absolute ? frame.address : frame.address - quintptr(info.dli_fbase);
    if (info.dli_sname && info.dli_saddr) {
        frame.function = demangled(info.dli_sname);
        frame.functionOffset = frame.address - quintptr(info.dli_saddr);
        frame.exported = true;
    }
    return frame;
}

QString addr2linePath()
{
    static const QString path = QStandardPaths::findExecutable(QStringLiteral("addr2line"));
    return path;
}

// Names and source lines from the module's debug information, one addr2line run per module.
void addDebugInformation(std::vector<Frame> &frames)
{
    if (addr2linePath().isEmpty())
        return;
    QHash<QString, QList<Frame *>> byModule;
    for (Frame &frame : frames) {
        if (!frame.modulePath.isEmpty())
            byModule[frame.modulePath].append(&frame);
    }
    for (auto it = byModule.cbegin(); it != byModule.cend(); ++it) {
        QStringList arguments = {QStringLiteral("-C"), QStringLiteral("-f"), QStringLiteral("-e"),
                                 it.key()};
        for (const Frame *frame : it.value())
            arguments << QStringLiteral("0x") + QString::number(frame->moduleOffset - 1, 16);
        QProcess addr2line;
        addr2line.start(addr2linePath(), arguments, QIODevice::ReadOnly);
        if (!addr2line.waitForFinished(10000)) {
            addr2line.kill();
            addr2line.waitForFinished();
            continue;
        }
        const QStringList lines =
            QString::fromLocal8Bit(addr2line.readAllStandardOutput()).split(QLatin1Char('\n'));
        for (qsizetype i = 0; i < it.value().size() && 2 * i + 1 < lines.size(); ++i) {
            Frame *frame = it.value().at(i);
            // "path/file.cpp:42 (discriminator 3)", or "??:0" when unknown.
            const QString location = lines.at(2 * i + 1).section(QLatin1Char(' '), 0, 0);
            const QString file = location.section(QLatin1Char(':'), 0, -2);
            const QString line = location.section(QLatin1Char(':'), -1);
            if (file.startsWith(QLatin1String("??")) || line.toInt() <= 0)
                continue;
            frame->sourceLocation = QFileInfo(file).fileName() + QLatin1Char(':') + line;
            // Without debug information addr2line names the nearest exported symbol below
            // the address, whatever its size; only a name that comes with a line is sure.
            const QString function = lines.at(2 * i);
            if (!frame->exported && function != QLatin1String("??"))
                frame->function = function;
        }
    }
}

QString formatted(int index, const Frame &frame)
{
    QString where;
    if (frame.exported)
        where = frame.function + QStringLiteral(" + ") + QString::number(frame.functionOffset);
    else if (!frame.function.isEmpty())
        where = frame.function;
    else
        where = frame.module + QStringLiteral(" + 0x") + QString::number(frame.moduleOffset, 16);
    QString line = QStringLiteral("%1 %2 0x%3 %4")
                       .arg(index, -3)
                       .arg(frame.module, -17)
                       .arg(frame.address, 16, 16, QLatin1Char('0'))
                       .arg(where);
    if (!frame.sourceLocation.isEmpty())
        line += QStringLiteral(" (") + frame.sourceLocation + QLatin1Char(')');
    return line;
}

QString symbolise(const std::vector<void *> &addresses)
{
    std::vector<Frame> frames;
    frames.reserve(addresses.size());
    for (void *address : addresses)
        frames.push_back(describe(address));
    addDebugInformation(frames);
    QStringList lines;
    for (size_t i = 0; i < frames.size(); ++i)
        lines << formatted(int(i), frames[i]);
    return lines.join(QLatin1Char('\n'));
}

} // namespace

QKException::QKException(const QString &reason, const QVariantMap &userInfo, const QString &name)
    : m_name(name), m_reason(reason), m_userInfo(userInfo), m_trace(std::make_shared<Trace>()),
      m_what(reason.toUtf8())
{
    m_trace->addresses = returnAddresses(1);
}

QString QKException::stackTrace() const
{
    return m_trace ? m_trace->symbolised() : QString();
}

QString QKException::currentStackTrace(int skipFrames)
{
    return symbolise(returnAddresses(1 + std::max(skipFrames, 0)));
}
