#include "DiagnosticsTestSupport.h"

#include "QKSystemProfiler.h"
#include "QKTestEnvironment.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QSysInfo>
#include <QThread>

#include <gtest/gtest.h>

#include <signal.h>

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
    const QString folder = homeFile(QStringLiteral("profiler"));
    const QByteArray quoted = "'" + QFile::encodeName(folder) + "'";
    const QByteArray body = "echo $$ > " + quoted + "/pid\n" + "printf '%s' '" + PartOne + "'\n" +
                            "while [ ! -e " + quoted + "/go1 ]; do sleep 0.02; done\n" +
                            "printf '%s' '" + PartTwo + "'\n" + "while [ ! -e " + quoted +
                            "/go2 ]; do sleep 0.02; done\n" + "printf '%s' '" + PartThree + "'\n";
    const QString path = QDir(folder).filePath(QStringLiteral("stepped-profiler"));
    return writeScript(path, body) ? path : QString();
}

void letProfilerGoOn(int step)
{
    QKTestEnvironment::writeAll(homeFile(QStringLiteral("profiler/go%1").arg(step)), "");
}

// 'R', 'S', 'Z' (finished, not yet reaped)...; 0 when there is no such process.
char processState(qint64 pid)
{
    const QByteArray stat = QKTestEnvironment::readAll(QStringLiteral("/proc/%1/stat").arg(pid));
    const qsizetype nameEnd = stat.lastIndexOf(')');
    return nameEnd > 0 && nameEnd + 2 < stat.size() ? stat.at(nameEnd + 2) : 0;
}

QString elementAttribute(const QList<XmlElement> &elements, const QString &name,
                         const QString &attribute)
{
    for (const XmlElement &element : elements) {
        if (element.name == name)
            return element.attributes.value(attribute);
    }
    return QString();
}

QString osProperty(const QList<XmlElement> &elements, const QString &property)
{
    for (const XmlElement &element : elements) {
        if (element.name == u"property" &&
            element.attributes.value(QStringLiteral("name")) == property)
            return element.text;
    }
    return QString();
}

} // namespace

TEST(QKSystemProfiler, lshwReportIsWrittenAndZipped)
{
    QKSystemProfiler profiler;
    ASSERT_FALSE(QKSystemProfiler::lshwPath().isEmpty()) << "lshw is installed by the scripts";
    EXPECT_EQ(profiler.program(), QKSystemProfiler::lshwPath());
    const QString folder = homeFile(QStringLiteral("temp/TSTH"));
    int progressCalls = 0;
    bool cancelled = true;
    const std::atomic<bool> cancelRequested = false;

    const QString archive = profiler.createSystemProfile(
        folder, [&progressCalls] { ++progressCalls; }, &cancelRequested, &cancelled);

    EXPECT_EQ(archive, QDir(folder).filePath(QStringLiteral("system_profile.zip")));
    EXPECT_FALSE(cancelled);
    EXPECT_GE(progressCalls, 1);
    const QByteArray profile =
        QKTestEnvironment::readAll(QDir(folder).filePath(QStringLiteral("system_profile.spx")));
    EXPECT_TRUE(profile.startsWith("<?xml")) << profile.left(200).toStdString();
    bool wellFormed = false;
    const QList<XmlElement> elements = xmlElements(profile, &wellFormed);
    EXPECT_TRUE(wellFormed);
    ASSERT_FALSE(elements.isEmpty());
    EXPECT_EQ(elements.first().name, QStringLiteral("node"));
    EXPECT_EQ(zipEntries(archive), (QList<std::pair<QString, QByteArray>>{
                                       {QStringLiteral("system_profile.spx"), profile}}));
}

