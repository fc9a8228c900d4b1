#include "QKApplicationLog.h"
#include "QKRemoteControl.h"
#include "QKRemoteControlDevice.h"
#include "QKTestEnvironment.h"
#include "QKTestPrinters.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QFile>
#include <QStringList>
#include <QTimer>

#include <gtest/gtest.h>

#include <linux/input.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace {

using QKTestEnvironment::waitFor;

struct Recorder : QKRemoteControlDelegate
{
    void menuClicked(QKRemoteControl *) override { calls << u"menu"_s; }
    void playClicked(QKRemoteControl *) override { calls << u"play"_s; }
    void nextClicked(QKRemoteControl *) override { calls << u"next"_s; }
    void previousClicked(QKRemoteControl *) override { calls << u"previous"_s; }
    void volumeUpClicked(QKRemoteControl *) override { calls << u"volumeUp"_s; }
    void volumeDownClicked(QKRemoteControl *) override { calls << u"volumeDown"_s; }
    QStringList calls;
};

QByteArray record(int type, int code, int value)
{
    input_event event{};
    event.type = type;
    event.code = code;
    event.value = value;
    return QByteArray(reinterpret_cast<const char *>(&event), sizeof(event));
}

// What a receiver sends for one key change: scan code, key, report boundary.
QByteArray key(int code, int value)
{
    return record(EV_MSC, MSC_SCAN, code) + record(EV_KEY, code, value) +
           record(EV_SYN, SYN_REPORT, 0);
}

QByteArray click(int code)
{
    return key(code, 1) + key(code, 0);
}

qsizetype warningsWith(const QString &message)
{
    const QList<QByteArray> lines =
        QKTestEnvironment::readAll(QKApplicationLog::sharedLog()->logFilePath()).split('\n');
    return std::count_if(lines.cbegin(), lines.cend(), [&](const QByteArray &line) {
        return line.contains("\tWarning\tQKRemoteControl\t") && line.contains(message.toUtf8());
    });
}

enum class FailingStep { None, Find, Open, Seize, Elements, Queue, Element, Read };

// A receiver on a pipe whose set-up steps can fail one at a time, and that counts lookups
// and releases.
class ScriptedDevice final : public QKRemoteControlDevice
{
public:
    struct Counts
    {
        int finds = 0;
        int closes = 0;
    };

    ScriptedDevice(int fd, FailingStep failing, Counts *counts)
        : m_pipe(fromFileDescriptor(failing == FailingStep::Read ? brokenDescriptor(fd) : fd)),
          m_failing(failing), m_counts(counts)
    {}

    bool find() override
    {
        ++m_counts->finds;
        return m_failing != FailingStep::Find;
    }
    bool open() override { return m_failing != FailingStep::Open && m_pipe->open(); }
    bool seize() override { return m_failing != FailingStep::Seize && m_pipe->seize(); }
    void close() override
    {
        ++m_counts->closes;
        m_pipe->close();
    }
    QList<int> keyCodes() override
    {
        if (m_failing == FailingStep::Elements)
            return {};
        QList<int> codes = m_pipe->keyCodes();
        if (m_failing == FailingStep::Element)
            codes.insert(2, KEY_A);
        return codes;
    }
    int fileDescriptor() const override
    {
        return m_failing == FailingStep::Queue ? -1 : m_pipe->fileDescriptor();
    }
    QString path() const override { return m_pipe->path(); }

private:
    // Always readable, and every read fails (EISDIR), like a device with a hardware fault.
    static int brokenDescriptor(int unused)
    {
        ::close(unused);
        return ::open(QFile::encodeName(QKTestEnvironment::homePath()).constData(),
                      O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    }

    std::unique_ptr<QKRemoteControlDevice> m_pipe;
    FailingStep m_failing;
    Counts *m_counts;
};

class RemoteControl : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::signal(SIGPIPE, SIG_IGN);
        ASSERT_EQ(::pipe2(m_pipe, O_CLOEXEC), 0);
    }

    void TearDown() override
    {
        QKRemoteControl::dispose();
        closeWriteEnd();
    }

    QKRemoteControl *makeRemote(FailingStep failing = FailingStep::None)
    {
        auto device = std::make_unique<ScriptedDevice>(m_pipe[0], failing, &counts);
        QKRemoteControl *remote = QKRemoteControl::remoteControlWithDevice(std::move(device));
        remote->setDelegate(&recorder);
        return remote;
    }

    bool send(const QByteArray &data)
    {
        return ::write(m_pipe[1], data.constData(), data.size()) == data.size();
    }

    void closeWriteEnd()
    {
        if (m_pipe[1] >= 0)
            ::close(m_pipe[1]);
        m_pipe[1] = -1;
    }

    Recorder recorder;
    ScriptedDevice::Counts counts;

