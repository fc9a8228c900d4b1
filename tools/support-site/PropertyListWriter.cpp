#include "PropertyListWriter.h"

#include <QDateTime>
#include <QXmlStreamWriter>

namespace {

void writeValue(QXmlStreamWriter &xml, const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::QVariantMap: {
        xml.writeStartElement(QStringLiteral("dict"));
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            xml.writeTextElement(QStringLiteral("key"), it.key());
            writeValue(xml, it.value());
        }
        xml.writeEndElement();
        break;
    }
    case QMetaType::QVariantList: {
        xml.writeStartElement(QStringLiteral("array"));
        const QVariantList list = value.toList();
        for (const QVariant &element : list)
            writeValue(xml, element);
        xml.writeEndElement();
        break;
    }
    case QMetaType::Bool:
        xml.writeEmptyElement(value.toBool() ? QStringLiteral("true") : QStringLiteral("false"));
        break;
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        xml.writeTextElement(QStringLiteral("integer"), value.toString());
        break;
    case QMetaType::Double:
        xml.writeTextElement(QStringLiteral("real"), QString::number(value.toDouble(), 'g', 17));
        break;
    case QMetaType::QDateTime:
        xml.writeTextElement(QStringLiteral("date"),
                             value.toDateTime().toUTC().toString(Qt::ISODate));
        break;
    case QMetaType::QByteArray:
        xml.writeTextElement(QStringLiteral("data"),
                             QString::fromLatin1(value.toByteArray().toBase64()));
        break;
    default:
        xml.writeTextElement(QStringLiteral("string"), value.toString());
        break;
    }
}

} // namespace

QByteArray PropertyListWriter::write(const QVariant &root)
{
    QByteArray document;
    QXmlStreamWriter xml(&document);
    xml.setAutoFormatting(true);
    xml.setAutoFormattingIndent(-1);
    xml.writeStartDocument();
    xml.writeDTD(QStringLiteral("<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">"));
    xml.writeStartElement(QStringLiteral("plist"));
    xml.writeAttribute(QStringLiteral("version"), QStringLiteral("1.0"));
    writeValue(xml, root);
    xml.writeEndElement();
    xml.writeEndDocument();
    return document;
}
