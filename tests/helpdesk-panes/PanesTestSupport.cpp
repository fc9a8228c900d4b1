#include "PanesTestSupport.h"

#include <QKAlert.h>
#include <QKUserDefaults.h>

#include <cstdlib>
#include <ctime>

namespace {

// Before main(): the application and every date it makes must see this zone.
const bool newYorkTime = [] {
    setenv("TZ", "America/New_York", 1);
    tzset();
    return true;
}();

} // namespace

namespace PanesTest {

void answerAlerts(const QHash<QString, int> &answers)
{
    QKAlert::setAnswerer(
        [answers](const QKAlertRequest &request) { return answers.value(request.message, 0); });
}

QStringList alertMessages()
{
    QStringList messages;
    for (const QKAlertRequest &request : QKAlert::shownAlerts())
        messages << request.message;
    return messages;
}

void notifyAboutUpdates(bool documentation, bool tutorials)
{
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    defaults->setBool(documentation, QStringLiteral("Notify Documentation Updates"));
    defaults->setBool(tutorials, QStringLiteral("Notify Tutorial Updates"));
}

QKHelpDesk *openWithoutSite(const QString &title, const QString &baseURL)
{
    useSite(baseURL);
    QKHelpDesk *helpDesk = startHelpDesk();
    if (!openWindowAndWaitForCasts(helpDesk))
        return nullptr;
    helpDesk->_openWindow(title);
    return helpDesk;
}

} // namespace PanesTest