private:
    int m_pipe[2] = {-1, -1};
};

TEST_F(RemoteControl, callsTheDelegateOncePerPressOfEachKey)
{
    QKRemoteControl *remote = makeRemote();
    remote->start();
    QByteArray input;
    for (const int code : {KEY_MENU, KEY_PLAYPAUSE, KEY_FORWARD, KEY_NEXTSONG, KEY_BACK,
                           KEY_PREVIOUSSONG, KEY_ENTER, KEY_A, KEY_VOLUMEUP})
        input += click(code);
    // The kernel's repeats of a held key are not presses.
    input += key(KEY_VOLUMEDOWN, 1) + key(KEY_VOLUMEDOWN, 2) + key(KEY_VOLUMEDOWN, 0);
    ASSERT_TRUE(send(input));

    const QStringList expected{u"menu"_s,     u"play"_s,     u"next"_s,     u"next"_s,
                               u"previous"_s, u"previous"_s, u"volumeUp"_s, u"volumeDown"_s};
    EXPECT_TRUE(waitFor([&] { return recorder.calls.size() >= expected.size(); }));
    EXPECT_EQ(recorder.calls, expected);
}

TEST_F(RemoteControl, movesBetweenDisabledEnabledAndRunning)
{
    QKRemoteControl *remote = makeRemote();
    EXPECT_TRUE(remote->enabled());
    EXPECT_FALSE(remote->isRunning());
    EXPECT_EQ(remote, QKRemoteControl::remoteControl());

    // Presses before start() and after stop() are dropped, not held back.
    ASSERT_TRUE(send(click(KEY_PLAYPAUSE)));
    remote->start();
    ASSERT_TRUE(send(click(KEY_MENU)));
    EXPECT_TRUE(waitFor([&] { return !recorder.calls.isEmpty(); }));
    remote->stop();
    ASSERT_TRUE(send(click(KEY_PLAYPAUSE)));
    remote->start();
    ASSERT_TRUE(send(click(KEY_FORWARD)));
    EXPECT_TRUE(waitFor([&] { return recorder.calls.size() >= 2; }));
    EXPECT_EQ(recorder.calls, QStringList({u"menu"_s, u"next"_s}));

    remote->setEnabled(true);
    EXPECT_EQ(counts.finds, 1);

    remote->setEnabled(false);
    EXPECT_FALSE(remote->enabled());
    EXPECT_FALSE(remote->isRunning());
    EXPECT_EQ(counts.closes, 1);
    EXPECT_FALSE(send(click(KEY_MENU))) << "the receiver's end stays open";
    remote->setEnabled(false);
    remote->start();
    EXPECT_EQ(counts.closes, 1);
    EXPECT_FALSE(remote->isRunning());
}

TEST_F(RemoteControl, quittingReleasesTheReceiver)
{
    QKRemoteControl *remote = makeRemote();
    remote->start();
    ASSERT_TRUE(QMetaObject::invokeMethod(QCoreApplication::instance(), "aboutToQuit"));
    EXPECT_FALSE(remote->enabled());
    EXPECT_EQ(counts.closes, 1);
}

TEST_F(RemoteControl, assemblesRecordsSplitAcrossReads)
{
    QKRemoteControl *remote = makeRemote();
    remote->start();
    const QByteArray input = click(KEY_VOLUMEUP) + click(KEY_MENU);
    ASSERT_TRUE(send(input.left(30)));
    QCoreApplication::processEvents();
    ASSERT_TRUE(send(input.mid(30, 41)));
    QCoreApplication::processEvents();
    ASSERT_TRUE(send(input.mid(71)));
    EXPECT_TRUE(waitFor([&] { return recorder.calls.size() >= 2; }));
    EXPECT_EQ(recorder.calls, QStringList({u"volumeUp"_s, u"menu"_s}));
}

TEST_F(RemoteControl, keepsAtMostThirtyEventsPerWakeUp)
{
    QKRemoteControl *remote = makeRemote();
    remote->start();
    QByteArray input;
    for (int i = 0; i < 40; ++i)
        input += record(EV_KEY, KEY_PLAYPAUSE, 1);
    ASSERT_TRUE(send(input));
    EXPECT_TRUE(waitFor([&] { return warningsWith(u"10 events were dropped"_s) == 1; }));
    EXPECT_EQ(recorder.calls.size(), 30);
}

TEST_F(RemoteControl, aVanishedReceiverDeliversWhatArrivedAndDisablesItself)
{
    QKRemoteControl *remote = makeRemote();
    remote->start();
    ASSERT_TRUE(send(click(KEY_PLAYPAUSE) + record(EV_KEY, KEY_MENU, 1).left(7)));
    closeWriteEnd();

    EXPECT_TRUE(waitFor([&] { return !remote->enabled(); }));
    EXPECT_EQ(recorder.calls, QStringList{u"play"_s});
    EXPECT_EQ(counts.closes, 1);
    EXPECT_EQ(warningsWith(u"Dropped a partial event of 7 bytes from the remote"_s), 1);
    EXPECT_EQ(warningsWith(u"went away; it is disabled"_s), 1);
}

