#pragma once

#include "QKUtilitiesGlobal.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <memory>

/**
 * The input device behind QKRemoteControl: where the receiver is found, how it is opened and
 * taken exclusively, which of its keys it reports, and the descriptor that raw `input_event`
 * records are read from.
 *
 * The steps are separate so that the receiver can report which one failed. A device is used
 * in the order find(), open(), seize(), keyCodes(), and close() releases it again; it may be
 * opened again after close().
 */
class QKUTILITIES_EXPORT QKRemoteControlDevice
{
public:
    /** The infrared receiver among the machine's input devices, looked up through udev: the
     *  first event device whose keys include KEY_PLAYPAUSE and KEY_MENU but not KEY_A, so that
     *  a keyboard with media keys is never taken away from the user. The environment variable
     *  QK_INFRARED_DEVICE names an event node ("/dev/input/event5") to use instead. */
    static std::unique_ptr<QKRemoteControlDevice> evdev();
    /** Whether an input device whose "capabilities/key" attribute in sysfs reads
     *  @p keyCapabilities is taken for the receiver by evdev(). */
    static bool hasReceiverKeys(const QByteArray &keyCapabilities);
    /** A receiver that reads records from @p fd (a pipe, say), which it takes over and
     *  closes; it is always found, never grabbed, and reports every key of the receiver. */
    static std::unique_ptr<QKRemoteControlDevice> fromFileDescriptor(int fd);

    /** The receiver's element cookie for the key @p code (KEY_MENU 7, KEY_PLAYPAUSE 8,
     *  KEY_FORWARD and KEY_NEXTSONG 9, KEY_BACK and KEY_PREVIOUSSONG 10, KEY_ENTER 11,
     *  KEY_VOLUMEUP 12, KEY_VOLUMEDOWN 13); 0 for any other key. */
    static int cookieForKeyCode(int code);
    /** Every key code that has a cookie, in the order of the table above. */
    static QList<int> receiverKeyCodes();

    virtual ~QKRemoteControlDevice();

    /** Looks the receiver up; false when there is none. */
    virtual bool find() = 0;
    /** Opens the receiver for non-blocking reads; false when that fails. */
    virtual bool open() = 0;
    /** Takes the receiver exclusively, so that the desktop does not act on its keys too. */
    virtual bool seize() = 0;
    /** Releases the receiver; fileDescriptor() is -1 afterwards. */
    virtual void close() = 0;
    /** The key codes of the receiver's buttons that it can report; empty when they cannot
     *  be read. */
    virtual QList<int> keyCodes() = 0;
    /** The open descriptor, -1 while closed. */
    virtual int fileDescriptor() const = 0;
    /** What the log calls the device: its node, or an empty string before find(). */
    virtual QString path() const = 0;
};
