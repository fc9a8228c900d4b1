#include "QKZipArchiver.h"

#include "QKApplicationLog.h"

#include <QFileInfo>
#include <QProcess>

namespace {

const QString LogDomain = QStringLiteral("HDSupport");

// The tool appends ".zip" to a name without an extension.
QString archivePathWithoutExtension(const QString &archivePath)
{
    const QFileInfo archive(archivePath);
    const QString name = archive.fileName();
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    if (dot <= 0)
        return archivePath;
    return archivePath.left(archivePath.size() - (name.size() - dot));
}

} // namespace

QString QKZipArchiver::zipToolPath()
{
    return QStringLiteral("/usr/bin/zip");
}

bool QKZipArchiver::zipPaths(const QStringList &paths, const QString &archivePath)
{
    if (QFileInfo(archivePath).isFile())
        QFile::remove(archivePath);

    QProcess zip;
    zip.setProcessChannelMode(QProcess::MergedChannels);
    zip.start(zipToolPath(),
              QStringList{QStringLiteral("-qrj"), archivePathWithoutExtension(archivePath)} + paths,
              QIODevice::ReadOnly);
    if (!zip.waitForStarted(-1)) {
        QKApplicationLog::sharedLog()->warning(
            QKApplicationLogContext(LogDomain),
            QStringLiteral("cannot run %1: %2").arg(zipToolPath(), zip.errorString()));
        return false;
    }
    zip.waitForFinished(-1);
    if (QFileInfo(archivePath).isFile())
        return true;
    QKApplicationLog::sharedLog()->warning(
        QKApplicationLogContext(LogDomain),
        QStringLiteral("%1 did not produce %2: %3")
            .arg(zipToolPath(), archivePath, QString::fromLocal8Bit(zip.readAll()).trimmed()));
    return false;
}
