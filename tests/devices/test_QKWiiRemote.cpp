#include "QKApplicationLog.h"
#include "QKFakeWiiRemote.h"
#include "QKTestEnvironment.h"
#include "QKTestPrinters.h"
#include "QKWiiDot.h"
#include "QKWiiRemote.h"
#include "QKWiiRemoteError.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QStringList>
#include <QThread>

#include <gtest/gtest.h>

#include <cmath>
#include <sys/socket.h>

namespace {

using QKTestEnvironment::waitFor;

using Step = QKFakeWiiRemote::Step;
const QString RemoteName = u"Nintendo RVL-CNT-01"_s;

// Every callback, as a line, checking that it came on the GUI thread.
struct Recorder : QKWiiRemoteDelegate
{
    void add(const QString &line)
    {
        calls << (QThread::currentThread() == qApp->thread() ? line : u"off-thread "_s + line);
    }
    void wiiRemoteDetected(QKWiiRemote *) override { add(u"detected"_s); }
    void wiiRemoteConnected(QKWiiRemote *) override { add(u"connected"_s); }
    void wiiRemoteDisconnected(QKWiiRemote *) override { add(u"disconnected"_s); }
    void wiiRemoteError(QKWiiRemote *, const QKWiiRemoteError &error) override
    {
        add(u"error %1 %2: %3"_s.arg(error.code())
                .arg(error.action(), error.localizedDescription()));
    }
    void wiiRemoteButtonChanged(QKWiiRemote *, quint16 changed, bool state) override
    {
        add(u"buttons %1 %2"_s.arg(uint(changed), 4, 16, QLatin1Char('0'))
                .arg(state ? u"down"_s : u"up"_s));
    }
    void wiiRemoteMoved(QKWiiRemote *) override { add(u"moved"_s); }
    QStringList calls;
};

QByteArray hex(const QString &spaced)
{
    return QByteArray::fromHex(spaced.toLatin1());
}

// The packets waiting on @p fd, in hex.
QStringList packets(int fd)
{
    QStringList result;
    char buffer[64];
    ssize_t size;
    while ((size = ::recv(fd, buffer, sizeof(buffer), MSG_DONTWAIT)) > 0)
        result << QString::fromLatin1(QByteArray(buffer, size).toHex(' '));
    return result;
}

// A 3-byte extended dot record for a 10-bit position.
QByteArray dot(int x, int y, int size)
{
    const char record[] = {char(x & 0xFF), char(y & 0xFF),
                           char(((x >> 8) << 4) | ((y >> 8) << 6) | size)};
    return QByteArray(record, sizeof(record));
}

int wiiWarnings()
{
    const QByteArray log = QKTestEnvironment::readAll(QKApplicationLog::sharedLog()->logFilePath());
    return log.count("\tWarning\tQKWiiRemote\t");
}

class WiiRemote : public ::testing::Test
{
protected:
    void TearDown() override { QKWiiRemote::dispose(); }

    QKWiiRemote *makeRemote(const QList<QKWiiRemoteTransport::Device> &devices = {
                                {"00:1F:32:00:00:01", RemoteName}})
    {
        fake = std::make_shared<QKFakeWiiRemote>(devices);
        QKWiiRemote *remote = QKWiiRemote::remoteWithTransport(fake);
        remote->setDelegate(&recorder);
        return remote;
    }

    // Starts a connection and waits until it has ended, however it ended.
    void runConnection(QKWiiRemote *remote)
    {
        remote->connect();
        EXPECT_TRUE(remote->isConnecting());
        EXPECT_TRUE(waitFor([&] {
            return !remote->isConnecting() &&
                   (!remote->isConnected() || recorder.calls.contains(u"connected"_s));
        }));
    }

    QKWiiRemote *connectedRemote()
    {
        QKWiiRemote *remote = makeRemote();
        runConnection(remote);
        EXPECT_EQ(recorder.calls, QStringList({u"detected"_s, u"connected"_s}));
        packets(fake->remoteEnd(0x11));
        fake->clearCalls();
        recorder.calls.clear();
        return remote;
    }

