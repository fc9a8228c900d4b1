#include "QKWiiRemote.h"

#include "QKApplicationLog.h"
#include "QKWiiDot.h"
#include "QKWiiRemoteError.h"
#include "QKWiiRemoteTransport.h"

#include <QCoreApplication>
#include <QPointer>
#include <QSocketNotifier>
#include <QTimer>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <functional>
#include <mutex>
#include <optional>
#include <source_location>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

const QString LogDomain = QStringLiteral("QKWiiRemote");
const QString DeviceName = QStringLiteral("Nintendo RVL-CNT-01");
constexpr quint16 ControlPsm = 0x11;
constexpr quint16 InterruptPsm = 0x13;
// Each close is tried this often before it is given up on.
constexpr int CloseAttempts = 11;
// Packets read per wake-up, so that a flooding remote cannot hold the GUI thread.
constexpr int ReadsPerActivation = 16;

QPointer<QKWiiRemote> s_shared;

void warn(const QObject *sender, const QString &message,
          std::source_location location = std::source_location::current())
{
    QKApplicationLog::sharedLog()->warning(QKApplicationLogContext(LogDomain, sender, location),
                                           message);
}

} // namespace

// The link between a connection running on its own thread and the remote it reports to. The
// remote clears `owner` when it goes, so a late report is dropped instead of reaching it.
struct QKWiiRemote::Attempt
{
    void post(std::function<void(QKWiiRemote *)> call)
    {
        std::lock_guard lock(mutex);
        if (owner) {
            QMetaObject::invokeMethod(
                owner, [remote = owner, call = std::move(call)] { call(remote); },
                Qt::QueuedConnection);
        }
    }

    std::mutex mutex;
    QKWiiRemote *owner;
};

struct QKWiiRemote::Private
{
    std::shared_ptr<QKWiiRemoteTransport> transport;
    std::shared_ptr<Attempt> attempt; // set while a search or connection runs
    QKWiiRemoteDelegate *delegate = nullptr;
    std::optional<QByteArray> wiiDevice;
    int writeChannel = -1;
    int dummyChannel = -1;
    std::array<QSocketNotifier *, 2> notifiers = {}; // the remote's Qt children
    int generation = 0; // tells a connection's late rumble stop from the next connection's
    quint16 buttonState = 0;
    bool leds[4] = {};
    bool vibrate = false;
    bool infraredEnabled = false;
    bool motionSensorEnabled = false;
    float smooth = 0.9f;
    float forceX = 0.0f;
    float forceY = 0.0f;
    float forceZ = 0.25f;
    std::array<QKWiiDot, 4> dots;
    bool reportedBadInput = false; // one warning per run of bad packets

    quint8 rumbleBit() const { return vibrate ? 0x01 : 0x00; }
};

QKWiiRemoteDelegate::~QKWiiRemoteDelegate() = default;
void QKWiiRemoteDelegate::wiiRemoteDetected(QKWiiRemote *) {}
void QKWiiRemoteDelegate::wiiRemoteConnected(QKWiiRemote *) {}
void QKWiiRemoteDelegate::wiiRemoteDisconnected(QKWiiRemote *) {}
void QKWiiRemoteDelegate::wiiRemoteError(QKWiiRemote *, const QKWiiRemoteError &) {}
void QKWiiRemoteDelegate::wiiRemoteButtonChanged(QKWiiRemote *, quint16, bool) {}
void QKWiiRemoteDelegate::wiiRemoteMoved(QKWiiRemote *) {}

QKWiiRemote *QKWiiRemote::remote()
{
    if (s_shared)
        return s_shared;
    return remoteWithTransport(QKWiiRemoteTransport::bluez());
}

QKWiiRemote *QKWiiRemote::remoteWithTransport(std::shared_ptr<QKWiiRemoteTransport> transport)
{
    if (s_shared)
        return s_shared;
    if (!transport || !transport->isHardwareUsable())
        return nullptr;
    s_shared = new QKWiiRemote(std::move(transport), QCoreApplication::instance());
    return s_shared;
}

void QKWiiRemote::dispose()
{
    delete s_shared.data();
}

