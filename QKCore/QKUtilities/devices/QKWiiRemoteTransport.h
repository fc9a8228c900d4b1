#pragma once

#include "QKUtilitiesGlobal.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

/**
 * The Bluetooth operations QKWiiRemote needs: the device search, the baseband link, the SDP
 * query and the two L2CAP channels, which come back as connected SOCK_SEQPACKET
 * descriptors that QKWiiRemote reads and writes itself.
 *
 * Everything but isHardwareUsable() may block and is called off the GUI thread while a
 * connection is made, and from the GUI thread for sends and disconnects; an implementation
 * must allow that. Every operation answers false (or -1, or nothing) on failure.
 */
class QKUTILITIES_EXPORT QKWiiRemoteTransport
{
public:
    struct Device
    {
        /** The Bluetooth address, "00:1F:32:AB:CD:EF". */
        QByteArray address;
        /** The remote name; empty when it could not be read. */
        QString name;
    };

    /** The BlueZ implementation: HCI inquiry and names through libbluetooth, raw L2CAP
     *  sockets for the channels. */
    static std::shared_ptr<QKWiiRemoteTransport> bluez();

    virtual ~QKWiiRemoteTransport();

    /** Whether a powered Bluetooth adapter is present; logs why not. Must answer promptly. */
    virtual bool isHardwareUsable() = 0;
    /** Searches for devices and reads their names in the order found; each device with its
     *  name is shown to @p nameUpdated, and a true answer ends the search there. The devices
     *  found, or nothing when the search could not start. */
    virtual std::optional<QList<Device>>
    inquiry(const std::function<bool(const Device &)> &nameUpdated) = 0;
    /** Whether a baseband link to @p address is up. */
    virtual bool isConnected(const QByteArray &address) = 0;
    virtual bool openConnection(const QByteArray &address) = 0;
    virtual bool closeConnection(const QByteArray &address) = 0;
    virtual bool performSDPQuery(const QByteArray &address) = 0;
    /** A connected, non-blocking L2CAP channel to @p psm; -1 on failure. */
    virtual int openL2CAPChannel(const QByteArray &address, quint16 psm) = 0;
    /** Ends the channel @p fd. On failure the descriptor stays open and the call may be
     *  repeated; on success it is closed. */
    virtual bool closeChannel(int fd) = 0;
    /** Blocks the calling thread for @p duration. The remote's protocol needs these pauses;
     *  a fake may record them instead. */
    virtual void pause(std::chrono::microseconds duration);
};
