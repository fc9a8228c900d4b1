#pragma once

#include <QJsonArray>
#include <QString>

#include <memory>

/**
 * Runs the loopback support site (qk-support-site) for one test: on a free port of
 * 127.0.0.1, with its help desk state in a temporary folder that lives as long as this
 * object. The constructor starts the site and waits (bounded) until it listens; check
 * isRunning() and errorString(). The destructor stops it.
 *
 * With Environment::Export the constructor points the library at the site by setting
 * QK_SUPPORT_BASE_URL and QK_HELPDESK_API_URL for this process; the destructor restores
 * the values they had before.
 */
class QKSupportSiteProcess
{
public:
    enum class Environment { Keep, Export };

    /**
     * Starts the site serving @p dataPath (empty: the project's sample data).
     */
    explicit QKSupportSiteProcess(Environment environment = Environment::Export,
                                  const QString &dataPath = QString());
    ~QKSupportSiteProcess();

    QKSupportSiteProcess(const QKSupportSiteProcess &) = delete;
    QKSupportSiteProcess &operator=(const QKSupportSiteProcess &) = delete;

    /** True while the site's process runs and listens. */
    bool isRunning() const;
    /** Why the last start failed, with the site's own output; empty after a good start. */
    QString errorString() const;

    /** "http://127.0.0.1:PORT", without a trailing slash; empty when not running. */
    QString baseURL() const;
    /** baseURL() + "/helpspot_api.php"; empty when not running. */
    QString helpDeskAPIURL() const;
    /** The port the site listens on; 0 when not running. */
    quint16 port() const;
    /** The site's SQLite database. */
    QString statePath() const;
    /** The sample-data folder the site serves. */
    QString dataPath() const;

    /**
     * Starts the site if it is not running, on the port it had before when there was one
     * (so exported addresses stay valid), else on a free one. Returns isRunning().
     */
    bool start();
    /** Stops the site with SIGTERM (killing it if it does not end); the state stays. */
    void stop();
    /** stop(), then start() on the same port with the same state. */
    bool restart();
    /** The exit code of the last stop; -1 when the site had to be killed or never ran. */
    int lastExitCode() const;

    /** GET /inspect/<path>: what the site stored, as JSON; empty when it answers nothing. */
    QJsonArray inspect(const QString &path) const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};
