#pragma once

// Shared helpers of the help desk tests: the log, the download folder, waiting for the
// casts, and a small HTTP server that answers with whatever a test scripts.

#include "QKTestPrinters.h"

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

class QHttpServer;
class QKHelpDesk;

namespace HelpDeskTest {

/** Runs the event loop until @p condition holds or @p timeoutMs pass; returns the condition. */
bool waitUntil(const std::function<bool()> &condition, int timeoutMs = 10000);

/** Everything the application log holds so far. */
QString logText();

/** "~/Downloads", the download folder of the test's HOME (not created). */
QString downloadFolder();
/** The names in @p folder, hidden ones included; empty when it is not a folder. */
QStringList filesIn(const QString &folder);

/** A copy of the support site's sample data with @p files (paths relative to the data
 *  folder) replaced or added; it lasts as long as the test process. */
QString sampleDataWith(const QHash<QString, QByteArray> &files);

/** Opens the help desk window and waits until its casts have arrived. */
bool openWindowAndWaitForCasts(QKHelpDesk *helpDesk);

/** Starts the help desk as a host does at launch and returns it; @p email stands for the
 *  address on the user's own card (none when empty). */
QKHelpDesk *startHelpDesk(const QString &email = QString());

/**
 * An HTTP server on 127.0.0.1 run by the test's own event loop. Every path (without the
 * query) answers with the body, status and type set for it; others get 404.
 */
class ScriptedServer
{
public:
    ScriptedServer();
    ~ScriptedServer();

    void setReply(const QString &path, const QByteArray &body, int status = 200,
                  const QByteArray &type = "text/plain");
    /** "http://127.0.0.1:PORT". */
    QString baseURL() const;

private:
    struct Reply
    {
        QByteArray body;
        int status;
        QByteArray type;
    };
    std::unique_ptr<QHttpServer> m_server;
    QHash<QString, Reply> m_replies;
    quint16 m_port = 0;
};

} // namespace HelpDeskTest