    void input(QKWiiRemote *remote, const QString &spaced)
    {
        const QByteArray data = hex(spaced);
        remote->l2capChannelData(reinterpret_cast<const quint8 *>(data.constData()), data.size());
    }

    std::shared_ptr<QKFakeWiiRemote> fake;
    Recorder recorder;
};

TEST_F(WiiRemote, connectsWithItsPausesAndInitialReports)
{
    QKWiiRemote *remote = makeRemote({{"00:00:00:00:00:01", u"Keyboard"_s},
                                      {"00:00:00:00:00:02", RemoteName},
                                      {"00:00:00:00:00:03", RemoteName}});
    remote->setLED1State(true); // not connected: nothing is sent, nothing fails
    EXPECT_TRUE(fake->calls().isEmpty());
    runConnection(remote);

    EXPECT_TRUE(remote->isConnected());
    EXPECT_EQ(recorder.calls, QStringList({u"detected"_s, u"connected"_s}));
    const QStringList steps{u"inquiry"_s,       u"openConnection 00:00:00:00:00:02"_s,
                            u"pause 1000000"_s, u"performSDPQuery"_s,
                            u"pause 1000000"_s, u"openL2CAPChannel 0x11"_s,
                            u"pause 1000000"_s, u"openL2CAPChannel 0x13"_s};
    EXPECT_EQ(fake->calls().mid(0, steps.size()), steps);
    EXPECT_EQ(fake->calls().count(u"pause 100"_s), 4);
    // The LEDs as stored, the mode, and a rumble of half a second.
    EXPECT_EQ(packets(fake->remoteEnd(0x11)),
              QStringList({u"52 11 10"_s, u"52 12 00 30"_s, u"52 11 11"_s, u"52 11 10"_s}));

    // Connecting again while connected does nothing at all.
    fake->clearCalls();
    remote->connect();
    EXPECT_FALSE(remote->isConnecting());
    QCoreApplication::processEvents();
    EXPECT_TRUE(fake->calls().isEmpty());
    EXPECT_EQ(recorder.calls.size(), 2);
}

TEST_F(WiiRemote, reportsEachConnectionFailure)
{
    struct Case
    {
        QString name; // of the only device found
        Step failing;
        bool linkUp;
        QString error;
        QStringList steps; // after the inquiry
    };
    const QString connecting = u"Connecting to a Wii Remote: A Wii Remote error occurred: "_s;
    const QString pauses = u"pause 1000000"_s;
    const Case cases[] = {
        {u"nintendo rvl-cnt-01"_s,
         Step::None,
         false,
         u"error 1 "_s + connecting + u"a Wii Remote could not be detected."_s,
         {}},
        {RemoteName + u' ',
         Step::None,
         false,
         u"error 1 "_s + connecting + u"a Wii Remote could not be detected."_s,
         {}},
        {RemoteName,
         Step::CloseStaleConnection,
         true,
         u"error 2 "_s + connecting +
             u"an existing connection to the remote could not be closed."_s,
         {u"closeConnection"_s, pauses, pauses, pauses}},
        {RemoteName,
         Step::OpenConnection,
         false,
         u"error 3 "_s + connecting + u"the connection to the remote could not be established."_s,
         {u"openConnection 00:1F:32:00:00:01"_s, pauses, pauses, pauses}},
        {RemoteName,
         Step::SDPQuery,
         false,
         u"error 4 "_s + connecting + u"the SDP query failed."_s,
         {u"openConnection 00:1F:32:00:00:01"_s, pauses, u"performSDPQuery"_s, pauses, pauses}},
        {RemoteName,
         Step::ControlChannel,
         false,
         u"error 5 "_s + connecting + u"the write channel could not be established."_s,
         {u"openConnection 00:1F:32:00:00:01"_s, pauses, u"performSDPQuery"_s, pauses,
          u"openL2CAPChannel 0x11"_s, pauses}},
        {RemoteName,
         Step::InterruptChannel,
         false,
         u"error 6 "_s + connecting + u"the dummy channel could not be established."_s,
         {u"openConnection 00:1F:32:00:00:01"_s, pauses, u"performSDPQuery"_s, pauses,
          u"openL2CAPChannel 0x11"_s, pauses, u"openL2CAPChannel 0x13"_s, u"closeConnection"_s}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.error.toStdString());
        QKWiiRemote *remote = makeRemote({{"00:1F:32:00:00:01", c.name}});
        fake->setFailingStep(c.failing);
        fake->setLinkUp(c.linkUp);
        runConnection(remote);
        EXPECT_FALSE(remote->isConnected());
        QStringList expected{c.error};
        if (c.error.startsWith(u"error 1"_s) == false)
            expected.prepend(u"detected"_s);
        EXPECT_EQ(recorder.calls, expected);
        EXPECT_EQ(fake->calls(), QStringList{u"inquiry"_s} + c.steps);
        recorder.calls.clear();
        QKWiiRemote::dispose();
    }

    // A search that cannot start is not reported, and connect() may be tried again.
    QKWiiRemote *remote = makeRemote();
    fake->setFailingStep(Step::Inquiry);
    runConnection(remote);
    EXPECT_TRUE(recorder.calls.isEmpty());
    fake->setFailingStep(Step::None);
    runConnection(remote);
    EXPECT_TRUE(remote->isConnected());
}

TEST_F(WiiRemote, sendsEveryOutputReportByteForByte)
{
    QKWiiRemote *remote = connectedRemote();
    const quint8 long45[45] = {0xA0, 1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14,
                               15,   16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29,
                               30,   31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44};
    const quint8 twenty[20] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10,
                               11, 12, 13, 14, 15, 16, 17, 18, 19, 20};
    const QString ir = u"52 16 04 b0 00 "_s;
    const std::pair<std::function<void()>, QStringList> steps[] = {
        {[&] { remote->setLED2State(true); }, {u"52 11 20"_s}},
        {[&] { remote->setMotionSensorEnabled(true); }, {u"52 12 00 31"_s}},
        {[&] {
             remote->setLED1State(true);
             remote->setLED3State(true);
             remote->setLED4State(true);
             remote->setVibrate(true);
         },
         {u"52 11 30"_s, u"52 11 70"_s, u"52 11 f0"_s, u"52 11 f1"_s}},
        {[&] { remote->setInfraredEnabled(true); },
         {u"52 12 01 33"_s, u"52 13 05"_s, u"52 1a 04"_s,
          u"52 16 05 b0 00 30 01 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"_s,
          u"52 16 05 b0 00 00 09 02 00 00 71 01 00 aa 00 64 00 00 00 00 00 00 00"_s,
          u"52 16 05 b0 00 1a 02 63 03 00 00 00 00 00 00 00 00 00 00 00 00 00 00"_s,
          u"52 16 05 b0 00 33 01 03 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"_s,
          u"52 16 05 b0 00 30 01 08 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"_s}},
        {[&] {
             remote->setVibrate(false);
             remote->setMotionSensorEnabled(false); // infrared keeps mode 0x33
         },
         {u"52 11 f0"_s, u"52 12 00 33"_s}},
        {[&] { remote->setInfraredEnabled(false); },
         {u"52 12 00 30"_s, u"52 13 00"_s, u"52 1a 00"_s}},
        {[&] { remote->_sendCommand(long45, sizeof(long45)); },
         {u"52 "_s +
          QString::fromLatin1(QByteArray(reinterpret_cast<const char *>(long45), 39).toHex(' '))}},
        {[&] { remote->_writeData(twenty, sizeof(twenty), 0x04B00000); },
         {ir + u"00 10 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10"_s}},
        {[&] { remote->_writeData(twenty, 1, 0x04B00000); },
         {ir + u"00 01 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"_s}},
    };
    for (const auto &[step, expected] : steps) {
        SCOPED_TRACE(expected.first().toStdString());
        fake->clearCalls();
        step();
        EXPECT_EQ(packets(fake->remoteEnd(0x11)), expected);
        // Every send is followed by its pause.
        EXPECT_EQ(fake->calls().count(u"pause 100"_s), expected.size());
    }
    EXPECT_TRUE(recorder.calls.isEmpty());
}

