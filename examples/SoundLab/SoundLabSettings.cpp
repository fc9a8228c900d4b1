#include "SoundLabSettings.h"

#include <QKUserDefaults.h>

void SoundLabSettings::registerDefaults()
{
    QKUserDefaults::standardUserDefaults()->registerDefaults({
        {TrackFontSizeKey, 10},
        {MeterColourKey, QStringLiteral("green")},
        {MeterPeakHoldKey, true},
    });
}
