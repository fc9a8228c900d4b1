#pragma once

// Shared helpers of the help desk and pane tests.

#include "QKTestPrinters.h"

#include <QKApplication.h>

#include <QHash>
#include <QHttpServer>
#include <QString>
#include <QStringList>
#include <QTest>

class QKHelpDesk;
class QKHelpDeskView;

namespace HelpDeskTest {

QString logText();
/** "~/Downloads" of the test's HOME (not created). */
QString downloadFolder();
/** The names in @p folder, hidden ones included. */
QStringList filesIn(const QString &folder);
/** A copy of the support site's sample data with @p files (paths relative to the data
 *  folder) replaced or added; it lasts as long as the test process. */
QString sampleDataWith(const QHash<QString, QByteArray> &files);

/** Points the support site and the help desk API of this process at @p baseURL. */
void useSite(const QString &baseURL);
/** Starts the help desk as a host does at launch; @p email stands for the address on the
 *  user's own card (none when empty). */
QKHelpDesk *startHelpDesk(const QString &email = QString());
bool openWindowAndWaitForCasts(QKHelpDesk *helpDesk);
bool reloadCasts(QKHelpDesk *helpDesk);
/** The pane with @p identifier; null when there is none. */
QKHelpDeskView *pane(const QKHelpDesk *helpDesk, const QString &identifier);

/** The test host is a beta build; this delegate makes it a release. */
class ReleaseBuild : public QKApplicationDelegate
{
public:
    bool isBetaVersion() const override { return false; }
};

/** The addresses the library opens in the browser while this lives, as strings. */
class OpenedURLs : public QStringList
{
public:
    OpenedURLs();
    ~OpenedURLs();
};

/** HTTP on 127.0.0.1: a path (without the query) in replies answers 200 with it, others 404. */
class ScriptedServer
{
public:
    ScriptedServer();
    /** "http://127.0.0.1:PORT". */
    QString baseURL() const;

    QHash<QString, QByteArray> replies;

private:
    QHttpServer m_server;
    quint16 m_port = 0;
};

} // namespace HelpDeskTest
