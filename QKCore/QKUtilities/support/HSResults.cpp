#include "HSResults.h"

#include <QKXMLParser.h>

namespace {

bool isOpen(const QVariantMap &request)
{
    return request.value(QStringLiteral("fOpen")).toString().toInt() != 0;
}

QString requestNumber(const QVariantMap &request)
{
    return request.value(QStringLiteral("xRequest")).toString();
}

} // namespace

HSResults::HSResults(const QByteArray &data, bool returnsArray)
{
    if (!data.startsWith("<?xml"))
        return;
    const std::unique_ptr<QKXMLParser> parser = QKXMLParser::parser();
    parser->setDictionaryElements(
        {QStringLiteral("request"), QStringLiteral("history_events"), QStringLiteral("category")});
    parser->setArrayElements({QStringLiteral("history")});
    parser->setIgnoredElements({QStringLiteral("results")});
    parser->setRootClass(returnsArray ? QKXMLParser::RootClass::Array
                                      : QKXMLParser::RootClass::Dictionary);
    // Errors inside an XML reply are not reported: whatever was read before them is kept.
    m_results = parser->objectForData(data);
}

QString HSResults::requestID() const
{
    if (m_results.typeId() == QMetaType::QVariantList)
        return requestNumber(m_results.toList().value(0).toMap());
    return requestNumber(m_results.toMap());
}

QStringList HSResults::requestIDs(bool includeClosed) const
{
    QStringList numbers;
    const QVariantList requests = m_results.typeId() == QMetaType::QVariantList
                                      ? m_results.toList()
                                      : QVariantList{m_results};
    for (const QVariant &entry : requests) {
        const QVariantMap request = entry.toMap();
        if (!includeClosed && !isOpen(request))
            continue;
        if (request.contains(QStringLiteral("xRequest")))
            numbers << requestNumber(request);
    }
    return numbers;
}

QVariantMap HSResults::requestForID(const QString &requestID) const
{
    const QVariantList requests = m_results.toList();
    for (const QVariant &entry : requests) {
        const QVariantMap request = entry.toMap();
        if (requestNumber(request) == requestID)
            return request;
    }
    return QVariantMap();
}

bool HSResults::requestIsOpenForID(const QString &requestID) const
{
    return isOpen(requestForID(requestID));
}