TEST(QKSystemProfiler, programThatCannotStartGivesTheBuiltInReport)
{
    QKSystemProfiler profiler;
    profiler.setProgram(homeFile(QStringLiteral("no-such-lshw")));
    const QString folder = homeFile(QStringLiteral("temp"));
    int progressCalls = 0;

    const QString archive = profiler.createSystemProfile(
        folder, [&progressCalls] { ++progressCalls; }, nullptr);

    ASSERT_FALSE(archive.isEmpty());
    const QByteArray profile =
        QKTestEnvironment::readAll(QDir(folder).filePath(QStringLiteral("system_profile.spx")));
    EXPECT_EQ(progressCalls, 1); // a small report is one chunk
    bool wellFormed = false;
    const QList<XmlElement> elements = xmlElements(profile, &wellFormed);
    EXPECT_TRUE(wellFormed);
    ASSERT_FALSE(elements.isEmpty());
    EXPECT_EQ(elements.first().name, QStringLiteral("systemprofile"));
    // Qt reads the same system facts its own way.
    EXPECT_EQ(osProperty(elements, QStringLiteral("PRETTY_NAME")), QSysInfo::prettyProductName());
    EXPECT_EQ(elementAttribute(elements, QStringLiteral("kernel"), QStringLiteral("release")),
              QSysInfo::kernelVersion());
    EXPECT_GT(elementAttribute(elements, QStringLiteral("cpu"), QStringLiteral("count")).toInt(),
              0);
    EXPECT_TRUE(elementAttribute(elements, QStringLiteral("memory"), QStringLiteral("total"))
                    .endsWith(QLatin1String(" kB")));
    EXPECT_EQ(zipEntries(archive).value(0).second, profile);
    EXPECT_TRUE(debugLog().contains("cannot start " + QFile::encodeName(profiler.program())));
}

TEST(QKSystemProfiler, builtInReportReadsTheSystemFiles)
{
    const QDir root(homeFile(QStringLiteral("root")));
    auto write = [&root](const char *path, const QByteArray &text) {
        ASSERT_TRUE(QKTestEnvironment::writeAll(root.filePath(QString::fromUtf8(path)), text));
    };
    write("etc/os-release", "# comment\nNAME=\"Velmora Linux\"\nID=velmora\n"
                            "PRETTY_NAME=\"Velmora \\\"Studio\\\" 3\"\nVERSION_ID='3.1'\n");
    write("proc/cpuinfo", "processor\t: 0\nmodel name\t: Test CPU @ 3.00GHz\n\n"
                          "processor\t: 1\nmodel name\t: Test CPU @ 3.00GHz\n\n"
                          "processor\t: 2\nmodel name\t: Test CPU @ 3.00GHz\n");
    write("proc/meminfo", "MemTotal:       16384000 kB\nMemFree:         1000 kB\n"
                          "MemAvailable:    8192000 kB\nSwapTotal:             0 kB\n");
    write("proc/asound/cards",
          " 0 [PCH            ]: HDA-Intel - HDA Intel PCH\n"
          "                      HDA Intel PCH at 0xf7f10000 irq 30\n"
          " 1 [Interface      ]: USB-Audio - Studio Interface\n"
          "                      Velmora Studio Interface at usb-0000:00:14.0-2, high speed\n");
    write("proc/asound/card0/pcm0p/info", "card: 0\nid: ALC892 Analog\nname: ALC892 Analog\n"
                                          "stream: PLAYBACK\n");
    write("proc/asound/card0/pcm0c/info",
          "id: ALC892 Analog\nname: ALC892 Analog\nstream: CAPTURE\n");
    write("proc/asound/card0/codec#0", "not a pcm");
    write("proc/asound/card1/pcm3p/info", "id: USB Audio\nname: USB Audio\nstream: PLAYBACK\n");

    bool wellFormed = false;
    const QList<XmlElement> elements =
        xmlElements(QKSystemProfiler::builtInReport(root.path()), &wellFormed);
    ASSERT_TRUE(wellFormed);
    EXPECT_EQ(osProperty(elements, QStringLiteral("NAME")), QStringLiteral("Velmora Linux"));
    EXPECT_EQ(osProperty(elements, QStringLiteral("PRETTY_NAME")),
              QStringLiteral("Velmora \"Studio\" 3"));
    EXPECT_EQ(osProperty(elements, QStringLiteral("VERSION_ID")), QStringLiteral("3.1"));
    EXPECT_EQ(elementAttribute(elements, QStringLiteral("cpu"), QStringLiteral("model")),
              QStringLiteral("Test CPU @ 3.00GHz"));
    EXPECT_EQ(elementAttribute(elements, QStringLiteral("cpu"), QStringLiteral("count")),
              QStringLiteral("3"));
    EXPECT_EQ(elementAttribute(elements, QStringLiteral("memory"), QStringLiteral("total")),
              QStringLiteral("16384000 kB"));
    EXPECT_EQ(elementAttribute(elements, QStringLiteral("memory"), QStringLiteral("available")),
              QStringLiteral("8192000 kB"));

    QStringList sound;
    for (const XmlElement &element : elements) {
        const auto &a = element.attributes;
        if (element.name == u"card")
            sound << QStringList{a[QStringLiteral("index")], a[QStringLiteral("id")],
                                 a[QStringLiteral("driver")], a[QStringLiteral("name")],
                                 a[QStringLiteral("description")]}
                         .join(QLatin1Char('|'));
        else if (element.name == u"pcm")
            sound << QStringList{a[QStringLiteral("device")], a[QStringLiteral("name")],
                                 a[QStringLiteral("stream")]}
                         .join(QLatin1Char('|'));
    }
    EXPECT_EQ(sound, QStringList({
                         "0|PCH|HDA-Intel|HDA Intel PCH|HDA Intel PCH at 0xf7f10000 irq 30",
                         "pcm0c|ALC892 Analog|CAPTURE",
                         "pcm0p|ALC892 Analog|PLAYBACK",
                         "1|Interface|USB-Audio|Studio Interface|"
                         "Velmora Studio Interface at usb-0000:00:14.0-2, high speed",
                         "pcm3p|USB Audio|PLAYBACK",
                     }));

    // An empty system still gives every section.
    QStringList names;
    for (const XmlElement &element :
         xmlElements(QKSystemProfiler::builtInReport(homeFile(QStringLiteral("nothing-here"))),
                     &wellFormed))
        names << element.name;
    EXPECT_TRUE(wellFormed);
    EXPECT_EQ(names, QStringList({"systemprofile", "os", "kernel", "cpu", "memory", "sound"}));
}

