#pragma once

#include "QKBaseGlobal.h"

#include <QVariantList>
#include <QVariantMap>

#include <memory>

class QByteArray;
class QString;
class QUrl;

/**
 * A news feed (RSS 0.9x, 1.0 and 2.0, Atom), read into plain maps: the channel's fields
 * and one map per item, in feed order.
 *
 * Each child element of an item becomes one entry keyed by its qualified name as the feed
 * writes it ("title", "pubDate", "dc:date"), except that elements and attributes in the
 * Sparkle namespace are always keyed with the prefix "sparkle:" whatever prefix the feed
 * declares. Values are:
 * - the element's text for an element with text (CDATA included; attributes are dropped);
 * - a map of its attributes for an element without text, such as an enclosure:
 *   {"url", "length", "type", "sparkle:version", "sparkle:shortVersionString"};
 * - a map of its children (plus its attributes) for an element with child elements, such
 *   as an Atom author; XHTML content of Atom text elements is kept as markup text.
 * When an item repeats an element, the first one is kept.
 *
 * With normalisation, Atom and RSS 1.0 alternates are also offered under the RSS 2.0
 * names, unless the item already has them: "description" from "content:encoded", else
 * the Atom content, summary or subtitle; "pubDate" from "dc:date", else the Atom updated
 * or published date, as an RFC 2822 date when it parses as ISO 8601; "link" from the
 * href of the Atom link whose rel is "alternate" or missing; "guid" from the Atom id.
 * Text values are trimmed. The namespaces are recognised whatever prefix the feed uses.
 *
 * A feed that cannot be fetched, is not XML, or is not a feed gives no items, an error
 * string and a warning in the application log (domain "RSS").
 */
class QKBASE_EXPORT RSS
{
public:
    /**
     * Fetches the feed at @p url synchronously (on the calling thread, which may be a
     * worker thread) with @p userAgent as User-Agent header (none when empty), and reads
     * it. An HTTP error status counts as a failed fetch.
     */
    RSS(const QUrl &url, bool normalize, const QString &userAgent);
    /** Reads a feed already in memory. */
    explicit RSS(const QByteArray &data, bool normalize = true);
    RSS(RSS &&other) noexcept;
    RSS &operator=(RSS &&other) noexcept;
    ~RSS();

    /** The channel's (or Atom feed's) own fields; empty when the feed was not read. */
    QVariantMap headerItems() const;
    /** One QVariantMap per item or entry, in feed order; empty when the feed was not read. */
    QVariantList newsItems() const;

    /** True when the feed was fetched and read, even if it holds no items. */
    bool isValid() const;
    /** Why the feed could not be read; empty when it was. */
    QString errorString() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};
