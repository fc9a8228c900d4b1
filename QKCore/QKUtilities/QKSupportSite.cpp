#include "QKSupportSite.h"

#include <QMutex>

namespace {

QMutex s_mutex;
QString s_baseURL;
QString s_apiURL;

QString chosen(const QString &hostValue, const char *environmentName, const char *buildValue)
{
    if (!hostValue.isEmpty())
        return hostValue;
    const QString fromEnvironment = qEnvironmentVariable(environmentName);
    return fromEnvironment.isEmpty() ? QString::fromUtf8(buildValue) : fromEnvironment;
}

QString withoutTrailingSlash(QString url)
{
    while (url.endsWith(QLatin1Char('/')))
        url.chop(1);
    return url;
}

} // namespace

QString QKSupportSite::baseURL()
{
    QMutexLocker lock(&s_mutex);
    return withoutTrailingSlash(chosen(s_baseURL, "QK_SUPPORT_BASE_URL", QK_SUPPORT_BASE_URL));
}

QString QKSupportSite::helpDeskAPIURL()
{
    QMutexLocker lock(&s_mutex);
    return chosen(s_apiURL, "QK_HELPDESK_API_URL", QK_HELPDESK_API_URL);
}

void QKSupportSite::setBaseURL(const QString &url)
{
    QMutexLocker lock(&s_mutex);
    s_baseURL = url;
}

void QKSupportSite::setHelpDeskAPIURL(const QString &url)
{
    QMutexLocker lock(&s_mutex);
    s_apiURL = url;
}