TEST_F(WiiRemote, disconnectsWithRetries)
{
    // Close failures before each close works, and the attempts that makes.
    for (const auto &[failures, attempts] : {std::pair{0, 1}, {10, 11}, {25, 11}}) {
        SCOPED_TRACE(failures);
        QKWiiRemote *remote = connectedRemote();
        fake->setCloseFailures(failures);
        remote->disconnect();
        EXPECT_FALSE(remote->isConnected());
        EXPECT_EQ(recorder.calls, QStringList{u"disconnected"_s});
        const QStringList calls = fake->calls();
        EXPECT_EQ(calls.count(u"closeChannel 0x11"_s), attempts);
        EXPECT_EQ(calls.count(u"closeChannel 0x13"_s), attempts);
        EXPECT_EQ(calls.count(u"closeConnection"_s), attempts);
        EXPECT_LT(calls.indexOf(u"closeChannel 0x11"_s), calls.indexOf(u"closeChannel 0x13"_s));
        EXPECT_LT(calls.lastIndexOf(u"closeChannel 0x13"_s), calls.indexOf(u"closeConnection"_s));
        remote->disconnect(); // not connected any more: nothing
        EXPECT_EQ(recorder.calls.size(), 1);
        recorder.calls.clear();
        QKWiiRemote::dispose();
    }
}

