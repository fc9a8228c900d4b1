#include "QKWiiRemoteTransport.h"

#include "QKApplicationLog.h"

#include <bluetooth/bluetooth.h>
#include <bluetooth/hci.h>
#include <bluetooth/hci_lib.h>
#include <bluetooth/l2cap.h>
#include <bluetooth/sdp.h>
#include <bluetooth/sdp_lib.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <source_location>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

const QString LogDomain = QStringLiteral("QKWiiRemote");
// The inquiry lasts this many units of 1.28 s, long enough for a remote in discoverable mode
// (its 1 and 2 buttons held) to answer.
constexpr int InquiryLength = 8;
constexpr int MaxResponses = 16;
constexpr int NameTimeoutMs = 5000;
constexpr int LinkTimeoutMs = 10000;

void warn(const QString &message, std::source_location location = std::source_location::current())
{
    QKApplicationLog::sharedLog()->warning(QKApplicationLogContext(LogDomain, nullptr, location),
                                           message);
}

QString lastError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

bdaddr_t toBdaddr(const QByteArray &address)
{
    bdaddr_t result{};
    str2ba(address.constData(), &result);
    return result;
}

// An HCI socket on the adapter that routes to @p address (any adapter when null); closed
// when it goes out of scope.
class HciSocket
{
public:
    explicit HciSocket(const bdaddr_t *address = nullptr)
        : m_device(hci_get_route(const_cast<bdaddr_t *>(address))),
          m_fd(m_device >= 0 ? hci_open_dev(m_device) : -1)
    {}
    ~HciSocket()
    {
        if (m_fd >= 0)
            hci_close_dev(m_fd);
    }
    HciSocket(const HciSocket &) = delete;
    HciSocket &operator=(const HciSocket &) = delete;

    int device() const { return m_device; }
    int fd() const { return m_fd; }

private:
    int m_device;
    int m_fd;
};

std::optional<uint16_t> aclHandle(const HciSocket &hci, const bdaddr_t &address)
{
    if (hci.fd() < 0)
        return std::nullopt;
    alignas(hci_conn_info_req) char buffer[sizeof(hci_conn_info_req) + sizeof(hci_conn_info)] = {};
    auto *request = reinterpret_cast<hci_conn_info_req *>(buffer);
    bacpy(&request->bdaddr, &address);
    request->type = ACL_LINK;
    if (::ioctl(hci.fd(), HCIGETCONNINFO, request) != 0)
        return std::nullopt;
    return request->conn_info->handle;
}

class BluezTransport final : public QKWiiRemoteTransport
{
public:
    bool isHardwareUsable() override;
    std::optional<QList<Device>>
    inquiry(const std::function<bool(const Device &)> &nameUpdated) override;
    bool isConnected(const QByteArray &address) override;
    bool openConnection(const QByteArray &address) override;
    bool closeConnection(const QByteArray &address) override;
    bool performSDPQuery(const QByteArray &address) override;
    int openL2CAPChannel(const QByteArray &address, quint16 psm) override;
    bool closeChannel(int fd) override;
};

bool BluezTransport::isHardwareUsable()
{
    const int control = ::socket(AF_BLUETOOTH, SOCK_RAW | SOCK_CLOEXEC, BTPROTO_HCI);
    if (control < 0) {
        warn(QStringLiteral("Bluetooth is not available: %1").arg(lastError()));
        return false;
    }
    alignas(hci_dev_list_req) char buffer[sizeof(hci_dev_list_req) + sizeof(hci_dev_req)] = {};
    auto *list = reinterpret_cast<hci_dev_list_req *>(buffer);
    list->dev_num = 1;
    const bool listed = ::ioctl(control, HCIGETDEVLIST, list) == 0;
    ::close(control);
    if (!listed || list->dev_num == 0) {
        warn(QStringLiteral("No Bluetooth adapter is present"));
        return false;
    }
    // Only adapters that are up have a route.
    if (hci_get_route(nullptr) < 0) {
        warn(QStringLiteral("The Bluetooth adapter is powered off"));
        return false;
    }
    return true;
}

