#include "BenchSupportSite.h"

#include <QProcess>

QString startSupportSite(QProcess &site, const QString &statePath)
{
    site.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    site.start(
        QStringLiteral(QK_SUPPORT_SITE_EXECUTABLE),
        {"--port", "0", "--data", QStringLiteral(QK_SUPPORT_SITE_DATA), "--state", statePath});
    if (!site.waitForStarted(15000) || !site.waitForReadyRead(15000))
        return QString();
    const QByteArray line = site.readLine().trimmed();
    const QByteArray prefix = "Listening on ";
    return line.startsWith(prefix) ? QString::fromUtf8(line.mid(prefix.size())) : QString();
}
