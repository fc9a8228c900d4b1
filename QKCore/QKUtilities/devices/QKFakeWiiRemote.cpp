#include "QKFakeWiiRemote.h"

#include <QMap>

#include <mutex>
#include <sys/socket.h>
#include <unistd.h>

struct QKFakeWiiRemote::Private
{
    struct Channel
    {
        quint16 psm;
        int remoteEnd;
    };

    // Takes one of the failures a close is allowed, per channel or link.
    bool closeFails(const QString &what)
    {
        int &left = closeFailuresLeft[what];
        if (left == 0)
            return false;
        --left;
        return true;
    }
    void resetCloseFailures()
    {
        for (const char *what : {"0x11", "0x13", "link"})
            closeFailuresLeft[QString::fromLatin1(what)] = closeFailures;
    }

    mutable std::mutex mutex;
    QList<Device> devices;
    bool hardwareUsable = true;
    Step failing = Step::None;
    bool linkUp = false;
    int closeFailures = 0;
    QMap<QString, int> closeFailuresLeft;
    QMap<int, Channel> channels;   // by the descriptor handed out
    QMap<quint16, int> remoteEnds; // of the channel last opened on each PSM
    QStringList calls;
};

QKFakeWiiRemote::QKFakeWiiRemote(const QList<Device> &devices) : d(std::make_unique<Private>())
{
    d->devices = devices;
}

QKFakeWiiRemote::~QKFakeWiiRemote()
{
    for (auto it = d->channels.cbegin(); it != d->channels.cend(); ++it)
        ::close(it->remoteEnd);
}

void QKFakeWiiRemote::setHardwareUsable(bool usable)
{
    std::lock_guard lock(d->mutex);
    d->hardwareUsable = usable;
}

void QKFakeWiiRemote::setFailingStep(Step step)
{
    std::lock_guard lock(d->mutex);
    d->failing = step;
}

void QKFakeWiiRemote::setLinkUp(bool up)
{
    std::lock_guard lock(d->mutex);
    d->linkUp = up;
}

void QKFakeWiiRemote::setCloseFailures(int failures)
{
    std::lock_guard lock(d->mutex);
    d->closeFailures = failures;
    d->resetCloseFailures();
}

int QKFakeWiiRemote::remoteEnd(quint16 psm) const
{
    std::lock_guard lock(d->mutex);
    return d->remoteEnds.value(psm, -1);
}

QStringList QKFakeWiiRemote::calls() const
{
    std::lock_guard lock(d->mutex);
    return d->calls;
}

void QKFakeWiiRemote::clearCalls()
{
    std::lock_guard lock(d->mutex);
    d->calls.clear();
}

bool QKFakeWiiRemote::isHardwareUsable()
{
    std::lock_guard lock(d->mutex);
    return d->hardwareUsable;
}

std::optional<QList<QKWiiRemoteTransport::Device>>
QKFakeWiiRemote::inquiry(const std::function<bool(const Device &)> &nameUpdated)
{
    QList<Device> devices;
    {
        std::lock_guard lock(d->mutex);
        d->calls << QStringLiteral("inquiry");
        if (d->failing == Step::Inquiry)
            return std::nullopt;
        devices = d->devices;
    }
    // Names the search did not get to stay unknown, as when an inquiry is stopped.
    QList<Device> found;
    for (const Device &device : std::as_const(devices)) {
        found.append(device);
        if (nameUpdated(device))
            break;
    }
    for (qsizetype i = found.size(); i < devices.size(); ++i)
        found.append({devices.at(i).address, QString()});
    return found;
}

bool QKFakeWiiRemote::isConnected(const QByteArray &)
{
    std::lock_guard lock(d->mutex);
    return d->linkUp;
}

bool QKFakeWiiRemote::openConnection(const QByteArray &address)
{
    std::lock_guard lock(d->mutex);
    d->calls << QStringLiteral("openConnection %1").arg(QString::fromLatin1(address));
    if (d->failing == Step::OpenConnection)
        return false;
    d->linkUp = true;
    d->resetCloseFailures();
    return true;
}

bool QKFakeWiiRemote::closeConnection(const QByteArray &)
{
    std::lock_guard lock(d->mutex);
    d->calls << QStringLiteral("closeConnection");
    if (d->failing == Step::CloseStaleConnection || d->closeFails(QStringLiteral("link")))
        return false;
    d->linkUp = false;
    return true;
}

bool QKFakeWiiRemote::performSDPQuery(const QByteArray &)
{
    std::lock_guard lock(d->mutex);
    d->calls << QStringLiteral("performSDPQuery");
    return d->failing != Step::SDPQuery;
}

int QKFakeWiiRemote::openL2CAPChannel(const QByteArray &, quint16 psm)
{
    std::lock_guard lock(d->mutex);
    d->calls << QStringLiteral("openL2CAPChannel 0x%1").arg(psm, 0, 16);
    if ((psm == 0x11 && d->failing == Step::ControlChannel) ||
        (psm == 0x13 && d->failing == Step::InterruptChannel))
        return -1;
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0)
        return -1;
    // A channel the remote dropped without a close may have left its number behind.
    if (const auto stale = d->channels.constFind(ends[0]); stale != d->channels.cend()) {
        ::close(stale->remoteEnd);
        if (d->remoteEnds.value(stale->psm) == stale->remoteEnd)
            d->remoteEnds.remove(stale->psm);
    }
    d->channels.insert(ends[0], {psm, ends[1]});
    d->remoteEnds.insert(psm, ends[1]);
    return ends[0];
}

bool QKFakeWiiRemote::closeChannel(int fd)
{
    std::lock_guard lock(d->mutex);
    const auto channel = d->channels.constFind(fd);
    const QString psm = channel == d->channels.cend()
                            ? QStringLiteral("?")
                            : QStringLiteral("0x%1").arg(channel->psm, 0, 16);
    d->calls << QStringLiteral("closeChannel %1").arg(psm);
    if (d->closeFails(psm))
        return false;
    ::close(fd);
    if (channel != d->channels.cend()) {
        ::close(channel->remoteEnd);
        if (d->remoteEnds.value(channel->psm) == channel->remoteEnd)
            d->remoteEnds.remove(channel->psm);
        d->channels.erase(channel);
    }
    return true;
}

void QKFakeWiiRemote::pause(std::chrono::microseconds duration)
{
    std::lock_guard lock(d->mutex);
    d->calls << QStringLiteral("pause %1").arg(duration.count());
}