std::optional<QList<QKWiiRemoteTransport::Device>>
BluezTransport::inquiry(const std::function<bool(const Device &)> &nameUpdated)
{
    HciSocket hci;
    if (hci.fd() < 0) {
        warn(QStringLiteral("Starting the Bluetooth inquiry failed: %1").arg(lastError()));
        return std::nullopt;
    }
    inquiry_info *found = nullptr;
    const int count =
        hci_inquiry(hci.device(), InquiryLength, MaxResponses, nullptr, &found, IREQ_CACHE_FLUSH);
    if (count < 0) {
        warn(QStringLiteral("The Bluetooth inquiry failed: %1").arg(lastError()));
        return std::nullopt;
    }
    QList<Device> devices;
    for (int i = 0; i < count; ++i) {
        char address[19] = {};
        ba2str(&found[i].bdaddr, address);
        devices.append({QByteArray(address), QString()});
    }
    for (Device &device : devices) {
        char name[HCI_MAX_NAME_LENGTH + 1] = {};
        const bdaddr_t address = toBdaddr(device.address);
        if (hci_read_remote_name(hci.fd(), &address, HCI_MAX_NAME_LENGTH, name, NameTimeoutMs) < 0)
            continue;
        device.name = QString::fromUtf8(name);
        if (nameUpdated(device))
            break;
    }
    bt_free(found);
    return devices;
}

bool BluezTransport::isConnected(const QByteArray &address)
{
    const bdaddr_t target = toBdaddr(address);
    return aclHandle(HciSocket(&target), target).has_value();
}

bool BluezTransport::openConnection(const QByteArray &address)
{
    const bdaddr_t target = toBdaddr(address);
    HciSocket hci(&target);
    uint16_t handle = 0;
    const uint16_t packets = HCI_DM1 | HCI_DM3 | HCI_DM5 | HCI_DH1 | HCI_DH3 | HCI_DH5;
    if (hci.fd() < 0 || hci_create_connection(hci.fd(), &target, htobs(packets), 0, 0x01, &handle,
                                              LinkTimeoutMs) < 0) {
        warn(QStringLiteral("Connecting to %1 failed: %2")
                 .arg(QString::fromLatin1(address), lastError()));
        return false;
    }
    return true;
}

bool BluezTransport::closeConnection(const QByteArray &address)
{
    const bdaddr_t target = toBdaddr(address);
    HciSocket hci(&target);
    const std::optional<uint16_t> handle = aclHandle(hci, target);
    if (!handle)
        return true;
    return hci_disconnect(hci.fd(), *handle, HCI_OE_USER_ENDED_CONNECTION, LinkTimeoutMs) == 0;
}

bool BluezTransport::performSDPQuery(const QByteArray &address)
{
    const bdaddr_t any{};
    const bdaddr_t target = toBdaddr(address);
    sdp_session_t *session = sdp_connect(&any, &target, SDP_RETRY_IF_BUSY);
    if (!session) {
        warn(QStringLiteral("The SDP query of %1 failed: %2")
                 .arg(QString::fromLatin1(address), lastError()));
        return false;
    }
    sdp_close(session);
    return true;
}

int BluezTransport::openL2CAPChannel(const QByteArray &address, quint16 psm)
{
    const int fd = ::socket(AF_BLUETOOTH, SOCK_SEQPACKET | SOCK_CLOEXEC, BTPROTO_L2CAP);
    if (fd < 0)
        return -1;
    sockaddr_l2 peer{};
    peer.l2_family = AF_BLUETOOTH;
    peer.l2_psm = htobs(psm);
    peer.l2_bdaddr = toBdaddr(address);
    if (::connect(fd, reinterpret_cast<const sockaddr *>(&peer), sizeof(peer)) != 0 ||
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK) != 0) {
        warn(QStringLiteral("Opening the L2CAP channel 0x%1 failed: %2")
                 .arg(psm, 2, 16, QLatin1Char('0'))
                 .arg(lastError()));
        ::close(fd);
        return -1;
    }
    return fd;
}

// Shutting down is the step that can fail and be tried again; close() always gives the
// descriptor back, so it runs once, after a shutdown that worked.
bool BluezTransport::closeChannel(int fd)
{
    if (::shutdown(fd, SHUT_RDWR) != 0 && errno != ENOTCONN)
        return false;
    ::close(fd);
    return true;
}

} // namespace

QKWiiRemoteTransport::~QKWiiRemoteTransport() = default;

void QKWiiRemoteTransport::pause(std::chrono::microseconds duration)
{
    std::this_thread::sleep_for(duration);
}

std::shared_ptr<QKWiiRemoteTransport> QKWiiRemoteTransport::bluez()
{
    return std::make_shared<BluezTransport>();
}
