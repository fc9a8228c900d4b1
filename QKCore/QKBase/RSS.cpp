#include "RSS.h"

#include "QKApplicationLog.h"
#include "QKSynchronousRequest.h"

#include <QDateTime>
#include <QLocale>
#include <QNetworkRequest>
#include <QUrl>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <cstdlib>
#include <utility>

namespace {

const QString SparkleNamespace =
    QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");
const QString AtomNamespace = QStringLiteral("http://www.w3.org/2005/Atom");
const QString Atom03Namespace = QStringLiteral("http://purl.org/atom/ns#");
const QString RdfNamespace = QStringLiteral("http://www.w3.org/1999/02/22-rdf-syntax-ns#");
const QString Rss10Namespace = QStringLiteral("http://purl.org/rss/1.0/");
const QString Rss090Namespace = QStringLiteral("http://my.netscape.com/rdf/simple/0.9/");
const QString ContentNamespace = QStringLiteral("http://purl.org/rss/1.0/modules/content/");
const QString DublinCoreNamespace = QStringLiteral("http://purl.org/dc/elements/1.1/");

// Deeper elements are skipped, so a hostile feed cannot exhaust the stack.
constexpr int MaximumDepth = 32;

bool isAtomNamespace(QStringView uri)
{
    return uri == AtomNamespace || uri == Atom03Namespace;
}

QString keyFor(QStringView namespaceUri, QStringView qualifiedName, QStringView localName)
{
    if (namespaceUri == SparkleNamespace)
        return QStringLiteral("sparkle:").append(localName);
    return qualifiedName.toString();
}

// The first value of each alternate an item (or channel) carries, by namespace.
struct Alternates
{
    QString contentEncoded;
    QString dcDate;
    QString atomUpdated;
    QString atomPublished;
    QString atomContent;
    QString atomSummary;
    QString atomSubtitle;
    QString atomId;
    QVariantList atomLinks;

    void note(QStringView namespaceUri, QStringView name, const QVariant &value)
    {
        const auto keepFirst = [&](QString &slot) {
            if (slot.isEmpty())
                slot = value.toString();
        };
        if (namespaceUri == ContentNamespace && name == u"encoded")
            keepFirst(contentEncoded);
        else if (namespaceUri == DublinCoreNamespace && name == u"date")
            keepFirst(dcDate);
        else if (!isAtomNamespace(namespaceUri))
            return;
        else if (name == u"updated" || name == u"modified")
            keepFirst(atomUpdated);
        else if (name == u"published" || name == u"issued")
            keepFirst(atomPublished);
        else if (name == u"content")
            keepFirst(atomContent);
        else if (name == u"summary")
            keepFirst(atomSummary);
        else if (name == u"subtitle" || name == u"tagline")
            keepFirst(atomSubtitle);
        else if (name == u"id")
            keepFirst(atomId);
        else if (name == u"link")
            atomLinks.append(value);
    }

    QString alternateLink() const
    {
        QString first;
        for (const QVariant &link : atomLinks) {
            const QVariantMap attributes = link.toMap();
            const QString href = attributes.value(QStringLiteral("href")).toString();
            const QString rel = attributes.value(QStringLiteral("rel")).toString();
            if (!href.isEmpty() && (rel.isEmpty() || rel == u"alternate"))
                return href;
            if (first.isEmpty())
                first = href;
        }
        return first;
    }
};

QString firstNonEmpty(std::initializer_list<QString> candidates)
{
    for (const QString &candidate : candidates) {
        if (!candidate.isEmpty())
            return candidate;
    }
    return QString();
}

// The form RSS 2.0 feeds write, with the weekday ("Tue, 03 Mar 2009 18:00:00 +0000"),
// in the date's own offset.
QString rfc2822Date(const QString &date)
{
    const QDateTime parsed = QDateTime::fromString(date, Qt::ISODateWithMs);
    if (!parsed.isValid())
        return date;
    const int offset = parsed.offsetFromUtc() / 60;
    const int magnitude = std::abs(offset);
    return QLocale::c().toString(parsed, QStringLiteral("ddd, dd MMM yyyy hh:mm:ss ")) +
           QString::asprintf("%c%02d%02d", offset < 0 ? '-' : '+', magnitude / 60, magnitude % 60);
}

void normalize(QVariantMap &fields, const Alternates &alternates)
{
    if (!fields.contains(QStringLiteral("description"))) {
        const QString description =
            firstNonEmpty({alternates.contentEncoded, alternates.atomContent,
                           alternates.atomSummary, alternates.atomSubtitle});
        if (!description.isEmpty())
            fields.insert(QStringLiteral("description"), description);
    }
    if (!fields.contains(QStringLiteral("pubDate"))) {
        const QString date =
            firstNonEmpty({alternates.dcDate, alternates.atomUpdated, alternates.atomPublished});
        if (!date.isEmpty())
            fields.insert(QStringLiteral("pubDate"), rfc2822Date(date));
    }
    // An Atom link is an element with attributes; RSS 2.0 readers expect the address.
    if (fields.value(QStringLiteral("link")).typeId() != QMetaType::QString) {
        const QString link = alternates.alternateLink();
        if (!link.isEmpty())
            fields.insert(QStringLiteral("link"), link);
    }
    if (!fields.contains(QStringLiteral("guid")) && !alternates.atomId.isEmpty())
        fields.insert(QStringLiteral("guid"), alternates.atomId);
}

class FeedParser
{
public:
    FeedParser(const QByteArray &data, bool normalize) : m_reader(data), m_normalize(normalize) {}

