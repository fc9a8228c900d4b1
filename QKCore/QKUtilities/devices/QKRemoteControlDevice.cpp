#include "QKRemoteControlDevice.h"

#include <QByteArray>
#include <QStringList>

#include <libudev.h>
#include <linux/input.h>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <bitset>
#include <climits>

namespace {

struct KeyCookie
{
    int code;
    int cookie;
};

constexpr std::array KeyCookies{
    KeyCookie{KEY_MENU, 7},     KeyCookie{KEY_PLAYPAUSE, 8}, KeyCookie{KEY_FORWARD, 9},
    KeyCookie{KEY_NEXTSONG, 9}, KeyCookie{KEY_BACK, 10},     KeyCookie{KEY_PREVIOUSSONG, 10},
    KeyCookie{KEY_ENTER, 11},   KeyCookie{KEY_VOLUMEUP, 12}, KeyCookie{KEY_VOLUMEDOWN, 13},
};

using KeyBits = std::bitset<KEY_CNT>;

// The "capabilities/key" attribute of an input device: hexadecimal words of the kernel's
// long, separated by spaces, the most significant word first.
KeyBits parseKeyCapabilities(const QByteArray &text)
{
    KeyBits bits;
    const QList<QByteArray> words = text.trimmed().split(' ');
    constexpr int WordBits = sizeof(long) * CHAR_BIT;
    for (qsizetype i = 0; i < words.size(); ++i) {
        bool ok = false;
        const qulonglong word = words.at(words.size() - 1 - i).toULongLong(&ok, 16);
        for (int bit = 0; ok && bit < WordBits; ++bit) {
            const qsizetype key = i * WordBits + bit;
            if (key < KEY_CNT && (word >> bit) & 1U)
                bits.set(key);
        }
    }
    return bits;
}

QString findReceiverNode()
{
    const QByteArray chosen = qgetenv("QK_INFRARED_DEVICE");
    if (!chosen.isEmpty())
        return QString::fromLocal8Bit(chosen);

    udev *context = udev_new();
    if (!context)
        return {};
    QString node;
    udev_enumerate *enumerate = udev_enumerate_new(context);
    if (enumerate) {
        udev_enumerate_add_match_subsystem(enumerate, "input");
        udev_enumerate_add_match_sysname(enumerate, "event*");
        udev_enumerate_scan_devices(enumerate);
        udev_list_entry *entry = nullptr;
        udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumerate))
        {
            udev_device *device =
                udev_device_new_from_syspath(context, udev_list_entry_get_name(entry));
            if (!device)
                continue;
            // The key capabilities belong to the input device, the event node's parent.
            udev_device *input =
                udev_device_get_parent_with_subsystem_devtype(device, "input", nullptr);
            const char *keys =
                input ? udev_device_get_sysattr_value(input, "capabilities/key") : nullptr;
            const char *devnode = udev_device_get_devnode(device);
            if (keys && devnode && QKRemoteControlDevice::hasReceiverKeys(keys))
                node = QString::fromLocal8Bit(devnode);
            udev_device_unref(device);
            if (!node.isEmpty())
                break;
        }
        udev_enumerate_unref(enumerate);
    }
    udev_unref(context);
    return node;
}

class EvdevDevice final : public QKRemoteControlDevice
{
public:
    ~EvdevDevice() override { close(); }

    bool find() override
    {
        m_path = findReceiverNode();
        return !m_path.isEmpty();
    }

    bool open() override
    {
        if (m_path.isEmpty())
            return false;
        m_fd = ::open(m_path.toLocal8Bit().constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        return m_fd >= 0;
    }

    bool seize() override { return m_fd >= 0 && ::ioctl(m_fd, EVIOCGRAB, 1) == 0; }

    void close() override
    {
        if (m_fd < 0)
            return;
        ::close(m_fd); // closing also ends the grab
        m_fd = -1;
    }

    QList<int> keyCodes() override
    {
        std::array<unsigned long,
                   (KEY_CNT + sizeof(long) * CHAR_BIT - 1) / (sizeof(long) * CHAR_BIT)>
            words{};
        if (m_fd < 0 || ::ioctl(m_fd, EVIOCGBIT(EV_KEY, sizeof(words)), words.data()) < 0)
            return {};
        QList<int> codes;
        for (const int code : receiverKeyCodes()) {
            const auto word = words[code / (sizeof(long) * CHAR_BIT)];
            if ((word >> (code % (sizeof(long) * CHAR_BIT))) & 1UL)
                codes.append(code);
        }
        return codes;
    }

    int fileDescriptor() const override { return m_fd; }
    QString path() const override { return m_path; }

private:
    QString m_path;
    int m_fd = -1;
};

class DescriptorDevice final : public QKRemoteControlDevice
{
public:
    explicit DescriptorDevice(int fd) : m_fd(fd)
    {
        if (m_fd >= 0)
            ::fcntl(m_fd, F_SETFL, ::fcntl(m_fd, F_GETFL) | O_NONBLOCK);
    }
    ~DescriptorDevice() override { close(); }

    bool find() override { return true; }
    bool open() override { return m_fd >= 0; }
    bool seize() override { return m_fd >= 0; }
    // A descriptor cannot be opened again: once closed, open() fails.
    void close() override
    {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
    }
    QList<int> keyCodes() override { return m_fd >= 0 ? receiverKeyCodes() : QList<int>(); }
    int fileDescriptor() const override { return m_fd; }
    QString path() const override { return QStringLiteral("fd:%1").arg(m_fd); }

private:
    int m_fd;
};

} // namespace

QKRemoteControlDevice::~QKRemoteControlDevice() = default;

int QKRemoteControlDevice::cookieForKeyCode(int code)
{
    for (const KeyCookie &entry : KeyCookies) {
        if (entry.code == code)
            return entry.cookie;
    }
    return 0;
}

QList<int> QKRemoteControlDevice::receiverKeyCodes()
{
    QList<int> codes;
    for (const KeyCookie &entry : KeyCookies)
        codes.append(entry.code);
    return codes;
}

bool QKRemoteControlDevice::hasReceiverKeys(const QByteArray &keyCapabilities)
{
    const KeyBits keys = parseKeyCapabilities(keyCapabilities);
    return keys.test(KEY_PLAYPAUSE) && keys.test(KEY_MENU) && !keys.test(KEY_A);
}

std::unique_ptr<QKRemoteControlDevice> QKRemoteControlDevice::evdev()
{
    return std::make_unique<EvdevDevice>();
}

std::unique_ptr<QKRemoteControlDevice> QKRemoteControlDevice::fromFileDescriptor(int fd)
{
    return std::make_unique<DescriptorDevice>(fd);
}
