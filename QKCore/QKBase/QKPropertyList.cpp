#include "QKPropertyList.h"

#include "QKPropertyListFormats.h"

#include <QFile>
#include <QSaveFile>

using namespace QKPropertyListFormats;

QVariant QKPropertyList::fromData(const QByteArray &data, QString *errorString)
{
    if (data.isEmpty()) {
        setError(errorString, QStringLiteral("no property list data"));
        return QVariant();
    }
    if (data.startsWith("bplist"))
        return readBinary(data, errorString);
    return readXml(data, errorString);
}

QByteArray QKPropertyList::toData(const QVariant &value, Format format, QString *errorString)
{
    if (format == Format::Binary)
        return writeBinary(value, errorString);
    return writeXml(value, errorString);
}

QByteArray QKPropertyList::xmlElement(const QVariant &value, int depth, QString *errorString)
{
    return writeXmlElement(value, depth, errorString);
}

QByteArray QKPropertyList::xmlDocument(const QByteArray &rootElement)
{
    return QKPropertyListFormats::xmlDocument(rootElement);
}

QVariant QKPropertyList::readFile(const QString &path, QString *errorString)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        setError(errorString, file.errorString());
        return QVariant();
    }
    return fromData(file.readAll(), errorString);
}

bool QKPropertyList::writeFile(const QVariant &value, const QString &path, Format format,
                               bool atomically, QString *errorString)
{
    const QByteArray data = toData(value, format, errorString);
    if (data.isEmpty())
        return false;
    if (atomically) {
        QSaveFile file(path);
        if (file.open(QIODevice::WriteOnly) && file.write(data) == data.size() && file.commit())
            return true;
        setError(errorString, file.errorString());
        return false;
    }
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(data) == data.size())
        return true;
    setError(errorString, file.errorString());
    return false;
}

bool QKPropertyList::isInteger(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return true;
    default:
        return false;
    }
}
