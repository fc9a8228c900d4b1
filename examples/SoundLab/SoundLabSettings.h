#pragma once

#include <QString>

/** The user defaults keys of Sound Lab's preferences, and their defaults. */
namespace SoundLabSettings {

inline const QString TrackFontSizeKey = QStringLiteral("Track Font Size");
inline const QString MeterColourKey = QStringLiteral("Meter Colour");
inline const QString MeterPeakHoldKey = QStringLiteral("Meter Peak Hold");

/** Registers the defaults of the keys above. */
void registerDefaults();

} // namespace SoundLabSettings
