#include "QKSystemProfiler.h"

#include "QKApplicationLog.h"
#include "QKFile.h"
#include "QKZipArchiver.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QXmlStreamWriter>

#include <fcntl.h>
#include <poll.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace {

const QString LogDomain = QStringLiteral("HDSupport");
const QString ProfileName = QStringLiteral("system_profile.spx");
const QString ArchiveName = QStringLiteral("system_profile.zip");
constexpr qsizetype ChunkSize = 64 * 1024;
// How often a wait for the profiler's output looks at the Cancel flag.
constexpr int CancelPollMilliseconds = 100;

void logWarning(const QString &message)
{
    QKApplicationLog::sharedLog()->warning(QKApplicationLogContext(LogDomain), message);
}

bool isCancelRequested(const std::atomic<bool> *cancelRequested)
{
    return cancelRequested && cancelRequested->load();
}

// One source of report text, read chunk by chunk.
class ReportSource
{
public:
    enum Status { Chunk, End, Cancelled };
    virtual ~ReportSource() = default;
    /** Waits for the next chunk; gives up early when a Cancel arrives meanwhile. */
    virtual Status read(QByteArray *chunk, const std::atomic<bool> *cancelRequested) = 0;
};

// The read end of the pipe the detached profiler writes into.
class PipeSource : public ReportSource
{
public:
    explicit PipeSource(int fd) : m_fd(fd) {}
    ~PipeSource() override { ::close(m_fd); }

    Status read(QByteArray *chunk, const std::atomic<bool> *cancelRequested) override
    {
        for (;;) {
            if (isCancelRequested(cancelRequested))
                return Cancelled;
            pollfd ready = {m_fd, POLLIN, 0};
            const int polled = ::poll(&ready, 1, CancelPollMilliseconds);
            if (polled == 0 || (polled < 0 && errno == EINTR))
                continue;
            chunk->resize(ChunkSize);
            const ssize_t count = polled > 0 ? ::read(m_fd, chunk->data(), ChunkSize) : -1;
            if (count < 0 && errno == EINTR)
                continue;
            chunk->resize(qMax<ssize_t>(count, 0));
            return count > 0 ? Chunk : End;
        }
    }

private:
    int m_fd;
};

// The built-in report, handed out in the same chunks a pipe would give.
class BufferSource : public ReportSource
{
public:
    explicit BufferSource(QByteArray report) : m_report(std::move(report)) {}

    Status read(QByteArray *chunk, const std::atomic<bool> *cancelRequested) override
    {
        if (isCancelRequested(cancelRequested))
            return Cancelled;
        *chunk = m_report.mid(m_position, ChunkSize);
        m_position += chunk->size();
        return chunk->isEmpty() ? End : Chunk;
    }

private:
    QByteArray m_report;
    qsizetype m_position = 0;
};

// Starts @p program detached with its output going into a pipe; null when it cannot start.
std::unique_ptr<ReportSource> startProfiler(const QString &program)
{
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        logWarning(QStringLiteral("cannot make a pipe for %1: %2")
                       .arg(program, QString::fromLocal8Bit(strerror(errno))));
        return nullptr;
    }
    QProcess process;
    process.setProgram(program);
    process.setArguments({QStringLiteral("-xml"), QStringLiteral("-sanitize")});
    process.setStandardInputFile(QProcess::nullDevice());
    // The detached child opens this before it runs the program, while it still holds the
    // pipe's write end; the program keeps it as its output and nothing else does.
    process.setStandardOutputFile(QStringLiteral("/proc/self/fd/%1").arg(fds[1]));
    process.setStandardErrorFile(QProcess::nullDevice());
    const bool started = process.startDetached();
    ::close(fds[1]);
    if (!started) {
        ::close(fds[0]);
        logWarning(QStringLiteral("cannot start %1: %2").arg(program, process.errorString()));
        return nullptr;
    }
    return std::make_unique<PipeSource>(fds[0]);
}

using Fields = QList<std::pair<QString, QString>>;