QKWiiRemote::QKWiiRemote(std::shared_ptr<QKWiiRemoteTransport> transport, QObject *parent)
    : QObject(parent), d(std::make_unique<Private>())
{
    d->transport = std::move(transport);
}

QKWiiRemote::~QKWiiRemote()
{
    disconnect();
    if (d->attempt) {
        std::lock_guard lock(d->attempt->mutex);
        d->attempt->owner = nullptr;
    }
}

void QKWiiRemote::connect()
{
    if (d->wiiDevice || d->attempt)
        return;
    d->attempt = std::make_shared<Attempt>();
    d->attempt->owner = this;
    std::thread(&QKWiiRemote::_connectInBackground, d->attempt, d->transport).detach();
}

// The search and the connection steps, each pause on purpose: the remote needs them. Once a
// step has failed the later ones do nothing, but their pauses are still taken.
void QKWiiRemote::_connectInBackground(std::shared_ptr<Attempt> attempt,
                                       std::shared_ptr<QKWiiRemoteTransport> transport)
{
    const auto finish = [&attempt] {
        attempt->post([](QKWiiRemote *remote) { remote->d->attempt.reset(); });
    };
    const auto isRemote = [](const QKWiiRemoteTransport::Device &device) {
        return device.name == DeviceName;
    };
    // A search that cannot start is not reported.
    const std::optional<QList<QKWiiRemoteTransport::Device>> found = transport->inquiry(isRemote);
    if (!found)
        return finish();
    const auto match = std::find_if(found->cbegin(), found->cend(), isRemote);
    if (match == found->cend()) {
        attempt->post([](QKWiiRemote *remote) { remote->_reportError(1); });
        return finish();
    }
    const QByteArray device = match->address;
    attempt->post([](QKWiiRemote *remote) {
        if (remote->d->delegate)
            remote->d->delegate->wiiRemoteDetected(remote);
    });
    bool hasDevice = true;
    const auto fail = [&](int code) {
        hasDevice = false;
        attempt->post([code](QKWiiRemote *remote) { remote->_reportError(code); });
    };
    if (transport->isConnected(device) && !transport->closeConnection(device))
        fail(2);
    if (hasDevice && !transport->openConnection(device))
        fail(3);
    transport->pause(1s);
    if (hasDevice && !transport->performSDPQuery(device))
        fail(4);
    transport->pause(1s);
    int control = -1;
    if (hasDevice && (control = transport->openL2CAPChannel(device, ControlPsm)) < 0)
        fail(5);
    transport->pause(1s);
    int interrupt = -1;
    if (hasDevice && (interrupt = transport->openL2CAPChannel(device, InterruptPsm)) < 0) {
        transport->closeConnection(device);
        fail(6);
    }
    if (hasDevice) {
        attempt->post([device, control, interrupt](QKWiiRemote *remote) {
            remote->_channelsOpened(device, control, interrupt);
        });
    } else if (control >= 0) {
        ::close(control);
    }
    finish();
}

// The initial reports: LEDs, reporting mode, and a short rumble so the user feels the remote
// is taken. Input waits until the delegate has heard of the connection.
void QKWiiRemote::_channelsOpened(const QByteArray &device, int control, int interrupt)
{
    d->wiiDevice = device;
    d->writeChannel = control;
    d->dummyChannel = interrupt;
    for (int i = 0; i < 2; ++i) {
        const int fd = i == 0 ? control : interrupt;
        d->notifiers[i] = new QSocketNotifier(fd, QSocketNotifier::Read, this);
        d->notifiers[i]->setEnabled(false);
        QObject::connect(d->notifiers[i], &QSocketNotifier::activated, this,
                         [this, fd] { _readChannel(fd); });
    }
    _updateLEDs();
    _updateEnabling();
    setVibrate(true);
    const int generation = ++d->generation;
    QTimer::singleShot(500ms, this, [this, generation] {
        if (!d->wiiDevice || d->generation != generation)
            return;
        setVibrate(false);
        for (QSocketNotifier *notifier : d->notifiers) {
            if (notifier)
                notifier->setEnabled(true);
        }
        if (d->delegate)
            d->delegate->wiiRemoteConnected(this);
    });
}

