#pragma once

#include "QKUtilitiesGlobal.h"

#include <QDateTime>
#include <QSharedDataPointer>
#include <QString>
#include <QUrl>
#include <QVariantMap>

class SUAppcastItemData;

/**
 * One release described by an appcast: its title, release notes and enclosure, read from
 * the item map the feed reader (RSS) makes of an "item" element. A value type.
 */
class QKUTILITIES_EXPORT SUAppcastItem
{
public:
    /** An item with every field empty. */
    SUAppcastItem();
    /**
     * Reads @p dictionary: "title", "description", "pubDate" (RFC 2822), and the
     * "enclosure" map with "url", "sparkle:version" and "sparkle:shortVersionString". When
     * the enclosure lacks either version, the item-level element of that name is used.
     */
    explicit SUAppcastItem(const QVariantMap &dictionary);
    SUAppcastItem(const SUAppcastItem &other);
    SUAppcastItem &operator=(const SUAppcastItem &other);
    ~SUAppcastItem();

    QString title() const;
    /** The release notes, an HTML fragment; empty when the item has none. */
    QString description() const;
    /** The publication date; invalid when missing or unreadable. */
    QDateTime date() const;
    /** The build version the item describes (compared with the host's CFBundleVersion). */
    QString versionString() const;
    /** The version shown to people; the build version when the feed gives none. */
    QString displayVersionString() const;
    /** The update archive's address; empty when the item has no enclosure. */
    QUrl fileURL() const;
    /** The address of separate release notes ("sparkle:releaseNotesLink"); empty if none. */
    QUrl releaseNotesURL() const;

private:
    QSharedDataPointer<SUAppcastItemData> d;
};