QByteArray fileContents(const QString &rootPath, const QString &relativePath)
{
    QFile file(QDir(rootPath).filePath(relativePath));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// "key<separator>value" lines, both sides trimmed, in file order; other lines are skipped.
Fields fields(const QByteArray &text, QLatin1Char separator)
{
    Fields result;
    for (const QString &line : QString::fromUtf8(text).split(QLatin1Char('\n'))) {
        const qsizetype at = line.indexOf(separator);
        if (at > 0)
            result.append({line.left(at).trimmed(), line.mid(at + 1).trimmed()});
    }
    return result;
}

QString fieldValue(const Fields &fields, const QString &key)
{
    for (const auto &[name, value] : fields) {
        if (name == key)
            return value;
    }
    return QString();
}

// os-release values may be quoted, with backslash escapes inside double quotes.
QString unquoted(const QString &value)
{
    if (value.size() < 2 || value.front() != value.back() ||
        (value.front() != QLatin1Char('"') && value.front() != QLatin1Char('\'')))
        return value;
    QString result;
    const QStringView inner = QStringView(value).mid(1, value.size() - 2);
    for (qsizetype i = 0; i < inner.size(); ++i) {
        if (inner[i] == QLatin1Char('\\') && value.front() == QLatin1Char('"') &&
            i + 1 < inner.size())
            ++i;
        result += inner[i];
    }
    return result;
}

void writeOperatingSystem(QXmlStreamWriter &xml, const QString &rootPath)
{
    QByteArray release = fileContents(rootPath, QStringLiteral("etc/os-release"));
    if (release.isEmpty())
        release = fileContents(rootPath, QStringLiteral("usr/lib/os-release"));
    xml.writeStartElement(QStringLiteral("os"));
    for (const auto &[key, value] : fields(release, QLatin1Char('='))) {
        if (key.startsWith(QLatin1Char('#')))
            continue;
        xml.writeStartElement(QStringLiteral("property"));
        xml.writeAttribute(QStringLiteral("name"), key);
        xml.writeCharacters(unquoted(value));
        xml.writeEndElement();
    }
    xml.writeEndElement();
}

// The host name is left out, as lshw's -sanitize leaves out what identifies a machine.
void writeKernel(QXmlStreamWriter &xml)
{
    xml.writeStartElement(QStringLiteral("kernel"));
    utsname system{};
    if (::uname(&system) == 0) {
        xml.writeAttribute(QStringLiteral("sysname"), QString::fromLocal8Bit(system.sysname));
        xml.writeAttribute(QStringLiteral("release"), QString::fromLocal8Bit(system.release));
        xml.writeAttribute(QStringLiteral("version"), QString::fromLocal8Bit(system.version));
        xml.writeAttribute(QStringLiteral("machine"), QString::fromLocal8Bit(system.machine));
    }
    xml.writeEndElement();
}

void writeProcessor(QXmlStreamWriter &xml, const QString &rootPath)
{
    const Fields cpuinfo =
        fields(fileContents(rootPath, QStringLiteral("proc/cpuinfo")), QLatin1Char(':'));
    int count = 0;
    QString model;
    for (const auto &[key, value] : cpuinfo) {
        if (key == QLatin1String("processor"))
            ++count;
        else if (model.isEmpty() && key == QLatin1String("model name"))
            model = value;
    }
    xml.writeStartElement(QStringLiteral("cpu"));
    if (count > 0) {
        xml.writeAttribute(QStringLiteral("model"), model);
        xml.writeAttribute(QStringLiteral("count"), QString::number(count));
    }
    xml.writeEndElement();
}

void writeMemory(QXmlStreamWriter &xml, const QString &rootPath)
{
    const Fields meminfo =
        fields(fileContents(rootPath, QStringLiteral("proc/meminfo")), QLatin1Char(':'));
    xml.writeStartElement(QStringLiteral("memory"));
    for (const auto &[key, attribute] :
         {std::pair{"MemTotal", "total"}, std::pair{"MemAvailable", "available"},
          std::pair{"SwapTotal", "swap"}}) {
        const QString value = fieldValue(meminfo, QString::fromLatin1(key));
        if (!value.isEmpty())
            xml.writeAttribute(QString::fromLatin1(attribute), value);
    }
    xml.writeEndElement();
}

void writePcmDevices(QXmlStreamWriter &xml, const QString &rootPath, const QString &card)
{
    static const QRegularExpression pcmName(QStringLiteral("^pcm\\d+[pc]$"));
    const QString cardFolder = QStringLiteral("proc/asound/card") + card;
    const QStringList entries =
        QDir(QDir(rootPath).filePath(cardFolder)).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &entry : entries) {
        if (!pcmName.match(entry).hasMatch())
            continue;
        const Fields info = fields(
            fileContents(rootPath, cardFolder + QLatin1Char('/') + entry + QStringLiteral("/info")),
            QLatin1Char(':'));
        xml.writeStartElement(QStringLiteral("pcm"));
        xml.writeAttribute(QStringLiteral("device"), entry);
        for (const char *key : {"id", "name", "stream"})
            xml.writeAttribute(QString::fromLatin1(key),
                               fieldValue(info, QString::fromLatin1(key)));
        xml.writeEndElement();
    }
}