TEST_F(WiiRemote, aRemoteThatGoesAwayIsANoticeAndAFailedSendIsError7)
{
    QKWiiRemote *remote = connectedRemote();
    const int warnings = wiiWarnings();
    // The remote hangs up with half a report in flight.
    ASSERT_EQ(::send(fake->remoteEnd(0x13), "\xA1\x33\x00", 3, 0), 3);
    ASSERT_EQ(::shutdown(fake->remoteEnd(0x13), SHUT_RDWR), 0);
    EXPECT_TRUE(waitFor([&] { return !remote->isConnected(); }));
    EXPECT_EQ(recorder.calls, QStringList{u"disconnected"_s});
    EXPECT_TRUE(fake->calls().filter(u"close"_s).isEmpty()); // a notice closes nothing
    EXPECT_EQ(wiiWarnings(), warnings + 2);                  // the short report and the hang-up

    recorder.calls.clear();
    runConnection(remote);
    EXPECT_EQ(recorder.calls, QStringList({u"detected"_s, u"connected"_s}));
    recorder.calls.clear();
    ASSERT_EQ(::shutdown(fake->remoteEnd(0x11), SHUT_RDWR), 0);
    fake->clearCalls();
    remote->setLED1State(true);
    EXPECT_EQ(recorder.calls,
              QStringList{u"error 7 Sending a command to a Wii Remote: A Wii Remote error "
                          "occurred: ...well, we're not sure why."_s});
    EXPECT_EQ(fake->calls(), QStringList{u"pause 100"_s}); // paused all the same
    EXPECT_TRUE(remote->isConnected()); // a failed write leaves the link as it is
    EXPECT_TRUE(waitFor([&] { return !remote->isConnected(); }));
}

