#include "QKSupportSiteProcess.h"

#include <QKSynchronousRequest.h>

#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QNetworkRequest>
#include <QProcess>
#include <QTemporaryDir>

#include <optional>

namespace {

constexpr int startTimeoutMs = 15000;
constexpr int stopTimeoutMs = 5000;
const char *const exportedVariables[] = {"QK_SUPPORT_BASE_URL", "QK_HELPDESK_API_URL"};

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
    // The variables' values before we set them; nullopt when they were not set.
    std::optional<QByteArray> savedVariables[2];

    bool launch(quint16 requestedPort);
};

// Starts the site and reads the one line it prints once it listens.
bool QKSupportSiteProcess::Private::launch(quint16 requestedPort)
{
    process = std::make_unique<QProcess>();
    // The site logs every request on stderr; passing it through puts it beside the test's output.
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->start(QStringLiteral(QK_SUPPORT_SITE_EXECUTABLE),
                   {QStringLiteral("--port"), QString::number(requestedPort),
                    QStringLiteral("--data"), dataPath, QStringLiteral("--state"),
                    stateDirectory.filePath(QStringLiteral("state.sqlite"))});
    const QDeadlineTimer deadline(startTimeoutMs);
    while (!process->canReadLine() && process->state() != QProcess::NotRunning &&
           !deadline.hasExpired()) {
        process->waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime())));
    }
    const QByteArray line = process->readLine().trimmed();
    const QByteArray prefix = "Listening on http://127.0.0.1:";
    const uint listening = line.startsWith(prefix) ? line.mid(prefix.size()).toUInt() : 0;
    if (listening == 0 || listening > 65535) {
        error = QStringLiteral("the support site did not report its port (said \"%1\", %2)")
                    .arg(QString::fromUtf8(line + process->readAllStandardOutput()),
                         process->errorString());
        process->kill();
        process->waitForFinished(stopTimeoutMs);
        process.reset();
        return false;
    }
    port = previousPort = quint16(listening);
    error.clear();
    return true;
}

QKSupportSiteProcess::QKSupportSiteProcess(Environment environment, const QString &dataPath)
    : d(std::make_unique<Private>())
{
    d->environment = environment;
    d->dataPath = dataPath.isEmpty() ? QStringLiteral(QK_SUPPORT_SITE_DATA) : dataPath;
    for (int i = 0; i < 2 && environment == Environment::Export; ++i) {
        if (qEnvironmentVariableIsSet(exportedVariables[i]))
            d->savedVariables[i] = qgetenv(exportedVariables[i]);
    }
    start();
}

QKSupportSiteProcess::~QKSupportSiteProcess()
{
    stop();
    for (int i = 0; i < 2 && d->environment == Environment::Export; ++i) {
        if (d->savedVariables[i])
            qputenv(exportedVariables[i], *d->savedVariables[i]);
        else
            qunsetenv(exportedVariables[i]);
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
    if (!(d->previousPort != 0 && d->launch(d->previousPort)) && !d->launch(0))
        return false;
    if (d->environment == Environment::Export) {
        qputenv(exportedVariables[0], baseURL().toUtf8());
        qputenv(exportedVariables[1], helpDeskAPIURL().toUtf8());
    }
    return true;
}

void QKSupportSiteProcess::stop()
{
    if (!d->process)
        return;
    d->process->terminate();
    if (!d->process->waitForFinished(stopTimeoutMs)) {
        d->process->kill();
        d->process->waitForFinished(stopTimeoutMs);
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

QJsonArray QKSupportSiteProcess::inspect(const QString &path) const
{
    const QUrl url(baseURL() + QStringLiteral("/inspect/") + path);
    return QJsonDocument::fromJson(QKSynchronousRequest::get(QNetworkRequest(url)).data).array();
}
