#include "QKRemoteControl.h"

#include "QKApplicationLog.h"
#include "QKRemoteControlDevice.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QList>
#include <QPointer>
#include <QSocketNotifier>
#include <QTimer>

#include <linux/input.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <source_location>
#include <unistd.h>

namespace {

const QString LogDomain = QStringLiteral("QKRemoteControl");
// The receiver's queue keeps at most this many events; later ones are dropped until the
// delegate has been called.
constexpr qsizetype QueueDepth = 30;
// Reads per wake-up, so that a device flooding the queue cannot hold the GUI thread.
constexpr int ReadsPerActivation = 8;
// How long a device whose reads fail is left alone before the next try, in milliseconds.
constexpr int ReadRetryInterval = 250;

QPointer<QKRemoteControl> s_shared;

struct RemoteEvent
{
    int cookie;
    int value;
};

} // namespace

// The receiver's event queue: the key codes it was asked to watch, the events read while
// running, and the bytes of a record that has not fully arrived yet.
struct RemoteQueue
{
    bool create(int descriptor, qsizetype queueDepth)
    {
        if (descriptor < 0 || queueDepth <= 0)
            return false;
        fd = descriptor;
        depth = queueDepth;
        return true;
    }
    bool isCreated() const { return fd >= 0; }
    bool addElement(int code)
    {
        if (!isCreated() || QKRemoteControlDevice::cookieForKeyCode(code) == 0)
            return false;
        codes.append(code);
        return true;
    }
    enum ReadStatus { Drained, Vanished, Failed };
    /** Reads what the device has ready into the queue; @p error is set when that fails. */
    ReadStatus readAvailable(int *error);
    void append(const char *data, qsizetype size);

    int fd = -1;
    qsizetype depth = 0;
    QList<int> codes;
    std::deque<RemoteEvent> events;
    QByteArray pending;
    bool running = false;
    qsizetype dropped = 0;
    QSocketNotifier *notifier = nullptr; // owned by the receiver as its Qt child
};

RemoteQueue::ReadStatus RemoteQueue::readAvailable(int *error)
{
    char buffer[sizeof(input_event) * QueueDepth];
    for (int i = 0; i < ReadsPerActivation; ++i) {
        const ssize_t size = ::read(fd, buffer, sizeof(buffer));
        if (size > 0) {
            append(buffer, size);
            continue;
        }
        if (size < 0 && errno == EINTR)
            continue;
        if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return Drained;
        // A pulled receiver reports ENODEV; a pipe whose writer is gone reports its end.
        if (size == 0 || errno == ENODEV)
            return Vanished;
        *error = errno;
        return Failed;
    }
    return Drained;
}

void RemoteQueue::append(const char *data, qsizetype size)
{
    pending.append(data, size);
    constexpr qsizetype RecordSize = sizeof(input_event);
    qsizetype offset = 0;
    for (; pending.size() - offset >= RecordSize; offset += RecordSize) {
        input_event record;
        std::memcpy(&record, pending.constData() + offset, RecordSize);
        // Synchronisation and scan-code records come with every key, and the kernel's key
        // repeats (value 2) are not presses of the receiver.
        if (record.type != EV_KEY || (record.value != 0 && record.value != 1))
            continue;
        if (!running || !codes.contains(record.code))
            continue;
        if (qsizetype(events.size()) >= depth) {
            ++dropped;
            continue;
        }
        events.push_back({QKRemoteControlDevice::cookieForKeyCode(record.code), record.value});
    }
    pending.remove(0, offset);
}

struct QKRemoteControl::Private
{
    void warn(const QKRemoteControl *q, const QString &message,
              std::source_location location = std::source_location::current())
    {
        errorString = message;
        QKApplicationLog::sharedLog()->warning(QKApplicationLogContext(LogDomain, q, location),
                                               message);
    }

    std::unique_ptr<QKRemoteControlDevice> device;
    std::unique_ptr<RemoteQueue> queue;
    QKRemoteControlDelegate *delegate = nullptr;
    QString errorString;
    int lastReadError = 0; // reported once until a read succeeds again
};