TEST_F(WiiRemote, decodesButtonsOncePerReportThenMotion)
{
    QKWiiRemote *remote = connectedRemote();
    // Through the interrupt channel, as the remote sends them.
    ASSERT_EQ(::send(fake->remoteEnd(0x13), "\xA1\x30\x00\x08", 4, 0), 4);
    EXPECT_TRUE(waitFor([&] { return !recorder.calls.isEmpty(); }));
    EXPECT_EQ(recorder.calls, QStringList{u"buttons 0008 down"_s});

    const std::pair<QString, QStringList> reports[] = {
        {u"a1 30 00 08"_s, {}},                       // unchanged
        {u"a1 30 10 00"_s, {u"buttons 1008 down"_s}}, // A up, plus down: one call
        {u"a1 30 e0 60"_s, {u"buttons 1000 up"_s}},   // bits outside the mask
        {u"a1 31 00 04 80 80 80"_s, {u"buttons 0004 down"_s, u"moved"_s}},
        {u"a1 31 00 04 80 80 80"_s, {u"moved"_s}},
        {u"a1 20 00 00 00 00 00"_s, {}}, // status
        {u"a1 21 00 08 00 00 00"_s, {}}, // read reply
        {u"a1 33 00 01 80 80"_s, {}},    // short: ignored
        {u"a1"_s, {}},
        {u"a1 33 00 08 80 80 80 ff ff ff ff ff ff ff ff ff ff ff ff"_s,
         {u"buttons 000c down"_s, u"moved"_s}}, // B up, A down: down
    };
    for (const auto &[report, expected] : reports) {
        SCOPED_TRACE(report.toStdString());
        recorder.calls.clear();
        input(remote, report);
        EXPECT_EQ(recorder.calls, expected);
    }
    EXPECT_EQ(remote->buttonState(), QKWiiRemote::ButtonA);
}

TEST_F(WiiRemote, smoothsForcesInItsPrecisionAndTellsOrientation)
{
    QKWiiRemote *remote = makeRemote();
    EXPECT_EQ(remote->forceZ(), 0.25f);
    // Raw samples through the default smoothing of 0.9, the first from rest.
    input(remote, u"a1 31 00 00 ff 80 00"_s);
    EXPECT_EQ(remote->forceX(), 0x1.96666cp-4f);
    EXPECT_EQ(remote->forceY(), 0.0f);
    EXPECT_EQ(remote->forceZ(), 0x1.fffff8p-4f);
    input(remote, u"a1 31 00 00 ff 80 00"_s);
    EXPECT_EQ(remote->forceX(), 0x1.82148p-3f);

    remote->setForceSmoothing(1.0f); // never changes
    input(remote, u"a1 31 00 00 00 00 00"_s);
    EXPECT_EQ(remote->forceX(), 0x1.82148p-3f);

    remote->setForceSmoothing(0.0f); // the last sample; raw 128 is 0 g
    struct Case
    {
        QString xyz;
        float x, z;
        unsigned orientation;
    };
    const Case cases[] = {
        {u"ff 80 80"_s, 0.9921875f, 0.0f, 3},
        {u"00 80 80"_s, -1.0f, 0.0f, 1},
        {u"80 80 c0"_s, 0.0f, 0.5f, 0},
        {u"80 80 00"_s, 0.0f, -1.0f, 2},
        {u"c0 80 40"_s, 0.5f, -0.5f, 2}, // a tie goes to Z
        {u"82 80 80"_s, 0.015625f, 0.0f, QKWiiRemote::NoOrientation},
        {u"83 80 80"_s, 0.0234375f, 0.0f, 3},
        {u"80 80 80"_s, 0.0f, 0.0f, QKWiiRemote::NoOrientation},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.xyz.toStdString());
        input(remote, u"a1 31 00 00 "_s + c.xyz);
        EXPECT_EQ(remote->forceX(), c.x);
        EXPECT_EQ(remote->forceZ(), c.z);
        EXPECT_EQ(remote->orientation(), c.orientation);
    }
}

