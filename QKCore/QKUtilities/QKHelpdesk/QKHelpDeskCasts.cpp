#include "QKHelpDeskCasts.h"

#include "HSForms.h"

#include <QKApplicationLog.h>
#include <QKMultipartRequest.h>
#include <QKPropertyList.h>
#include <QKSynchronousRequest.h>
#include <RSS.h>

#include <QNetworkRequest>
#include <QUrl>

namespace {

void warn(const QString &message)
{
    QKApplicationLog::sharedLog()->warning(QKApplicationLogContext(QStringLiteral("QKHelpDesk")),
                                           message);
}

/** The property list at @p url; invalid (and logged) when it cannot be fetched or read. */
QVariant propertyListAt(const QUrl &url, const char *what)
{
    const QKSynchronousRequest::Reply reply = QKSynchronousRequest::get(QNetworkRequest(url));
    if (!reply.isSuccess()) {
        warn(QStringLiteral("cannot fetch the %1 at %2: %3")
                 .arg(QLatin1String(what), url.toString(), reply.errorString));
        return QVariant();
    }
    if (reply.statusCode != 200) {
        warn(QStringLiteral("the %1 at %2 answered HTTP %3")
                 .arg(QLatin1String(what), url.toString())
                 .arg(reply.statusCode));
        return QVariant();
    }
    QString error;
    const QVariant value = QKPropertyList::fromData(reply.data, &error);
    if (!value.isValid()) {
        warn(QStringLiteral("the %1 at %2 is not a property list: %3")
                 .arg(QLatin1String(what), url.toString(), error));
    }
    return value;
}

} // namespace

QList<SUAppcastItem> QKHelpDeskCasts::appcast(const QUrl &feedURL, const QString &userAgent)
{
    // The feed reader logs its own failures.
    const RSS feed(feedURL, true, userAgent);
    QList<SUAppcastItem> items;
    const QVariantList entries = feed.newsItems();
    for (const QVariant &entry : entries)
        items << SUAppcastItem(entry.toMap());
    return items;
}

QVariantMap QKHelpDeskCasts::documentation(const QUrl &url)
{
    const QVariant value = propertyListAt(url, "documentation cast");
    if (value.isValid() && value.typeId() != QMetaType::QVariantMap)
        warn(
            QStringLiteral("the documentation cast at %1 is not a dictionary").arg(url.toString()));
    return value.toMap();
}

QVariantList QKHelpDeskCasts::tutorials(const QUrl &url)
{
    const QVariant value = propertyListAt(url, "tutorial index");
    if (value.isValid() && value.typeId() != QMetaType::QVariantList)
        warn(QStringLiteral("the tutorial index at %1 is not an array").arg(url.toString()));
    return value.toList();
}

std::optional<HSResults> QKHelpDeskCasts::categories(const QUrl &apiURL)
{
    const QKMultipartRequest request =
        QKMultipartRequest::requestWithURL(apiURL, HSForms::categories());
    const QKSynchronousRequest::Reply reply = QKSynchronousRequest::post(request);
    if (!reply.isSuccess()) {
        warn(QStringLiteral("cannot fetch the help desk categories from %1: %2")
                 .arg(apiURL.toString(), reply.errorString));
        return std::nullopt;
    }
    if (reply.data.isEmpty()) {
        warn(QStringLiteral("the help desk categories reply from %1 is empty")
                 .arg(apiURL.toString()));
        return std::nullopt;
    }
    HSResults results(reply.data, true);
    if (results.isNull())
        warn(QStringLiteral("the help desk categories reply from %1 is not XML")
                 .arg(apiURL.toString()));
    return results;
}