// Each card takes two lines of /proc/asound/cards:
//  0 [PCH            ]: HDA-Intel - HDA Intel PCH
//                       HDA Intel PCH at 0xf7f10000 irq 30
void writeSoundCards(QXmlStreamWriter &xml, const QString &rootPath)
{
    static const QRegularExpression cardLine(
        QStringLiteral("^\\s*(\\d+)\\s+\\[([^\\]]*)\\]:\\s*(.*?)\\s+-\\s+(.*)$"));
    const QStringList lines =
        QString::fromUtf8(fileContents(rootPath, QStringLiteral("proc/asound/cards")))
            .split(QLatin1Char('\n'));
    xml.writeStartElement(QStringLiteral("sound"));
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QRegularExpressionMatch card = cardLine.match(lines.at(i));
        if (!card.hasMatch())
            continue;
        const bool described = i + 1 < lines.size() && !cardLine.match(lines.at(i + 1)).hasMatch();
        xml.writeStartElement(QStringLiteral("card"));
        xml.writeAttribute(QStringLiteral("index"), card.captured(1));
        xml.writeAttribute(QStringLiteral("id"), card.captured(2).trimmed());
        xml.writeAttribute(QStringLiteral("driver"), card.captured(3));
        xml.writeAttribute(QStringLiteral("name"), card.captured(4).trimmed());
        xml.writeAttribute(QStringLiteral("description"),
                           described ? lines.at(i + 1).trimmed() : QString());
        writePcmDevices(xml, rootPath, card.captured(1));
        xml.writeEndElement();
    }
    xml.writeEndElement();
}

// Where the library keeps its files here, since that depends on the user's XDG settings.
void writeFolders(QXmlStreamWriter &xml)
{
    xml.writeStartElement(QStringLiteral("folders"));
    const std::pair<const char *, const char *> folders[] = {
        {"data", "~/Library/Application Support/Velmora"},
        {"logs", "~/Library/Logs/Velmora"},
        {"caches", "~/Library/Caches/Velmora"},
    };
    for (const auto &[name, path] : folders)
        xml.writeAttribute(QLatin1String(name), QKFile::conformPath(QLatin1String(path)));
    xml.writeEndElement();
}

} // namespace

QKSystemProfiler::QKSystemProfiler() : m_program(lshwPath()) {}

QString QKSystemProfiler::lshwPath()
{
    const QString lshw = QStringLiteral("lshw");
    QString path = QStandardPaths::findExecutable(lshw);
    if (path.isEmpty()) {
        path = QStandardPaths::findExecutable(
            lshw, {QStringLiteral("/usr/bin"), QStringLiteral("/usr/sbin")});
    }
    return path;
}

QString QKSystemProfiler::createSystemProfile(const QString &folder,
                                              const ProgressCallback &progress,
                                              const std::atomic<bool> *cancelRequested,
                                              bool *cancelled) const
{
    std::unique_ptr<ReportSource> source;
    if (!m_program.isEmpty())
        source = startProfiler(m_program);
    if (!source)
        source = std::make_unique<BufferSource>(builtInReport());

    QByteArray report;
    QByteArray chunk;
    ReportSource::Status status;
    while ((status = source->read(&chunk, cancelRequested)) == ReportSource::Chunk) {
        report += chunk;
        if (progress)
            progress();
    }
    source.reset(); // lets go of the profiler without waiting for it
    if (cancelled)
        *cancelled = status == ReportSource::Cancelled;

    QString error;
    const QString profilePath = QDir(folder).filePath(ProfileName);
    if (!QKFile::createDirectoryAtPath(folder, &error) ||
        !QKFile::createFileAtPath(profilePath, report, &error)) {
        logWarning(QStringLiteral("cannot write the system profile: %1").arg(error));
        return QString();
    }
    const QString archivePath = QDir(folder).filePath(ArchiveName);
    return QKZipArchiver::zipPaths({profilePath}, archivePath) ? archivePath : QString();
}

QByteArray QKSystemProfiler::builtInReport(const QString &rootPath)
{
    QByteArray report;
    QXmlStreamWriter xml(&report);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement(QStringLiteral("systemprofile"));
    xml.writeAttribute(QStringLiteral("generator"), QStringLiteral("QKUtilities"));
    writeOperatingSystem(xml, rootPath);
    writeKernel(xml);
    writeProcessor(xml, rootPath);
    writeMemory(xml, rootPath);
    writeSoundCards(xml, rootPath);
    writeFolders(xml);
    xml.writeEndElement();
    xml.writeEndDocument();
    return report;
}

QKSystemProfiler::ProgressCallback
QKSystemProfiler::progressOnMainThread(QObject *receiver, std::function<void()> update)
{
    return [receiver, update = std::move(update)] {
        QMetaObject::invokeMethod(receiver, update, Qt::QueuedConnection);
    };
}
