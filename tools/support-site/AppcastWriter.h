#pragma once

#include <QByteArray>
#include <QString>

struct Appcast;

/**
 * Renders an appcast as RSS 2.0 with the Sparkle namespace: the channel, then one item per
 * release, newest first, release notes as HTML in CDATA, the download as an enclosure
 * carrying sparkle:version and sparkle:shortVersionString.
 */
namespace AppcastWriter {

/**
 * The feed for @p appcast; beta items only when @p testing. Every "{{BASE}}" in the texts
 * becomes @p baseURL. A null appcast gives a valid feed with an empty channel titled
 * @p fallbackTitle.
 */
QByteArray write(const Appcast *appcast, bool testing, const QString &baseURL,
                 const QString &fallbackTitle);

} // namespace AppcastWriter
