#include "QKSupportSiteProcess.h"

#include <QDeadlineTimer>
#include <QProcess>
#include <QTemporaryDir>

#include <optional>

namespace {

constexpr int startTimeoutMs = 15000;
constexpr int stopTimeoutMs = 5000;
const QByteArray listeningPrefix = QByteArrayLiteral("Listening on http://127.0.0.1:");

/** An environment variable's value before we changed it; nullopt when it was not set. */
std::optional<QByteArray> savedVariable(const char *name)
{
    return qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt;
}

void restoreVariable(const char *name, const std::optional<QByteArray> &value)
{
    if (value)
        qputenv(name, *value);
    else
        qunsetenv(name);
}

} // namespace

struct QKSupportSiteProcess::Private
{
    Environment environment = Environment::Export;
    QString dataPath;
    QTemporaryDir stateDirectory;
    std::unique_ptr<QProcess> process;
    quint16 port = 0;
    quint16 previousPort = 0;
    QString error;
    int lastExitCode = -1;
    std::optional<QByteArray> savedBaseURL;
    std::optional<QByteArray> savedAPIURL;

    bool launch(quint16 requestedPort);
    void exportAddresses() const;
};

bool QKSupportSiteProcess::Private::launch(quint16 requestedPort)
{
    process = std::make_unique<QProcess>();
    // The site logs every request on stderr; passing it through puts it beside the test's output.
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->setReadChannel(QProcess::StandardOutput);
    process->start(QStringLiteral(QK_SUPPORT_SITE_EXECUTABLE),
                   {QStringLiteral("--port"), QString::number(requestedPort),
                    QStringLiteral("--data"), dataPath, QStringLiteral("--state"),
                    stateDirectory.filePath(QStringLiteral("state.sqlite"))});
    if (!process->waitForStarted(startTimeoutMs)) {
        error = QStringLiteral("cannot start %1: %2")
                    .arg(QStringLiteral(QK_SUPPORT_SITE_EXECUTABLE), process->errorString());
        process.reset();
        return false;
    }
    const QDeadlineTimer deadline(startTimeoutMs);
    while (!process->canReadLine() && process->state() == QProcess::Running &&
           !deadline.hasExpired()) {
        process->waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime())));
    }
    const QByteArray line = process->canReadLine() ? process->readLine().trimmed() : QByteArray();
    bool ok = false;
    const uint listening =
        line.startsWith(listeningPrefix) ? line.mid(listeningPrefix.size()).toUInt(&ok) : 0;
    if (!ok || listening == 0 || listening > 65535) {
        error = QStringLiteral("the support site did not report its port (said \"%1\", %2)")
                    .arg(QString::fromUtf8(line + process->readAllStandardOutput()),
                         process->state() == QProcess::Running ? QStringLiteral("still running")
                                                               : QStringLiteral("exited"));
        process->kill();
        process->waitForFinished(stopTimeoutMs);
        process.reset();
        return false;
    }
    port = quint16(listening);
    previousPort = port;
    error.clear();
    return true;
}

void QKSupportSiteProcess::Private::exportAddresses() const
{
    const QByteArray base = "http://127.0.0.1:" + QByteArray::number(port);
    qputenv("QK_SUPPORT_BASE_URL", base);
    qputenv("QK_HELPDESK_API_URL", base + "/helpspot_api.php");
}

QKSupportSiteProcess::QKSupportSiteProcess(Environment environment, const QString &dataPath)
    : d(std::make_unique<Private>())
{
    d->environment = environment;
    d->dataPath = dataPath.isEmpty() ? QStringLiteral(QK_SUPPORT_SITE_DATA) : dataPath;
    if (environment == Environment::Export) {
        d->savedBaseURL = savedVariable("QK_SUPPORT_BASE_URL");
        d->savedAPIURL = savedVariable("QK_HELPDESK_API_URL");
    }
    start();
}

QKSupportSiteProcess::~QKSupportSiteProcess()
{
    stop();
    if (d->environment == Environment::Export) {
        restoreVariable("QK_SUPPORT_BASE_URL", d->savedBaseURL);
        restoreVariable("QK_HELPDESK_API_URL", d->savedAPIURL);
    }
}

bool QKSupportSiteProcess::isRunning() const
{
    return d->process && d->process->state() == QProcess::Running && d->port != 0;
}

QString QKSupportSiteProcess::errorString() const
{
    return d->error;
}

QString QKSupportSiteProcess::baseURL() const
{
    return isRunning() ? QStringLiteral("http://127.0.0.1:%1").arg(d->port) : QString();
}

QString QKSupportSiteProcess::helpDeskAPIURL() const
{
    return isRunning() ? baseURL() + QStringLiteral("/helpspot_api.php") : QString();
}

quint16 QKSupportSiteProcess::port() const
{
    return isRunning() ? d->port : 0;
}

QString QKSupportSiteProcess::statePath() const
{
    return d->stateDirectory.filePath(QStringLiteral("state.sqlite"));
}

QString QKSupportSiteProcess::dataPath() const
{
    return d->dataPath;
}

bool QKSupportSiteProcess::start()
{
    if (isRunning())
        return true;
    if (!d->stateDirectory.isValid()) {
        d->error = QStringLiteral("no temporary folder for the site's state");
        return false;
    }
    // Another process may have taken the old port in the meantime; then any port will do.
    const bool started = (d->previousPort != 0 && d->launch(d->previousPort)) || d->launch(0);
    if (started && d->environment == Environment::Export)
        d->exportAddresses();
    return started;
}

void QKSupportSiteProcess::stop()
{
    if (!d->process)
        return;
    if (d->process->state() != QProcess::NotRunning) {
        d->process->terminate();
        if (!d->process->waitForFinished(stopTimeoutMs)) {
            d->process->kill();
            d->process->waitForFinished(stopTimeoutMs);
        }
    }
    d->lastExitCode =
        d->process->exitStatus() == QProcess::NormalExit ? d->process->exitCode() : -1;
    d->process.reset();
    d->port = 0;
}

bool QKSupportSiteProcess::restart()
{
    stop();
    return start();
}

int QKSupportSiteProcess::lastExitCode() const
{
    return d->lastExitCode;
}