    bool parse();

    QVariantMap header;
    QVariantList items;
    QString error;

private:
    bool isFeedElement(QStringView name) const;
    void readChildren(QStringView itemName);
    QVariantMap readItem();
    void addField(QVariantMap &fields, Alternates &alternates, int depth);
    QVariant readValue(int depth);
    QString readMarkup();

    QXmlStreamReader m_reader;
    const bool m_normalize;
    Alternates m_headerAlternates;
};

bool FeedParser::isFeedElement(QStringView name) const
{
    const QStringView uri = m_reader.namespaceUri();
    return m_reader.name() == name && (uri.isEmpty() || uri == Rss10Namespace ||
                                       uri == Rss090Namespace || isAtomNamespace(uri));
}

bool FeedParser::parse()
{
    if (!m_reader.readNextStartElement()) {
        error = m_reader.hasError() ? m_reader.errorString()
                                    : QStringLiteral("The document holds no elements.");
        return false;
    }
    const QString root = m_reader.qualifiedName().toString();
    bool hasChannel = false;
    if (isFeedElement(u"feed")) {
        hasChannel = true;
        readChildren(u"entry");
    } else if (isFeedElement(u"rss") ||
               (m_reader.name() == u"RDF" && m_reader.namespaceUri() == RdfNamespace)) {
        // RSS 1.0 puts its items beside the channel, RSS 2.0 inside it.
        while (m_reader.readNextStartElement()) {
            if (isFeedElement(u"channel")) {
                hasChannel = true;
                readChildren(u"item");
            } else if (isFeedElement(u"item")) {
                items.append(readItem());
            } else {
                m_reader.skipCurrentElement();
            }
        }
    } else {
        error = QStringLiteral("The document is not an RSS or Atom feed (its root element "
                               "is <%1>).")
                    .arg(root);
        return false;
    }
    if (m_reader.hasError()) {
        error = QStringLiteral("line %1, column %2: %3")
                    .arg(m_reader.lineNumber())
                    .arg(m_reader.columnNumber())
                    .arg(m_reader.errorString());
        return false;
    }
    if (!hasChannel) {
        error = QStringLiteral("The feed has no channel.");
        return false;
    }
    if (m_normalize)
        normalize(header, m_headerAlternates);
    return true;
}

// Reads the children of a channel or Atom feed: items into the list, the rest into the
// channel's fields.
void FeedParser::readChildren(QStringView itemName)
{
    while (m_reader.readNextStartElement()) {
        if (isFeedElement(itemName))
            items.append(readItem());
        else
            addField(header, m_headerAlternates, 1);
    }
}

QVariantMap FeedParser::readItem()
{
    QVariantMap fields;
    Alternates alternates;
    while (m_reader.readNextStartElement())
        addField(fields, alternates, 1);
    if (m_normalize)
        normalize(fields, alternates);
    return fields;
}

void FeedParser::addField(QVariantMap &fields, Alternates &alternates, int depth)
{
    const QString namespaceUri = m_reader.namespaceUri().toString();
    const QString name = m_reader.name().toString();
    const QString key = keyFor(namespaceUri, m_reader.qualifiedName(), name);
    const QVariant value = readValue(depth);
    alternates.note(namespaceUri, name, value);
    if (!fields.contains(key))
        fields.insert(key, value);
}

QVariant FeedParser::readValue(int depth)
{
    if (depth > MaximumDepth) {
        m_reader.skipCurrentElement();
        return QString();
    }
    QVariantMap attributes;
    const QXmlStreamAttributes readerAttributes = m_reader.attributes();
    for (const QXmlStreamAttribute &attribute : readerAttributes) {
        attributes.insert(
            keyFor(attribute.namespaceUri(), attribute.qualifiedName(), attribute.name()),
            attribute.value().toString());
    }
    if (isAtomNamespace(m_reader.namespaceUri()) &&
        attributes.value(QStringLiteral("type")).toString() == u"xhtml")
        return readMarkup();

    QString text;
    QVariantMap children;
    Alternates unused;
    while (!m_reader.atEnd()) {
        const QXmlStreamReader::TokenType token = m_reader.readNext();
        if (token == QXmlStreamReader::StartElement)
            addField(children, unused, depth + 1);
        else if (token == QXmlStreamReader::Characters)
            text += m_reader.text();
        else if (token == QXmlStreamReader::EndElement)
            break;
    }
    if (!children.isEmpty()) {
        for (auto it = attributes.cbegin(); it != attributes.cend(); ++it)
            children.insert(it.key(), it.value());
        return children;
    }
    if (!attributes.isEmpty() && text.trimmed().isEmpty())
        return attributes;
    return m_normalize ? text.trimmed() : text;
}

// Atom carries XHTML as elements; readers of a description expect it as markup text.
QString FeedParser::readMarkup()
{
    QString markup;
    QXmlStreamWriter writer(&markup);
    int depth = 0;
    while (!m_reader.atEnd()) {
        const QXmlStreamReader::TokenType token = m_reader.readNext();
        if (token == QXmlStreamReader::StartElement) {
            ++depth;
            writer.writeStartElement(m_reader.name().toString());
            const QXmlStreamAttributes attributes = m_reader.attributes();
            for (const QXmlStreamAttribute &attribute : attributes)
                writer.writeAttribute(attribute.name().toString(), attribute.value().toString());
        } else if (token == QXmlStreamReader::Characters) {
            writer.writeCharacters(m_reader.text().toString());
        } else if (token == QXmlStreamReader::EndElement) {
            if (depth-- == 0)
                break;
            writer.writeEndElement();
        }
    }
    return m_normalize ? markup.trimmed() : markup;
}

} // namespace

