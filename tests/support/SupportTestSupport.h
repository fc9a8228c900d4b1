#pragma once

// Shared helpers of the support pane tests: the help desk opened on its support pane over
// the loopback support site, what the site stored, the log, zip contents, and a scripted
// help desk API for the failures the real site never makes.

#include "QKTestPrinters.h"
#include "QKHelpDeskSupport.h"

#include <QByteArray>
#include <QHash>
#include <QJsonArray>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QTcpServer>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>

class QKHelpDesk;
class QKHelpDeskProgressPanel;
class QKSupportSiteProcess;

namespace SupportTest {

/** Runs the event loop until @p condition holds or @p timeoutMs pass; returns the condition. */
bool waitUntil(const std::function<bool()> &condition, int timeoutMs = 20000);

/** One entry of the application log. */
struct LogEntry
{
    QString level;
    QString domain;
    QString function;
    QString sender;
    QString message;
};
/** The application log's entries so far; only @p domain's when given. */
QList<LogEntry> logEntries(const QString &domain = QString());
/** "Info: message" / "Warning: message" for each entry of the "HDSupport" domain. */
QStringList supportLog();

/** The help desk started as a host starts it, its window open on the support pane with the
 *  categories loaded; the pane logs at info level and uses the built-in system profile. */
QKHelpDeskSupport *openSupportPane();
QKHelpDeskProgressPanel *progressPanel();

/** A widget of the support pane (or of its attach-files sheet) by object name. */
template<typename T> T *paneWidget(QKHelpDeskSupport *pane, const char *name);

/** Fills the new request form (category by title) and clicks Submit. */
void submitRequest(QKHelpDeskSupport *pane, const QString &category, const QString &body);
/** Waits until the progress panel shows a final message ("...!") or has closed; returns
 *  the panel's last title. */
QString waitForPanelEnd();

/** GET /inspect/<path> of @p site as JSON. */
QJsonArray inspect(const QKSupportSiteProcess &site, const QString &path);
/** The bytes of a stored document. */
QByteArray documentBytes(const QKSupportSiteProcess &site, qint64 id);
/** The entries of a zip archive, name to contents, read with Python's zipfile module. */
QMap<QString, QByteArray> zipEntries(const QByteArray &archive);

/** Writes @p contents to @p path (relative paths are under HOME), creating folders. */
QString writeFile(const QString &path, const QByteArray &contents);
/** An executable profiler that prints an XML declaration and "<profile>", then 0.7 s later
 *  "<part1/>", then waits (up to 20 s) for @p goFile to exist before printing the rest. */
QString writeGatedProfiler(const QString &goFile);

/**
 * A help desk API on loopback that answers as a script says, and keeps every form it got.
 * By default "new" and "update" answer request 10001 / history 40001, "add_document" a
 * document number and "list" an empty list.
 */
class ScriptedHelpDesk : public QTcpServer
{
    Q_OBJECT
public:
    struct Reply
    {
        int status = 200;
        QByteArray body;
        /** Close the connection without answering. */
        bool drop = false;
    };
    /** Decides the reply to a form, or nullopt for the default one. */
    using Script = std::function<std::optional<Reply>(const QMap<QString, QString> &form)>;

    ScriptedHelpDesk();
    /** "http://127.0.0.1:PORT/helpspot_api.php", which the library now talks to. */
    QString url() const;
    void setScript(Script script) { m_script = std::move(script); }
    /** Every form received, in order. */
    QList<QMap<QString, QString>> forms() const { return m_forms; }
    /** The "action" (or, for documents, "add_document:<name>") of each form received. */
    QStringList steps() const;

private:
    void serve(QTcpSocket *socket);

    Script m_script;
    QList<QMap<QString, QString>> m_forms;
    QHash<QTcpSocket *, QByteArray> m_buffers;
};

template<typename T> T *paneWidget(QKHelpDeskSupport *pane, const char *name)
{
    return pane->findChild<T *>(QString::fromLatin1(name));
}

/**
 * A test of the support pane, opened over the loopback support site with a temporary
 * folder of its own. With @p scripted, the help desk API is a ScriptedHelpDesk instead.
 */
class SupportPaneTest : public ::testing::Test
{
protected:
    explicit SupportPaneTest(bool scripted = false);
    ~SupportPaneTest() override;
    void SetUp() override;

    /** Turns a checkbox of the pane on or off. */
    void check(const char *box, bool on = true);
    /** Attaches @p paths through the attach-files sheet's open panel. */
    void attach(const QStringList &paths);

    std::unique_ptr<QKSupportSiteProcess> site;
    std::unique_ptr<ScriptedHelpDesk> scripted;
    QKHelpDeskSupport *pane = nullptr;
};

} // namespace SupportTest