void QKWiiRemote::disconnect()
{
    if (!d->wiiDevice)
        return;
    _stopReading();
    for (int *channel : {&d->writeChannel, &d->dummyChannel}) {
        if (*channel < 0)
            continue;
        bool closed = false;
        for (int i = 0; i < CloseAttempts && !closed; ++i)
            closed = d->transport->closeChannel(*channel);
        if (!closed)
            ::close(*channel); // the channel is left to the remote, the descriptor is not
        *channel = -1;
    }
    if (d->transport->isConnected(*d->wiiDevice)) {
        for (int i = 0; i < CloseAttempts && !d->transport->closeConnection(*d->wiiDevice); ++i) {
        }
    }
    d->wiiDevice.reset();
    if (d->delegate)
        d->delegate->wiiRemoteDisconnected(this);
}

// The remote went away (out of range, batteries, its power button): the channels hang up.
void QKWiiRemote::_disconnected()
{
    _stopReading();
    for (int *channel : {&d->writeChannel, &d->dummyChannel}) {
        if (*channel >= 0)
            ::close(*channel);
        *channel = -1;
    }
    d->wiiDevice.reset();
    if (d->delegate)
        d->delegate->wiiRemoteDisconnected(this);
}

void QKWiiRemote::_stopReading()
{
    for (QSocketNotifier *&notifier : d->notifiers) {
        if (!notifier)
            continue;
        // Stopping can happen inside the notifier's own signal, so it goes later.
        notifier->setEnabled(false);
        notifier->deleteLater();
        notifier = nullptr;
    }
}

void QKWiiRemote::_readChannel(int fd)
{
    quint8 packet[64];
    for (int i = 0; i < ReadsPerActivation; ++i) {
        const ssize_t size = ::recv(fd, packet, sizeof(packet), MSG_DONTWAIT);
        if (size > 0) {
            l2capChannelData(packet, size);
            // The delegate may have disconnected.
            if (fd != d->writeChannel && fd != d->dummyChannel)
                return;
            continue;
        }
        if (size < 0 && errno == EINTR)
            continue;
        if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        warn(this, size == 0 ? QStringLiteral("The Wii Remote closed its channel")
                             : QStringLiteral("Reading from the Wii Remote failed: %1")
                                   .arg(QString::fromLocal8Bit(std::strerror(errno))));
        _disconnected();
        return;
    }
}

bool QKWiiRemote::isConnected() const
{
    return d->wiiDevice.has_value();
}

bool QKWiiRemote::isConnecting() const
{
    return d->attempt != nullptr;
}

QKWiiRemoteDelegate *QKWiiRemote::delegate() const
{
    return d->delegate;
}

void QKWiiRemote::setDelegate(QKWiiRemoteDelegate *delegate)
{
    d->delegate = delegate;
}

void QKWiiRemote::_reportError(int code)
{
    const QKWiiRemoteError error(code, code == 7 ? QKWiiRemoteError::sendingAction()
                                                 : QKWiiRemoteError::connectingAction());
    warn(this, QStringLiteral("%1: %2").arg(error.action(), error.localizedDescription()));
    if (d->delegate)
        d->delegate->wiiRemoteError(this, error);
}

bool QKWiiRemote::vibrate() const
{
    return d->vibrate;
}

void QKWiiRemote::setVibrate(bool vibrate)
{
    d->vibrate = vibrate;
    _updateLEDs();
}

bool QKWiiRemote::LED1State() const
{
    return d->leds[0];
}

bool QKWiiRemote::LED2State() const
{
    return d->leds[1];
}

bool QKWiiRemote::LED3State() const
{
    return d->leds[2];
}

bool QKWiiRemote::LED4State() const
{
    return d->leds[3];
}

void QKWiiRemote::setLED1State(bool on)
{
    d->leds[0] = on;
    _updateLEDs();
}

void QKWiiRemote::setLED2State(bool on)
{
    d->leds[1] = on;
    _updateLEDs();
}

void QKWiiRemote::setLED3State(bool on)
{
    d->leds[2] = on;
    _updateLEDs();
}

void QKWiiRemote::setLED4State(bool on)
{
    d->leds[3] = on;
    _updateLEDs();
}

