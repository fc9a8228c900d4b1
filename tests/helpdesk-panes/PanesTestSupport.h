#pragma once

// Shared helpers of the pane tests, which run in New York time: away from UTC, with daylight
// saving time.

#include "../helpdesk/HelpDeskTestSupport.h"

#include "QKHelpDesk.h"
#include "QKHelpDeskView.h"
#include "SUAppcastItem.h"

#include <QKAlert.h>
#include <QKUserDefaults.h>

#include <QDateTime>

namespace PanesTest {

using namespace HelpDeskTest;

inline QDateTime utc(QDate day, QTime time)
{
    return QDateTime(day, time, Qt::UTC);
}

/** Answers alerts by message (others with the first button); forgets those shown so far. */
inline void answerAlerts(const QHash<QString, int> &answers)
{
    QKAlert::setAnswerer(
        [answers](const QKAlertRequest &request) { return answers.value(request.message, 0); });
}

inline QStringList alertMessages()
{
    QStringList messages;
    for (const QKAlertRequest &request : QKAlert::shownAlerts())
        messages << request.message;
    return messages;
}

/** Turns the alerts of both panes on or off (without the start-up check an e-mail adds). */
inline void notifyAboutUpdates(bool documentation, bool tutorials)
{
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    defaults->setBool(documentation, QStringLiteral("Notify Documentation Updates"));
    defaults->setBool(tutorials, QStringLiteral("Notify Tutorial Updates"));
}

/** Opens the help desk on @p baseURL, where nothing listens, on the pane titled @p title once
 *  its (empty) casts came, so that no fetch outlives the test; null when they never came. */
QKHelpDesk *openWithoutSite(const QString &title,
                            const QString &baseURL = QStringLiteral("http://127.0.0.1:9"));

/** The help desk's pane of type @p Pane; null when the window is not loaded. */
template<class Pane> Pane *paneOf(const QKHelpDesk *helpDesk)
{
    for (QKHelpDeskView *pane : helpDesk->views()) {
        if (auto *match = qobject_cast<Pane *>(pane))
            return match;
    }
    return nullptr;
}

} // namespace PanesTest