QKRemoteControlDelegate::~QKRemoteControlDelegate() = default;
void QKRemoteControlDelegate::menuClicked(QKRemoteControl *) {}
void QKRemoteControlDelegate::playClicked(QKRemoteControl *) {}
void QKRemoteControlDelegate::nextClicked(QKRemoteControl *) {}
void QKRemoteControlDelegate::previousClicked(QKRemoteControl *) {}
void QKRemoteControlDelegate::volumeUpClicked(QKRemoteControl *) {}
void QKRemoteControlDelegate::volumeDownClicked(QKRemoteControl *) {}

QKRemoteControl *QKRemoteControl::remoteControl()
{
    if (s_shared)
        return s_shared;
    return remoteControlWithDevice(QKRemoteControlDevice::evdev());
}

QKRemoteControl *
QKRemoteControl::remoteControlWithDevice(std::unique_ptr<QKRemoteControlDevice> device)
{
    if (!s_shared)
        s_shared = new QKRemoteControl(std::move(device), QCoreApplication::instance());
    return s_shared;
}

void QKRemoteControl::dispose()
{
    delete s_shared.data();
}

QKRemoteControl::QKRemoteControl(std::unique_ptr<QKRemoteControlDevice> device, QObject *parent)
    : QObject(parent), d(std::make_unique<Private>())
{
    d->device = std::move(device);
    setEnabled(true);
    if (QCoreApplication *application = QCoreApplication::instance()) {
        connect(application, &QCoreApplication::aboutToQuit, this,
                &QKRemoteControl::applicationWillTerminate);
    }
}

QKRemoteControl::~QKRemoteControl()
{
    _dispose();
}

QKRemoteControlDelegate *QKRemoteControl::delegate() const
{
    return d->delegate;
}

void QKRemoteControl::setDelegate(QKRemoteControlDelegate *delegate)
{
    d->delegate = delegate;
}

bool QKRemoteControl::enabled() const
{
    return d->queue != nullptr;
}

void QKRemoteControl::setEnabled(bool enabled)
{
    if (enabled && !d->queue) {
        _initQueue();
    } else if (!enabled && d->queue) {
        stop();
        _dispose();
    }
}

bool QKRemoteControl::isRunning() const
{
    return d->queue && d->queue->running;
}

void QKRemoteControl::start()
{
    if (!d->queue)
        return;
    if (!d->queue->isCreated()) {
        d->warn(this, QStringLiteral("Starting the remote queue failed"));
        return;
    }
    if (!d->queue->running) {
        // Presses made while stopped may still wait in the device; they are not wanted. An
        // error here is seen again, and reported, by the next wake-up.
        int error = 0;
        d->queue->readAvailable(&error);
    }
    d->queue->running = true;
}

void QKRemoteControl::stop()
{
    if (!d->queue)
        return;
    if (!d->queue->isCreated()) {
        d->warn(this, QStringLiteral("Stopping the remote queue failed"));
        return;
    }
    d->queue->running = false;
    d->queue->events.clear();
}

QString QKRemoteControl::errorString() const
{
    return d->errorString;
}

void QKRemoteControl::applicationWillTerminate()
{
    setEnabled(false);
}