bool QKWiiRemote::motionSensorEnabled() const
{
    return d->motionSensorEnabled;
}

void QKWiiRemote::setMotionSensorEnabled(bool enabled)
{
    d->motionSensorEnabled = enabled;
    _updateEnabling();
}

bool QKWiiRemote::infraredEnabled() const
{
    return d->infraredEnabled;
}

void QKWiiRemote::setInfraredEnabled(bool enabled)
{
    d->infraredEnabled = enabled;
    _updateEnabling();
    const quint8 camera = enabled ? 0x04 : 0x00;
    const quint8 enable[] = {0x13, quint8(camera | d->rumbleBit())};
    _sendCommand(enable, sizeof(enable));
    // The second enable report goes without the rumble bit; the remote does not need it.
    const quint8 enable2[] = {0x1A, camera};
    _sendCommand(enable2, sizeof(enable2));
    if (!enabled)
        return;
    // Start the set-up, the two sensitivity blocks, the extended format (3 bytes per dot,
    // which l2capChannelData() decodes), and finish the set-up.
    static constexpr quint8 Start[] = {0x01};
    static constexpr quint8 Sensitivity1[] = {0x02, 0x00, 0x00, 0x71, 0x01, 0x00, 0xAA, 0x00, 0x64};
    static constexpr quint8 Sensitivity2[] = {0x63, 0x03};
    static constexpr quint8 ExtendedFormat[] = {0x03};
    static constexpr quint8 Finish[] = {0x08};
    _writeData(Start, sizeof(Start), 0x04B00030);
    _writeData(Sensitivity1, sizeof(Sensitivity1), 0x04B00000);
    _writeData(Sensitivity2, sizeof(Sensitivity2), 0x04B0001A);
    _writeData(ExtendedFormat, sizeof(ExtendedFormat), 0x04B00033);
    _writeData(Finish, sizeof(Finish), 0x04B00030);
}

float QKWiiRemote::forceSmoothing() const
{
    return d->smooth;
}

void QKWiiRemote::setForceSmoothing(float smooth)
{
    d->smooth = smooth;
}

void QKWiiRemote::_updateLEDs()
{
    const quint8 leds = (d->leds[0] ? 0x10 : 0) | (d->leds[1] ? 0x20 : 0) |
                        (d->leds[2] ? 0x40 : 0) | (d->leds[3] ? 0x80 : 0) | d->rumbleBit();
    const quint8 report[] = {0x11, leds};
    _sendCommand(report, sizeof(report));
}

// Without the continuous flag (0x04) the remote reports only when something changes.
void QKWiiRemote::_updateEnabling()
{
    const quint8 mode = d->infraredEnabled ? 0x33 : d->motionSensorEnabled ? 0x31 : 0x30;
    const quint8 report[] = {0x12, d->rumbleBit(), mode};
    _sendCommand(report, sizeof(report));
}

void QKWiiRemote::_writeData(const quint8 *data, qsizetype length, quint32 address)
{
    quint8 report[22] = {0x16, quint8((address >> 24) | d->rumbleBit()), quint8(address >> 16),
                         quint8(address >> 8), quint8(address)};
    const qsizetype size = qBound(qsizetype(0), length, qsizetype(16));
    report[5] = quint8(size);
    std::memcpy(report + 6, data, size);
    _sendCommand(report, sizeof(report));
}

// 0x52 is the HID transaction that sets an output report.
void QKWiiRemote::_sendCommand(const quint8 *report, qsizetype length)
{
    if (!d->wiiDevice || !d->transport->isConnected(*d->wiiDevice))
        return;
    quint8 buffer[40] = {0x52};
    const qsizetype size = qBound(qsizetype(0), length, qsizetype(39));
    std::memcpy(buffer + 1, report, size);
    const ssize_t written = ::send(d->writeChannel, buffer, size + 1, MSG_NOSIGNAL);
    if (written != size + 1)
        _reportError(7);
    // The remote drops reports that follow each other too closely.
    d->transport->pause(100us);
}