TEST_F(WiiRemote, decodesDotsIntoCursorAndAngle)
{
    QKWiiRemote *remote = makeRemote();
    EXPECT_FALSE(remote->dotAtIndex(0)->isValid()); // empty until the camera reports
    EXPECT_EQ(remote->dotAtIndex(4), nullptr);
    EXPECT_EQ(remote->dotAtIndex(-1), nullptr);

    const QByteArray header = hex(u"a1 33 00 00 80 80 80"_s);
    const auto send = [&](const QByteArray &dots) {
        const QByteArray report = header + dots;
        remote->l2capChannelData(reinterpret_cast<const quint8 *>(report.constData()),
                                 report.size());
    };
    send(hex(u"10 20 35 ff ff ff 00 00 00 ff ff be"_s));
    const QKWiiDot *first = remote->dotAtIndex(0);
    EXPECT_EQ(first->position(), QPointF(784.0 / 1024, 32.0 / 1024));
    EXPECT_EQ(first->rawSize(), 5);
    EXPECT_EQ(first->size(), 5.0f / 14.0f);
    EXPECT_TRUE(first->isValid());
    EXPECT_FALSE(remote->dotAtIndex(1)->isValid()); // an empty slot: size 15
    EXPECT_FALSE(remote->dotAtIndex(2)->isValid()); // size 0
    EXPECT_EQ(remote->dotAtIndex(3)->position(), QPointF(1023.0 / 1024, 767.0 / 1024));
    EXPECT_EQ(remote->dotAtIndex(3)->size(), 1.0f);
    EXPECT_FALSE(remote->hasCursorLocation());

    struct Case
    {
        int x0, y0, x1, y1;
        QPointF cursor;
        float angle;
    };
    const Case cases[] = {
        {412, 384, 612, 384, {0.0, 0.0}, 0.0f},        // level bar, centred
        {612, 384, 412, 384, {0.0, 0.0}, 0.0f},        // either dot first
        {512, 284, 512, 484, {0.0, 0.0}, 90.0f},       // upright
        {512, 384, 712, 384, {-0.1953125, 0.0}, 0.0f}, // right of centre, mirrored
        {412, 284, 612, 284, {0.0, 0.1953125}, 0.0f},  // above centre
        {412, 284, 612, 484, {-0.0, 0.0}, 45.0f},      // tilted, centred
        {312, 184, 512, 384, {0.2762136, 0.0}, 45.0f}, // tilted, up and left
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.x0);
        send(dot(c.x0, c.y0, 3) + dot(c.x1, c.y1, 3) + dot(0, 0, 15) + dot(0, 0, 15));
        EXPECT_TRUE(remote->hasCursorLocation());
        EXPECT_NEAR(remote->cursorLocation().x(), c.cursor.x(), 1e-6);
        EXPECT_NEAR(remote->cursorLocation().y(), c.cursor.y(), 1e-6);
        EXPECT_NEAR(remote->cursorAngle(), c.angle, 1e-5);
    }

    send(dot(500, 300, 3) + dot(500, 300, 3) + dot(0, 0, 15) + dot(0, 0, 15));
    EXPECT_TRUE(std::isnan(remote->cursorLocation().x()));
    EXPECT_TRUE(std::isnan(remote->cursorAngle()));
    // Turning infrared off keeps the last dots.
    remote->setInfraredEnabled(false);
    EXPECT_EQ(remote->dotAtIndex(0)->position(), QPointF(500.0 / 1024, 300.0 / 1024));
}

TEST_F(WiiRemote, withoutUsableHardwareThereIsNoRemote)
{
    auto fake = std::make_shared<QKFakeWiiRemote>();
    fake->setHardwareUsable(false);
    EXPECT_EQ(QKWiiRemote::remoteWithTransport(fake), nullptr);

    // This machine's own Bluetooth: with no adapter the answer is null, logged, and prompt.
    QElapsedTimer timer;
    timer.start();
    const int warnings = wiiWarnings();
    QKWiiRemote *remote = QKWiiRemote::remote();
    EXPECT_LT(timer.elapsed(), 2000);
    if (!remote) {
        EXPECT_EQ(wiiWarnings(), warnings + 1);
    }

    // One shared remote: a second transport is dropped.
    if (!remote)
        remote = makeRemote();
    EXPECT_EQ(QKWiiRemote::remoteWithTransport(std::make_shared<QKFakeWiiRemote>()), remote);
}

} // namespace