// Each step that fails logs and stops, leaving the receiver disabled, or enabled with a
// queue that never runs when the queue was already allocated.
void QKRemoteControl::_initQueue()
{
    QKRemoteControlDevice *device = d->device.get();
    if (!device || !device->find()) {
        d->warn(this, QStringLiteral("Finding the AppleIRController service failed"));
        return;
    }
    if (!device->open()) {
        d->warn(this, QStringLiteral("Creating the plugin for the remote failed"));
        return;
    }
    if (!device->seize()) {
        device->close();
        // The spelling is part of the log's contract: people search the logs for it.
        d->warn(this, QStringLiteral("Attempting to sieze the remote failed"));
        return;
    }
    const QList<int> elements = device->keyCodes();
    if (elements.isEmpty()) {
        // No queue will hold the device, so nothing would ever release the grab.
        device->close();
        d->warn(this, QStringLiteral("Retrieving the remote interface elements failed"));
        return;
    }
    d->queue = std::make_unique<RemoteQueue>();
    if (!d->queue->create(device->fileDescriptor(), QueueDepth)) {
        d->warn(this, QStringLiteral("Creating the remote queue failed"));
        return;
    }
    for (const int code : elements) {
        if (!d->queue->addElement(code)) {
            d->warn(this, QStringLiteral("Adding elements to the remote queue failed"));
            return;
        }
    }
    auto *notifier = new QSocketNotifier(d->queue->fd, QSocketNotifier::Read, this);
    d->queue->notifier = notifier;
    if (!notifier->isValid()) {
        d->warn(this, QStringLiteral("Creating the event source for the remote failed"));
        return;
    }
    if (!connect(notifier, &QSocketNotifier::activated, this, &QKRemoteControl::_readDevice)) {
        d->warn(this, QStringLiteral("Setting the remote event callback failed"));
        return;
    }
    d->errorString.clear();
}

void QKRemoteControl::_readDevice()
{
    if (!d->queue)
        return;
    int result = 0;
    const RemoteQueue::ReadStatus status = d->queue->readAvailable(&result);
    if (status == RemoteQueue::Failed) {
        if (result != d->lastReadError) {
            d->warn(this, QStringLiteral("Reading the remote failed: %1")
                              .arg(QString::fromLocal8Bit(std::strerror(result))));
        }
        _pauseReading();
    }
    d->lastReadError = result;
    const bool vanished = status == RemoteQueue::Vanished;
    if (d->queue->dropped > 0) {
        d->warn(this, QStringLiteral("The remote queue was full; %1 events were dropped")
                          .arg(d->queue->dropped));
        d->queue->dropped = 0;
    }
    remoteControlEvent(result);
    if (!vanished || !d->queue)
        return;
    if (!d->queue->pending.isEmpty()) {
        d->warn(this, QStringLiteral("Dropped a partial event of %1 bytes from the remote")
                          .arg(d->queue->pending.size()));
    }
    d->warn(this, QStringLiteral("The remote %1 went away; it is disabled")
                      .arg(d->device ? d->device->path() : QString()));
    setEnabled(false);
}

// A failing device stays readable, so reading again at once would hold the GUI thread.
void QKRemoteControl::_pauseReading()
{
    QSocketNotifier *notifier = d->queue->notifier;
    notifier->setEnabled(false);
    QTimer::singleShot(ReadRetryInterval, notifier, [this, notifier] {
        if (d->queue && d->queue->notifier == notifier)
            notifier->setEnabled(true);
    });
}

void QKRemoteControl::remoteControlEvent(int result)
{
    if (result != 0)
        return;
    // The delegate may disable the receiver from inside a callback.
    while (d->queue && !d->queue->events.empty()) {
        const RemoteEvent event = d->queue->events.front();
        d->queue->events.pop_front();
        if (event.value == 0 || !d->delegate)
            continue;
        switch (event.cookie) {
        case 7:
            d->delegate->menuClicked(this);
            break;
        case 8:
            d->delegate->playClicked(this);
            break;
        case 9:
            d->delegate->nextClicked(this);
            break;
        case 10:
            d->delegate->previousClicked(this);
            break;
        case 12:
            d->delegate->volumeUpClicked(this);
            break;
        case 13:
            d->delegate->volumeDownClicked(this);
            break;
        default: // 11, the centre button, has no method
            break;
        }
    }
}

void QKRemoteControl::_dispose()
{
    if (d->queue && d->queue->notifier) {
        // Disabling can happen inside the notifier's own signal, so it goes later.
        d->queue->notifier->setEnabled(false);
        d->queue->notifier->deleteLater();
    }
    d->queue.reset();
    if (d->device)
        d->device->close();
}
