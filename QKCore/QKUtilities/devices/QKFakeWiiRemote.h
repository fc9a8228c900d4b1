#pragma once

#include "QKWiiRemoteTransport.h"

#include <QStringList>

#include <memory>

/**
 * A Wii Remote without Bluetooth: a transport whose channels are AF_UNIX SOCK_SEQPACKET
 * socket pairs, which keep report boundaries as L2CAP does. The remote's side of each
 * channel is remoteEnd(): output reports arrive there, and input reports written there reach
 * QKWiiRemote. Each step can be made to fail, and every call is recorded (with the pauses,
 * which are not slept), so the protocol can be checked and shown without hardware.
 *
 * Safe to use from the connecting thread and the GUI thread at once.
 */
class QKUTILITIES_EXPORT QKFakeWiiRemote final : public QKWiiRemoteTransport
{
public:
    enum class Step {
        None,
        Inquiry,
        CloseStaleConnection,
        OpenConnection,
        SDPQuery,
        ControlChannel,
        InterruptChannel
    };

    /** A fake whose search finds @p devices, in that order; by default one remote. */
    explicit QKFakeWiiRemote(const QList<Device> &devices = {
                                 {"00:1F:32:00:00:01", QStringLiteral("Nintendo RVL-CNT-01")}});
    ~QKFakeWiiRemote() override;

    void setHardwareUsable(bool usable);
    /** Makes @p step fail from now on. */
    void setFailingStep(Step step);
    /** Whether a baseband link is already up before connecting. */
    void setLinkUp(bool up);
    /** Each later channel or link close fails this many times before it works. */
    void setCloseFailures(int failures);
    /** The remote's end of the channel on @p psm; -1 while that channel is not open. */
    int remoteEnd(quint16 psm) const;
    /** Every call so far, one line each ("openL2CAPChannel 0x11", "pause 1000000"). */
    QStringList calls() const;
    void clearCalls();

    bool isHardwareUsable() override;
    std::optional<QList<Device>>
    inquiry(const std::function<bool(const Device &)> &nameUpdated) override;
    bool isConnected(const QByteArray &address) override;
    bool openConnection(const QByteArray &address) override;
    bool closeConnection(const QByteArray &address) override;
    bool performSDPQuery(const QByteArray &address) override;
    int openL2CAPChannel(const QByteArray &address, quint16 psm) override;
    bool closeChannel(int fd) override;
    void pause(std::chrono::microseconds duration) override;

private:
    struct Private;
    std::unique_ptr<Private> d;
};
