#include "HSForms.h"

#include <QKMultipartRequest.h>

#include <algorithm>

namespace {

const QString One = QStringLiteral("1");

bool isPreRelease(const QString &version)
{
    return std::any_of(version.cbegin(), version.cend(),
                       [](QChar c) { return c >= u'a' && c <= u'z'; });
}

} // namespace

QVariantMap HSForms::categories()
{
    return {{QStringLiteral("action"), QStringLiteral("categories")}};
}

QVariantMap HSForms::newRequest(const HSNewRequest &request)
{
    QVariantMap form{
        {QStringLiteral("action"), QStringLiteral("new")},
        {QStringLiteral("sFirstName"), request.firstName},
        {QStringLiteral("sLastName"), request.lastName},
        {QStringLiteral("sEmail"), request.email},
        {QStringLiteral("sPhone"), request.phone},
        {QStringLiteral("xCategory"), QString::number(request.category)},
        {QStringLiteral("Custom1"), request.applicationName},
        {QStringLiteral("Custom3"), request.version},
        {QStringLiteral("tBody"), request.body},
    };
    if (request.urgent)
        form.insert(QStringLiteral("fUrgent"), One);
    if (isPreRelease(request.version))
        form.insert(QStringLiteral("Custom4"), One);
    return form;
}

QVariantMap HSForms::addDocument(const QString &requestHistoryID, const QString &name,
                                 const QString &archivePath)
{
    return {
        {QStringLiteral("action"), QStringLiteral("add_document")},
        {QStringLiteral("xRequestHistory"), requestHistoryID},
        {QStringLiteral("name"), name},
        {QStringLiteral("mimetype"), QStringLiteral("application/zip")},
        {QStringLiteral("body"), QVariant::fromValue(QKBase64EncodedFile(archivePath))},
    };
}

QVariantMap HSForms::list(const QString &email)
{
    return {
        {QStringLiteral("action"), QStringLiteral("list")},
        {QStringLiteral("sEmail"), email},
        {QStringLiteral("fTrash"), QStringLiteral("0")},
    };
}

QVariantMap HSForms::update(const QString &requestID, const QString &body)
{
    return {
        {QStringLiteral("action"), QStringLiteral("update")},
        {QStringLiteral("xRequest"), requestID},
        {QStringLiteral("tBody"), body},
    };
}
