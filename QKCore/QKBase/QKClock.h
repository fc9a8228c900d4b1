#pragma once

#include "QKBaseGlobal.h"

#include <QDateTime>

#include <functional>

/**
 * The current time as the library sees it. Everything that dates something (last checks,
 * downloads, copyright years, birthdays) asks here, so that tests can set the time once
 * for all of it instead of sleeping.
 */
class QKBASE_EXPORT QKClock
{
public:
    using Clock = std::function<QDateTime()>;

    /** The installed clock's time, else the system's. */
    static QDateTime now();
    /** Replaces the clock; an empty one restores the system clock. */
    static void setClock(Clock clock);
};
