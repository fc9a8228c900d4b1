#include "DiagnosticsTestSupport.h"

#include "QKSystemProfiler.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSysInfo>
#include <QThread>
#include <QXmlStreamReader>

#include <atomic>
#include <memory>

using namespace DiagnosticsTest;
using QKTestEnvironment::homeFile;

namespace {

// A profiler that writes its report in three parts, each after the test let it go on by
// creating "go1", then "go2", in its folder; it notes its process id in "pid".
const QByteArray PartOne = "<?xml version=\"1.0\"?>\n<profile>\n";
const QByteArray PartTwo = "  <part n=\"2\"/>\n";
const QByteArray PartThree = "</profile>\n";

QString writeSteppedProfiler()
{
    const QString path = homeFile("profiler/stepped-profiler");
    QKTestEnvironment::writeAll(
        path, "#!/bin/sh\ncd '" + QFile::encodeName(homeFile("profiler")) +
                  "' || exit 1\necho $$ > pid\nprintf '%s' '" + PartOne +
                  "'\nwhile [ ! -e go1 ]; do sleep 0.02; done\nprintf '%s' '" + PartTwo +
                  "'\nwhile [ ! -e go2 ]; do sleep 0.02; done\nprintf '%s' '" + PartThree + "'\n");
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return path;
}

void letProfilerGoOn(int step)
{
    QKTestEnvironment::writeAll(homeFile(u"profiler/go%1"_s.arg(step)), "");
}

// 'R', 'S', 'Z' (finished, not yet reaped)...; 0 when there is no such process.
char processState(qint64 pid)
{
    const QByteArray stat = QKTestEnvironment::readAll(u"/proc/%1/stat"_s.arg(pid));
    const qsizetype nameEnd = stat.lastIndexOf(')');
    return nameEnd > 0 && nameEnd + 2 < stat.size() ? stat.at(nameEnd + 2) : 0;
}

// One line per element of @p xml: its name, attributes and own text, as
// `name a="1" b="2": text`; empty when the document is not well-formed.
QStringList outline(const QByteArray &xml)
{
    QStringList lines;
    QList<qsizetype> open;
    QXmlStreamReader reader(xml);
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isStartElement()) {
            QString line = reader.name().toString();
            for (const QXmlStreamAttribute &attribute : reader.attributes())
                line += u" %1=\"%2\""_s.arg(attribute.name(), attribute.value());
            open.append(lines.size());
            lines.append(line);
        } else if (reader.isEndElement()) {
            open.removeLast();
        } else if (reader.isCharacters() && !reader.isWhitespace()) {
            lines[open.last()] += u": "_s + reader.text().toString().trimmed();
        }
    }
    return reader.hasError() ? QStringList() : lines;
}

} // namespace

TEST(QKSystemProfiler, lshwReportIsWrittenAndZipped)
{
    ASSERT_FALSE(QKSystemProfiler::lshwPath().isEmpty()) << "lshw is installed by the scripts";
    const QString folder = homeFile("temp/TSTH");
    int progressCalls = 0;
    bool cancelled = true;
    const std::atomic<bool> cancelRequested = false;

    const QString archive = QKSystemProfiler().createSystemProfile(
        folder, [&progressCalls] { ++progressCalls; }, &cancelRequested, &cancelled);

    EXPECT_EQ(archive, QDir(folder).filePath("system_profile.zip"));
    EXPECT_FALSE(cancelled);
    EXPECT_GE(progressCalls, 1);
    const QByteArray profile =
        QKTestEnvironment::readAll(QDir(folder).filePath("system_profile.spx"));
    EXPECT_TRUE(outline(profile).value(0).startsWith("node ")) << profile.left(200).toStdString();
    EXPECT_EQ(zipEntries(archive), Entries({{"system_profile.spx", profile}}));
}

