#pragma once

#include <QLatin1String>

// The update framework's user defaults keys, spelled as the framework spells them so that
// settings written by either side are read by the other.

/** The appcast address (string). */
inline constexpr QLatin1String SUFeedURLKey("SUFeedURL");
/** Whether to check for updates at start-up (boolean). */
inline constexpr QLatin1String SUCheckAtStartupKey("SUCheckAtStartup");
/** Seconds between scheduled checks (integer); 0 means none. */
inline constexpr QLatin1String SUScheduledCheckIntervalKey("SUScheduledCheckInterval");
/** When a feed was last fetched and read (date). */
inline constexpr QLatin1String SULastCheckTimeKey("SULastCheckTime");
/** A version the user chose to skip (string); background checks do not offer it. */
inline constexpr QLatin1String SUSkippedVersionKey("SUSkippedVersion");
