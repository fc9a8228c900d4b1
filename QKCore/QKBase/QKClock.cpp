#include "QKClock.h"

#include <QMutex>

namespace {
QMutex s_mutex;
QKClock::Clock s_clock;
} // namespace

QDateTime QKClock::now()
{
    QMutexLocker lock(&s_mutex);
    return s_clock ? s_clock() : QDateTime::currentDateTime();
}

void QKClock::setClock(Clock clock)
{
    QMutexLocker lock(&s_mutex);
    s_clock = std::move(clock);
}