TEST(QKSystemProfiler, programThatCannotStartGivesTheBuiltInReportWhereItCanBeWritten)
{
    QKSystemProfiler profiler;
    profiler.setProgram(homeFile("no-such-lshw"));
    // A plain file stands where the folder should be.
    ASSERT_TRUE(QKTestEnvironment::writeAll(homeFile("blocked"), "a file"));
    bool cancelled = true;
    EXPECT_TRUE(profiler.createSystemProfile(homeFile("blocked/temp"), nullptr, nullptr, &cancelled)
                    .isEmpty());
    EXPECT_FALSE(cancelled);
    EXPECT_TRUE(debugLog().contains("cannot write the system profile"));

    int progressCalls = 0;
    const QString archive = profiler.createSystemProfile(
        homeFile("temp"), [&progressCalls] { ++progressCalls; }, nullptr);
    ASSERT_FALSE(archive.isEmpty());
    const QByteArray profile = QKTestEnvironment::readAll(homeFile("temp/system_profile.spx"));
    EXPECT_EQ(progressCalls, 1); // a small report is one chunk
    const QStringList lines = outline(profile);
    EXPECT_EQ(lines.value(0), "systemprofile generator=\"QKUtilities\"");
    // Read from this system's own files, which Qt reads its own way.
    EXPECT_TRUE(lines.contains("property name=\"PRETTY_NAME\": " + QSysInfo::prettyProductName()))
        << profile.toStdString();
    EXPECT_EQ(zipEntries(archive).value(0).second, profile);
    EXPECT_TRUE(debugLog().contains("cannot start " + QFile::encodeName(profiler.program())));
}

TEST(QKSystemProfiler, builtInReportReadsTheSystemFiles)
{
    const QDir root(homeFile("root"));
    const std::pair<const char *, QByteArray> files[] = {
        {"etc/os-release", "# comment\nNAME=\"Velmora Linux\"\nID=velmora\n"
                           "PRETTY_NAME=\"Velmora \\\"Studio\\\" 3\"\nVERSION_ID='3.1'\n"},
        {"proc/cpuinfo", "processor\t: 0\nmodel name\t: Test CPU @ 3.00GHz\n\n"
                         "processor\t: 1\nmodel name\t: Test CPU @ 3.00GHz\n\n"
                         "processor\t: 2\nmodel name\t: Test CPU @ 3.00GHz\n"},
        {"proc/meminfo", "MemTotal:       16384000 kB\nMemFree:         1000 kB\n"
                         "MemAvailable:    8192000 kB\nSwapTotal:             0 kB\n"},
        {"proc/asound/cards",
         " 0 [PCH            ]: HDA-Intel - HDA Intel PCH\n"
         "                      HDA Intel PCH at 0xf7f10000 irq 30\n"
         " 1 [Interface      ]: USB-Audio - Studio Interface\n"
         "                      Velmora Studio Interface at usb-0000:00:14.0-2, high speed\n"},
        {"proc/asound/card0/pcm0p/info",
         "card: 0\nid: ALC892 Analog\nname: ALC892 Analog\nstream: PLAYBACK\n"},
        {"proc/asound/card0/pcm0c/info",
         "id: ALC892 Analog\nname: ALC892 Analog\nstream: CAPTURE\n"},
        {"proc/asound/card0/codec#0", "not a pcm"},
        {"proc/asound/card1/pcm3p/info", "id: USB Audio\nname: USB Audio\nstream: PLAYBACK\n"},
    };
    for (const auto &[path, text] : files)
        ASSERT_TRUE(QKTestEnvironment::writeAll(root.filePath(QString::fromUtf8(path)), text));

    // The kernel is the running one, whatever the root.
    const auto withoutKernel = [](QStringList lines) {
        const QStringList kernel = lines.filter(QRegularExpression(u"^kernel"_s));
        EXPECT_EQ(kernel.size(), 1) << lines.join('\n').toStdString();
        EXPECT_TRUE(kernel.value(0).contains(" release=\"" + QSysInfo::kernelVersion() + '"'));
        lines.removeAll(kernel.value(0));
        return lines;
    };
    // Where the files go follows HOME and the XDG variables.
    const QString folders = "folders data=\"" + homeFile(".local/share/Velmora") + "\" logs=\"" +
                            homeFile(".local/state/Velmora") + "\" caches=\"" +
                            homeFile(".cache/Velmora") + '"';
    EXPECT_EQ(
        withoutKernel(outline(QKSystemProfiler::builtInReport(root.path()))),
        QStringList({
            "systemprofile generator=\"QKUtilities\"",
            "os",
            "property name=\"NAME\": Velmora Linux",
            "property name=\"ID\": velmora",
            "property name=\"PRETTY_NAME\": Velmora \"Studio\" 3",
            "property name=\"VERSION_ID\": 3.1",
            "cpu model=\"Test CPU @ 3.00GHz\" count=\"3\"",
            "memory total=\"16384000 kB\" available=\"8192000 kB\" swap=\"0 kB\"",
            "sound",
            "card index=\"0\" id=\"PCH\" driver=\"HDA-Intel\" name=\"HDA Intel PCH\" "
            "description=\"HDA Intel PCH at 0xf7f10000 irq 30\"",
            "pcm device=\"pcm0c\" id=\"ALC892 Analog\" name=\"ALC892 Analog\" stream=\"CAPTURE\"",
            "pcm device=\"pcm0p\" id=\"ALC892 Analog\" name=\"ALC892 Analog\" stream=\"PLAYBACK\"",
            "card index=\"1\" id=\"Interface\" driver=\"USB-Audio\" name=\"Studio Interface\" "
            "description=\"Velmora Studio Interface at usb-0000:00:14.0-2, high speed\"",
            "pcm device=\"pcm3p\" id=\"USB Audio\" name=\"USB Audio\" stream=\"PLAYBACK\"",
            folders,
        }));

    // An empty system still gives every section.
    EXPECT_EQ(withoutKernel(outline(QKSystemProfiler::builtInReport(homeFile("nothing-here")))),
              QStringList({"systemprofile generator=\"QKUtilities\"", "os", "cpu", "memory",
                           "sound", folders}));
}