TEST_F(RemoteControl, aFailingReadIsLoggedOnceAndRetriedWithoutSpinning)
{
    QKRemoteControl *remote = makeRemote(FailingStep::Read);
    remote->start();
    const std::clock_t cpuBefore = std::clock();
    QEventLoop loop;
    QTimer::singleShot(500, &loop, &QEventLoop::quit);
    loop.exec();
    const double cpuMs = 1000.0 * double(std::clock() - cpuBefore) / CLOCKS_PER_SEC;
    EXPECT_EQ(warningsWith(u"Reading the remote failed: Is a directory"_s), 1);
    EXPECT_LT(cpuMs, 100) << "the GUI thread spun on the failing device";
    EXPECT_TRUE(remote->isRunning());
}

TEST_F(RemoteControl, eachFailingStepIsLoggedAndLeavesTheQueueStopped)
{
    struct Case
    {
        FailingStep step;
        const char *message;
        bool enabled;
    };
    const Case cases[] = {
        {FailingStep::Find, "Finding the AppleIRController service failed", false},
        {FailingStep::Open, "Creating the plugin for the remote failed", false},
        {FailingStep::Seize, "Attempting to sieze the remote failed", false},
        {FailingStep::Elements, "Retrieving the remote interface elements failed", false},
        // A queue allocated before the failure still counts as enabled.
        {FailingStep::Queue, "Creating the remote queue failed", true},
        {FailingStep::Element, "Adding elements to the remote queue failed", true},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.message);
        TearDown();
        SetUp();
        counts = {};
        QKRemoteControl *remote = makeRemote(c.step);
        EXPECT_EQ(remote->enabled(), c.enabled);
        EXPECT_EQ(remote->errorString(), QString::fromUtf8(c.message));
        EXPECT_EQ(warningsWith(QString::fromUtf8(c.message)), 1);
        // A device opened for nothing is released at once; one with a queue when disabled.
        const bool released = c.step == FailingStep::Seize || c.step == FailingStep::Elements;
        EXPECT_EQ(counts.closes, released ? 1 : 0);
        remote->start();
        send(click(KEY_MENU)); // the refused device's end may be closed already
        QCoreApplication::processEvents();
        EXPECT_TRUE(recorder.calls.isEmpty());
    }
    EXPECT_EQ(warningsWith(u"Starting the remote queue failed"_s), 1);
}

TEST(RemoteControlEvdev, withoutAReceiverEnablingFailsWithTheMessage)
{
    const QString missing = QKTestEnvironment::homeFile(u"event99"_s);
    const QString notADevice = QKTestEnvironment::homeFile(u"event98"_s);
    ASSERT_TRUE(QKTestEnvironment::writeAll(notADevice, record(EV_KEY, KEY_MENU, 1)));

    setenv("QK_INFRARED_DEVICE", QFile::encodeName(missing).constData(), 1);
    EXPECT_FALSE(QKRemoteControl::remoteControl()->enabled());
    EXPECT_EQ(QKRemoteControl::remoteControl()->errorString(),
              u"Creating the plugin for the remote failed"_s);

    setenv("QK_INFRARED_DEVICE", QFile::encodeName(notADevice).constData(), 1);
    QKRemoteControl::remoteControl()->setEnabled(true);
    EXPECT_FALSE(QKRemoteControl::remoteControl()->enabled());
    EXPECT_EQ(warningsWith(u"Attempting to sieze the remote failed"_s), 1);
    unsetenv("QK_INFRARED_DEVICE");
    QKRemoteControl::dispose();
}

// sysfs writes the key bitmap as words of a long, the highest first.
TEST(RemoteControlEvdev, takesOnlyDevicesWithPlayAndMenuButNoLetterKeys)
{
    const struct
    {
        QByteArray capabilities;
        bool receiver;
    } cases[] = {
        {"1000000800 0 0", true},         // KEY_MENU, KEY_PLAYPAUSE
        {"1f001000000800 0 0", true},     // and more media keys
        {"1000000800 0 40000000", false}, // and KEY_A: a keyboard
        {"0 0 1000000800", false},        // words read backwards
        {"1000000000 0 0", false},        // KEY_PLAYPAUSE only
        {"", false},
        {"not hex at all", false},
    };
    for (const auto &c : cases)
        EXPECT_EQ(QKRemoteControlDevice::hasReceiverKeys(c.capabilities), c.receiver)
            << c.capabilities.constData();
}
} // namespace