TEST(QKSystemProfiler, everyChunkIsReportedToTheMainThread)
{
    QKSystemProfiler profiler;
    profiler.setProgram(writeSteppedProfiler());
    ASSERT_FALSE(profiler.program().isEmpty());
    QObject mainThreadReceiver;
    int mainThreadUpdates = 0;
    int workerCalls = 0;
    const QKSystemProfiler::ProgressCallback toMainThread =
        QKSystemProfiler::progressOnMainThread(&mainThreadReceiver, [&mainThreadUpdates] {
            EXPECT_EQ(QThread::currentThread(), QCoreApplication::instance()->thread());
            ++mainThreadUpdates;
        });
    // Each part of the report waits until the previous one was reported.
    const auto progress = [&] {
        letProfilerGoOn(++workerCalls);
        toMainThread();
    };
    QString archive;
    bool cancelled = true;
    std::unique_ptr<QThread> worker(QThread::create([&] {
        archive = profiler.createSystemProfile(homeFile(QStringLiteral("temp")), progress, nullptr,
                                               &cancelled);
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
    const QString folder = homeFile(QStringLiteral("temp"));

    const QString archive = profiler.createSystemProfile(
        folder,
        [&] {
            ++progressCalls;
            cancelRequested = true;
        },
        &cancelRequested, &cancelled);

    EXPECT_TRUE(cancelled);
    EXPECT_EQ(progressCalls, 1);
    ASSERT_EQ(archive, QDir(folder).filePath(QStringLiteral("system_profile.zip")));
    EXPECT_EQ(
        QKTestEnvironment::readAll(QDir(folder).filePath(QStringLiteral("system_profile.spx"))),
        PartOne);
    EXPECT_EQ(zipEntries(archive).value(0).second, PartOne);

    // Still waiting for its next step: it was neither terminated nor waited for.
    const qint64 pid =
        QKTestEnvironment::readAll(homeFile(QStringLiteral("profiler/pid"))).trimmed().toLongLong();
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

TEST(QKSystemProfiler, unwritableFolderGivesNoArchive)
{
    ASSERT_TRUE(QKTestEnvironment::writeAll(homeFile(QStringLiteral("blocked")), "a file"));
    QKSystemProfiler profiler;
    profiler.setProgram(QString());
    bool cancelled = true;
    EXPECT_TRUE(profiler
                    .createSystemProfile(homeFile(QStringLiteral("blocked/temp")), nullptr, nullptr,
                                         &cancelled)
                    .isEmpty());
    EXPECT_FALSE(cancelled);
    EXPECT_TRUE(debugLog().contains("cannot write the system profile"));
}
