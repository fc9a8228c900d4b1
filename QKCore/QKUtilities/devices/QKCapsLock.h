#pragma once

#include "QKUtilitiesGlobal.h"

#include <QString>

/**
 * Whether Caps Lock is on. Qt's keyboard modifiers do not carry it, so it is read from the
 * keyboard LEDs the kernel keeps in sysfs ("<leds folder>/<device>::capslock/brightness"),
 * which the X server and Wayland compositors set on every platform alike.
 */
class QKUTILITIES_EXPORT QKCapsLock
{
public:
    /** True when any keyboard's Caps Lock LED is lit; false when none can be read. */
    static bool isOn();

    /** The folder of LED devices, "/sys/class/leds" unless set. */
    static QString ledsFolder();
    static void setLedsFolder(const QString &folder);
};
