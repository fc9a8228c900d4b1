#include "AppcastWriter.h"

#include "SampleCatalogue.h"
#include "SiteDates.h"

#include <QXmlStreamWriter>

#include <algorithm>

namespace {

const QString sparkleNamespace =
    QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");

QString based(QString text, const QString &baseURL)
{
    return text.replace(QLatin1String("{{BASE}}"), baseURL);
}

/** CDATA cannot hold "]]>", so such a sequence is split across two sections. */
void writeCData(QXmlStreamWriter &xml, const QString &text)
{
    QString safe = text;
    safe.replace(QLatin1String("]]>"), QLatin1String("]]]]><![CDATA[>"));
    xml.writeCDATA(safe);
}

void writeItem(QXmlStreamWriter &xml, const AppcastItem &item, const QString &baseURL)
{
    xml.writeStartElement(QStringLiteral("item"));
    xml.writeTextElement(QStringLiteral("title"), item.title);
    xml.writeStartElement(QStringLiteral("description"));
    writeCData(xml, based(item.notes, baseURL));
    xml.writeEndElement();
    if (item.published.isValid())
        xml.writeTextElement(QStringLiteral("pubDate"), SiteDates::rfc822(item.published));
    xml.writeEmptyElement(QStringLiteral("enclosure"));
    xml.writeAttribute(QStringLiteral("url"), based(item.enclosureURL, baseURL));
    xml.writeAttribute(sparkleNamespace, QStringLiteral("version"), item.version);
    xml.writeAttribute(sparkleNamespace, QStringLiteral("shortVersionString"),
                       item.shortVersionString);
    xml.writeAttribute(QStringLiteral("length"), QString::number(item.enclosureLength));
    xml.writeAttribute(QStringLiteral("type"), QStringLiteral("application/octet-stream"));
    xml.writeEndElement();
}

} // namespace

QByteArray AppcastWriter::write(const Appcast *appcast, bool testing, const QString &baseURL,
                                const QString &fallbackTitle)
{
    QByteArray document;
    QXmlStreamWriter xml(&document);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeNamespace(sparkleNamespace, QStringLiteral("sparkle"));
    xml.writeStartElement(QStringLiteral("rss"));
    xml.writeAttribute(QStringLiteral("version"), QStringLiteral("2.0"));
    xml.writeStartElement(QStringLiteral("channel"));
    xml.writeTextElement(QStringLiteral("title"), appcast ? appcast->title : fallbackTitle);
    xml.writeTextElement(QStringLiteral("link"), appcast ? based(appcast->link, baseURL) : baseURL);
    xml.writeTextElement(QStringLiteral("description"),
                         appcast ? appcast->description : QStringLiteral("No releases."));
    if (appcast && !appcast->language.isEmpty())
        xml.writeTextElement(QStringLiteral("language"), appcast->language);

    if (appcast) {
        QList<AppcastItem> items;
        for (const AppcastItem &item : appcast->items) {
            if (testing || !item.beta)
                items.append(item);
        }
        std::stable_sort(
            items.begin(), items.end(),
            [](const AppcastItem &a, const AppcastItem &b) { return a.published > b.published; });
        for (const AppcastItem &item : std::as_const(items))
            writeItem(xml, item, baseURL);
    }
    xml.writeEndElement();
    xml.writeEndElement();
    xml.writeEndDocument();
    return document;
}
