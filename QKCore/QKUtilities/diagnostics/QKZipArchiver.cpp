#include "QKZipArchiver.h"

#include "QKApplicationLog.h"

#include <QByteArray>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>

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

// Deflating data that does not shrink (recordings, compressed audio, archives) costs the tool
// about 50 MB/s of the main thread's time for nothing; storing it costs a copy. A few
// small samples of each file tell which kind a run has; compressing them delays every
// archive, so they are kept to about a millisecond's work. Below a 3 % saving, sending the extra
// bytes over a home uplink takes about as long as deflating would have.
constexpr qint64 SampleSize = 16 * 1024;
constexpr int SamplesPerFile = 4;
constexpr double SmallestWorthwhileSaving = 0.03;

struct Estimate
{
    qint64 bytes = 0;
    double savedBytes = 0.0;
};

// Adds the sampled saving of one file, scaled to its size; false when it cannot be sampled.
bool addSampledFile(const QString &path, Estimate &estimate)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const qint64 size = file.size();
    qint64 sampled = 0;
    qint64 compressed = 0;
    for (int i = 0; i < SamplesPerFile && sampled < size; ++i) {
        const qint64 offset = size <= SampleSize * SamplesPerFile
                                  ? sampled
                                  : (size - SampleSize) * i / (SamplesPerFile - 1);
        if (!file.seek(offset))
            return false;
        const QByteArray sample = file.read(SampleSize);
        if (sample.isEmpty())
            break;
        sampled += sample.size();
        compressed += qCompress(sample).size();
    }
    if (sampled > 0) {
        estimate.bytes += size;
        estimate.savedBytes += size * (1.0 - double(compressed) / double(sampled));
    }
    return true;
}

// Whether the tool should store rather than deflate: every path is a file that can be read
// and, weighted by size, deflating would save too little to be worth its time.
bool storesRatherThanDeflates(const QStringList &paths)
{
    Estimate estimate;
    for (const QString &path : paths) {
        const QFileInfo info(path);
        // Folders may hold anything and sampling them all could take longer than deflating.
        if (info.isDir())
            return false;
        if (info.exists() && !addSampledFile(path, estimate))
            return false;
    }
    return estimate.bytes > 0 && estimate.savedBytes < SmallestWorthwhileSaving * estimate.bytes;
}

// The tool takes default options from ZIPOPT and ZIP; a user's own (a password prompt, a
// different compression) must not change what the help desk receives.
QProcessEnvironment zipEnvironment(bool store)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("ZIPOPT"));
    environment.remove(QStringLiteral("ZIP"));
    if (store)
        environment.insert(QStringLiteral("ZIPOPT"), QStringLiteral("-0"));
    return environment;
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
    zip.setProcessEnvironment(zipEnvironment(storesRatherThanDeflates(paths)));
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
