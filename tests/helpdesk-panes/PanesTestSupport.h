#pragma once

// Shared helpers of the pane tests. Every test of this folder runs in New York time, so
// that dates are read and written away from UTC (and across daylight saving time).

#include "../helpdesk/HelpDeskTestSupport.h"

#include "QKHelpDesk.h"
#include "QKHelpDeskView.h"
#include "SUAppcastItem.h"

#include <QDateTime>
#include <QHash>
#include <QString>

namespace PanesTest {

/** @p day at @p time in UTC. */
QDateTime utc(QDate day, QTime time);

using HelpDeskTest::sampleDataWith;

/** Answers every alert whose message is @p message with @p button, others with the first
 *  button; forgets the alerts shown so far. */
void answerAlerts(const QHash<QString, int> &answers);
/** The messages of the alerts shown since the answerer was set. */
QStringList alertMessages();

/** Makes the alerts of both panes possible without the start-up update check that an
 *  e-mail address would also switch on. */
void notifyAboutUpdates(bool documentation, bool tutorials);

/** Starts the help desk on @p baseURL, where nothing listens (port 9 discards), opens its
 *  window on the pane titled @p title and waits for the (empty) casts, so that no cast
 *  fetch outlives the test. Null when the casts never came. */
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