TEST(QKSystemProfiler, everyChunkIsReportedToTheMainThread)
{
    QKSystemProfiler profiler;
    profiler.setProgram(writeSteppedProfiler());
    QObject mainThreadReceiver;
    int mainThreadUpdates = 0;
    int workerCalls = 0;
    const QKSystemProfiler::ProgressCallback toMainThread =
        QKSystemProfiler::progressOnMainThread(&mainThreadReceiver, [&mainThreadUpdates] {
            EXPECT_EQ(QThread::currentThread(), QCoreApplication::instance()->thread());
            ++mainThreadUpdates;
        });
    QString archive;
    bool cancelled = true;
    std::unique_ptr<QThread> worker(QThread::create([&] {
        // Each part of the report waits until the previous one was reported.
        const auto progress = [&] {
            letProfilerGoOn(++workerCalls);
            toMainThread();
        };
        archive = profiler.createSystemProfile(homeFile("temp"), progress, nullptr, &cancelled);
    }));
    worker->start();
    while (!worker->wait(10))
        QCoreApplication::processEvents();
    QCoreApplication::processEvents();

    EXPECT_EQ(workerCalls, 3);
    EXPECT_EQ(mainThreadUpdates, 3);
    EXPECT_FALSE(cancelled);
    ASSERT_FALSE(archive.isEmpty());
    EXPECT_EQ(zipEntries(archive).value(0).second, PartOne + PartTwo + PartThree);
}

TEST(QKSystemProfiler, cancelKeepsWhatWasReadAndLeavesTheProfilerAlone)
{
    QKSystemProfiler profiler;
    profiler.setProgram(writeSteppedProfiler());
    std::atomic<bool> cancelRequested = false;
    int progressCalls = 0;
    bool cancelled = false;
    const auto cancel = [&] {
        ++progressCalls;
        cancelRequested = true;
    };

    const QString archive =
        profiler.createSystemProfile(homeFile("temp"), cancel, &cancelRequested, &cancelled);

    EXPECT_TRUE(cancelled);
    EXPECT_EQ(progressCalls, 1);
    ASSERT_EQ(archive, homeFile("temp/system_profile.zip"));
    EXPECT_EQ(zipEntries(archive).value(0).second, PartOne);

    // Still waiting for its next step: it was neither terminated nor waited for.
    const qint64 pid = QKTestEnvironment::readAll(homeFile("profiler/pid")).trimmed().toLongLong();
    ASSERT_GT(pid, 0);
    const char state = processState(pid);
    EXPECT_TRUE(state != 0 && state != 'Z') << state;
    // Let go, it writes into the closed pipe and ends.
    letProfilerGoOn(1);
    letProfilerGoOn(2);
    for (int i = 0; i < 1000 && processState(pid) != 0 && processState(pid) != 'Z'; ++i)
        QThread::msleep(10);
    EXPECT_TRUE(processState(pid) == 0 || processState(pid) == 'Z');
}
