#include "QKMeterController.h"

#include "QKMeter.h"

#include <QVariant>

QKMeter::~QKMeter() = default;

namespace {
std::unique_ptr<QKMeterController> &sharedSlot()
{
    static std::unique_ptr<QKMeterController> controller;
    return controller;
}
} // namespace

QKMeterController *QKMeterController::defaultController()
{
    std::unique_ptr<QKMeterController> &shared = sharedSlot();
    if (!shared)
        shared.reset(new QKMeterController);
    return shared.get();
}

void QKMeterController::dispose()
{
    sharedSlot().reset();
}

QKMeterController::QKMeterController() = default;

QKMeterController::~QKMeterController() = default;

void QKMeterController::addMeter(const std::shared_ptr<QKMeter> &meter)
{
    if (!meter)
        return;
    for (const std::shared_ptr<QKMeter> &registered : std::as_const(m_meters)) {
        if (registered == meter)
            return;
    }
    m_meters.append(meter);
}

void QKMeterController::removeMeter(const QKMeter *meter)
{
    for (qsizetype i = 0; i < m_meters.size(); ++i) {
        if (m_meters.at(i).get() == meter) {
            m_meters.removeAt(i);
            return;
        }
    }
}

QList<std::shared_ptr<QKMeter>> QKMeterController::meters() const
{
    return m_meters;
}

void QKMeterController::input(const QVariant &measurement)
{
    // A shared copy of the list, so that meters registering or unregistering meters from
    // inside input() change the next round, never this one. The copy detaches only then.
    const QList<std::shared_ptr<QKMeter>> round = m_meters;
    for (const std::shared_ptr<QKMeter> &meter : round)
        meter->input(measurement);
}