void QKWiiRemote::l2capChannelData(const quint8 *data, qsizetype length)
{
    if (length < 2 || (data[1] & 0xF0) != 0x30)
        return;
    const quint8 id = data[1];
    const bool hasForces = id & 0x01;
    const bool hasDots = id & 0x02;
    const qsizetype needed = hasDots ? 19 : hasForces ? 7 : 4;
    if (length < needed) {
        if (!d->reportedBadInput) {
            warn(this, QStringLiteral("Ignored input report 0x%1 of %2 bytes; it needs %3")
                           .arg(id, 2, 16, QLatin1Char('0'))
                           .arg(length)
                           .arg(needed));
        }
        d->reportedBadInput = true;
        return;
    }
    d->reportedBadInput = false;
    // The mask leaves out the accelerometer's low bits, which share these two bytes.
    const quint16 buttons = ((data[2] << 8) | data[3]) & 0x1F9F;
    if (buttons != d->buttonState) {
        const quint16 changed = d->buttonState ^ buttons;
        if (d->delegate)
            d->delegate->wiiRemoteButtonChanged(this, changed, (buttons & changed) != 0);
        d->buttonState = buttons;
    }
    if (hasForces) {
        const double a = d->smooth;
        const auto smoothed = [a](float old, quint8 raw) {
            const float sample = float(raw) * 0.0078125f - 1.0f;
            return float(a * old + sample * (1.0 - a));
        };
        d->forceX = smoothed(d->forceX, data[4]);
        d->forceY = smoothed(d->forceY, data[5]);
        d->forceZ = smoothed(d->forceZ, data[6]);
    }
    if (hasDots) {
        for (int k = 0; k < 4; ++k)
            d->dots[k]._setWithData(data + 7 + 3 * k);
    }
    if ((hasForces || hasDots) && d->delegate)
        d->delegate->wiiRemoteMoved(this);
}

quint16 QKWiiRemote::buttonState() const
{
    return d->buttonState;
}

float QKWiiRemote::forceX() const
{
    return d->forceX;
}

float QKWiiRemote::forceY() const
{
    return d->forceY;
}

float QKWiiRemote::forceZ() const
{
    return d->forceZ;
}

unsigned QKWiiRemote::orientation() const
{
    const float x = std::fabs(d->forceX);
    const float z = std::fabs(d->forceZ);
    if (z >= x)
        return z > 0.02 ? (d->forceZ > 0 ? 0 : 2) : NoOrientation;
    return x > 0.02 ? (d->forceX > 0 ? 3 : 1) : NoOrientation;
}

float QKWiiRemote::roll() const
{
    return 0.0f;
}

float QKWiiRemote::pitch() const
{
    return 0.0f;
}

float QKWiiRemote::yaw() const
{
    return 0.0f;
}

const QKWiiDot *QKWiiRemote::dotAtIndex(int index) const
{
    if (index < 0 || index >= int(d->dots.size()))
        return nullptr;
    return &d->dots[index];
}

bool QKWiiRemote::hasCursorLocation() const
{
    return d->dots[0].isValid() && d->dots[1].isValid();
}

// The bar's tilt is taken between 0 and 90 degrees whichever dot is which; the offset of the
// dots' midpoint from the camera centre (0.5, 0.375) is turned back by it and negated, since
// the camera sees the scene mirrored.
QPointF QKWiiRemote::cursorLocation() const
{
    const float x0 = d->dots[0].x(), y0 = d->dots[0].y();
    const float x1 = d->dots[1].x(), y1 = d->dots[1].y();
    const float dx = std::fabs(x0 - x1);
    const float dy = std::fabs(y0 - y1);
    const float length = std::sqrt(dx * dx + dy * dy);
    const float c = dx / length;
    const float s = dy / length;
    const float sx = x0 + x1 - 1.0f;
    const float sy = y0 + y1 - 0.75f;
    return QPointF(-(c * sx + s * sy), s * sx - c * sy);
}

float QKWiiRemote::cursorAngle() const
{
    const float dx = std::fabs(d->dots[0].x() - d->dots[1].x());
    const float dy = std::fabs(d->dots[0].y() - d->dots[1].y());
    const float length = std::sqrt(dx * dx + dy * dy);
    return float(double(std::atan2(dy / length, dx / length)) * 57.29577951308232);
}