struct RSS::Private
{
    QVariantMap header;
    QVariantList items;
    QString error;

    void read(const QByteArray &data, bool normalize, const QString &source)
    {
        FeedParser parser(data, normalize);
        if (parser.parse()) {
            header = parser.header;
            items = parser.items;
        } else {
            fail(QStringLiteral("Could not read the feed %1: %2").arg(source, parser.error));
        }
    }

    void fail(const QString &message)
    {
        error = message;
        QKApplicationLog::sharedLog()->warning(QKApplicationLogContext(QStringLiteral("RSS")),
                                               message);
    }
};

RSS::RSS(const QUrl &url, bool normalize, const QString &userAgent) : d(std::make_unique<Private>())
{
    QNetworkRequest request(url);
    if (!userAgent.isEmpty())
        request.setHeader(QNetworkRequest::UserAgentHeader, userAgent);
    const QKSynchronousRequest::Reply reply = QKSynchronousRequest::get(request);
    const QString source = url.toDisplayString();
    if (!reply.isSuccess())
        d->fail(QStringLiteral("Could not fetch the feed %1: %2").arg(source, reply.errorString));
    else if (reply.statusCode >= 400)
        d->fail(QStringLiteral("Could not fetch the feed %1: HTTP status %2")
                    .arg(source)
                    .arg(reply.statusCode));
    else
        d->read(reply.data, normalize, source);
}

RSS::RSS(const QByteArray &data, bool normalize) : d(std::make_unique<Private>())
{
    d->read(data, normalize, QStringLiteral("(%1 bytes of data)").arg(data.size()));
}

RSS::RSS(RSS &&other) noexcept : d(std::exchange(other.d, std::make_unique<Private>())) {}

RSS &RSS::operator=(RSS &&other) noexcept
{
    std::swap(d, other.d);
    return *this;
}

RSS::~RSS() = default;

QVariantMap RSS::headerItems() const
{
    return d->header;
}

QVariantList RSS::newsItems() const
{
    return d->items;
}

bool RSS::isValid() const
{
    return d->error.isEmpty();
}

QString RSS::errorString() const
{
    return d->error;
}
