#pragma once

// Shared helpers of the support pane tests: the help desk opened on its support pane over
// the loopback support site, what the site stored, the log, zip contents, and a scripted
// help desk API for the failures the real site never makes.

#include "QKHelpDesk.h"
#include "QKHelpDeskProgressPanel.h"
#include "QKHelpDeskSupport.h"
#include "QKSupportSiteProcess.h"
#include "QKTestEnvironment.h"
#include "QKTestPrinters.h"

#include <QKAlert.h>
#include <QKApplication.h>
#include <QKApplicationLog.h>
#include <QKUserDefaults.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QMap>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTcpServer>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>

namespace SupportTest {

/** Runs the event loop until @p condition holds or @p timeoutMs pass; returns the condition. */
bool waitUntil(const std::function<bool()> &condition, int timeoutMs = 20000);

struct LogEntry
{
    QString level, domain, function, sender, message;
};
/** The application log's entries so far; only @p domain's when given. */
QList<LogEntry> logEntries(const QString &domain = QString());
/** "Info: message" / "Warning: message" for each entry of the "HDSupport" domain. */
QStringList supportLog();

inline QKHelpDeskProgressPanel *progressPanel()
{
    return QKHelpDesk::helpDesk()->progressPanel();
}

template<typename T> T *paneWidget(QKHelpDeskSupport *pane, const char *name)
{
    return pane->findChild<T *>(QString::fromLatin1(name));
}

/** Fills the new request form (category by title) and clicks Submit. */
void submitRequest(QKHelpDeskSupport *pane, const QString &category, const QString &body);
/** The progress panel's last title, once it shows a final message ("...!") or closed. */
QString waitForPanelEnd();

/** GET /inspect/<path> of @p site: what the site stored, as JSON. */
QJsonArray inspect(const QKSupportSiteProcess &site, const QString &path);
/** A zip archive's (or a stored document's) entries, read with Python's zipfile module. */
QMap<QString, QByteArray> zipEntries(const QByteArray &archive);
QMap<QString, QByteArray> documentEntries(const QKSupportSiteProcess &site, qint64 id);

/** Points TMPDIR at a folder under HOME: the application's temporary folder is named by its
 *  code, so tests running side by side would share it. */
void useOwnTemporaryFolder();
/** Writes @p contents to @p path (relative paths are under HOME), creating folders. */
QString writeFile(const QString &path, const QByteArray &contents);

/**
 * A help desk API on loopback that answers as a script says, and keeps every form it got.
 * By default "new" and "update" answer request 10001 / history 40001, "add_document" a
 * document number and "list" an empty list.
 */
class ScriptedHelpDesk : public QTcpServer
{
public:
    struct Reply
    {
        int status = 200;
        QByteArray body;
        bool drop = false; // close the connection without answering
        bool hang = false; // keep the connection open without answering
    };

    ScriptedHelpDesk();
    QString url() const;
    /** The "action" (or, for documents, "add_document:<name>") of each form received. */
    QStringList steps() const;

    /** Decides the reply to a form, or nullopt for the default one. */
    std::function<std::optional<Reply>(const QMap<QString, QString> &form)> script;
    /** Every form received, in order. */
    QList<QMap<QString, QString>> forms;

private:
    void serve(QTcpSocket *socket);

    QHash<QTcpSocket *, QByteArray> m_buffers;
};

/**
 * A test of the support pane, opened as a host opens it over the loopback support site,
 * with a temporary folder of its own, categories loaded, info-level logging and the
 * built-in system profile. With @p scripted, the help desk API is a ScriptedHelpDesk.
 */
class SupportPaneTest : public ::testing::Test
{
protected:
    explicit SupportPaneTest(bool useScripted = false);
    ~SupportPaneTest() override;
    void SetUp() override;

    void check(const char *box, bool on = true)
    {
        paneWidget<QCheckBox>(pane, box)->setChecked(on);
    }
    /** Attaches @p paths through the attach-files sheet's open panel. */
    void attach(const QStringList &paths);

    std::unique_ptr<QKSupportSiteProcess> site;
    std::unique_ptr<ScriptedHelpDesk> scripted;
    QKHelpDeskSupport *pane = nullptr;
};

} // namespace SupportTest
