#pragma once

#include "QKUtilitiesGlobal.h"

#include <QList>

#include <memory>

class QKMeter;
class QVariant;

/**
 * The process-wide fan-out point for level meters: the host hands each new measurement to
 * the default controller once, and the controller passes it on, untouched, to every
 * registered meter in registration order. The controller owns its meters.
 *
 * Main thread (or the one thread that drives the meters) only; there is no locking.
 */
class QKUTILITIES_EXPORT QKMeterController
{
public:
    /** The shared controller, created with no meters on first call. */
    static QKMeterController *defaultController();
    /** Destroys the shared controller and releases its meters; the next defaultController()
     *  makes a new, empty one. */
    static void dispose();

    ~QKMeterController();
    QKMeterController(const QKMeterController &) = delete;
    QKMeterController &operator=(const QKMeterController &) = delete;

    /** Appends @p meter unless that very object is registered already; equal but distinct
     *  meters are both kept. A null meter is ignored. */
    void addMeter(const std::shared_ptr<QKMeter> &meter);
    /** Removes that very object; does nothing when it is not registered. */
    void removeMeter(const QKMeter *meter);
    /** The registered meters, in registration order. */
    QList<std::shared_ptr<QKMeter>> meters() const;

    /** Sends @p measurement to every meter registered when the call began. Meters added or
     *  removed from inside a meter's input() take effect with the next measurement. */
    void input(const QVariant &measurement);

private:
    QKMeterController();

    QList<std::shared_ptr<QKMeter>> m_meters;
};
