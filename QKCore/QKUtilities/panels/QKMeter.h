#pragma once

#include "QKUtilitiesGlobal.h"

class QVariant;

/**
 * Anything that shows levels: it receives every measurement the host hands to the meter
 * controller. What a measurement holds is between the host and its meters.
 */
class QKUTILITIES_EXPORT QKMeter
{
public:
    virtual ~QKMeter();
    /** Takes one measurement, exactly as the host gave it to the controller. */
    virtual void input(const QVariant &measurement) = 0;
};
