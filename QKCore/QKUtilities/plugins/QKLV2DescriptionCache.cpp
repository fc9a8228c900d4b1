#include "QKLV2DescriptionCache.h"

#include "QKApplicationLog.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

namespace {

const QByteArray Header = "QKUtilities LV2 descriptions 1";
constexpr qsizetype DescriptionSize = 20;
// Beyond these a walk could take longer than the world it saves; such folders are not cached.
constexpr int MaximumDepth = 8;
constexpr qsizetype MaximumEntries = 100000;
constexpr qint64 MaximumFileSize = 8 * 1024 * 1024;

void warn(const QString &message)
{
    QKApplicationLog::sharedLog()->warning(QKApplicationLogContext(QStringLiteral("QKAUManager")),
                                           message);
}

class Fingerprint
{
public:
    // Adds @p folder and, below @p depth levels, everything in it; false when too much.
    bool add(const QString &folder, int depth)
    {
        const QFileInfoList entries = QDir(folder).entryInfoList(
            QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System, QDir::Name);
        for (const QFileInfo &entry : entries) {
            if (++m_entries > MaximumEntries)
                return false;
            addEntry(entry);
            if (entry.isDir() && (depth >= MaximumDepth || !add(entry.filePath(), depth + 1)))
                return false;
        }
        return true;
    }
    void addEntry(const QFileInfo &entry)
    {
        const QByteArray line =
            QFile::encodeName(entry.filePath()) + '\t' +
            (entry.exists() ? QByteArray::number(entry.size()) + '\t' +
                                  QByteArray::number(entry.lastModified().toMSecsSinceEpoch())
                            : QByteArray("-")) +
            '\n';
        m_hash.addData(line);
    }
    QByteArray digest() const { return m_hash.result().toHex(); }

private:
    QCryptographicHash m_hash{QCryptographicHash::Sha256};
    qsizetype m_entries = 0;
};

} // namespace

QKLV2DescriptionCache::QKLV2DescriptionCache(const QString &lv2Path, const QStringList &folders)
{
    const QString cacheFolder =
        QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation);
    if (cacheFolder.isEmpty())
        return;
    const QByteArray pathKey =
        QCryptographicHash::hash(lv2Path.toUtf8(), QCryptographicHash::Sha1).toHex().left(16);
    m_file = cacheFolder + QStringLiteral("/QKUtilities/lv2-") + QString::fromLatin1(pathKey) +
             QStringLiteral(".txt");

    Fingerprint fingerprint;
    for (const QString &folder : folders) {
        const QFileInfo info(folder);
        fingerprint.addEntry(info);
        if (info.isDir() && !fingerprint.add(folder, 1))
            return;
    }
    m_fingerprint = fingerprint.digest();
}

std::optional<QList<QByteArray>> QKLV2DescriptionCache::descriptions() const
{
    if (m_fingerprint.isEmpty())
        return std::nullopt;
    QFile file(m_file);
    if (!file.exists())
        return std::nullopt;
    if (!file.open(QIODevice::ReadOnly) || file.size() > MaximumFileSize) {
        warn(QStringLiteral("cannot use the LV2 description cache %1; the plug-ins are read again")
                 .arg(m_file));
        return std::nullopt;
    }
    const auto damaged = [this] {
        warn(QStringLiteral("the LV2 description cache %1 is damaged; the plug-ins are read again")
                 .arg(m_file));
        return std::nullopt;
    };
    const QList<QByteArray> lines = file.readAll().split('\n');
    // The header, the fingerprint, one description per line, and the final line feed.
    if (lines.size() < 3 || lines.first() != Header || !lines.constLast().isEmpty())
        return damaged();
    if (lines.at(1) != m_fingerprint)
        return std::nullopt;
    QList<QByteArray> descriptions;
    for (qsizetype i = 2; i + 1 < lines.size(); ++i) {
        const QByteArray description = QByteArray::fromHex(lines.at(i));
        if (lines.at(i).size() != DescriptionSize * 2 || description.toHex() != lines.at(i))
            return damaged();
        descriptions.append(description);
    }
    return descriptions;
}

void QKLV2DescriptionCache::store(const QList<QByteArray> &descriptions) const
{
    if (m_fingerprint.isEmpty())
        return;
    QByteArray text = Header + '\n' + m_fingerprint + '\n';
    for (const QByteArray &description : descriptions)
        text += description.toHex() + '\n';
    QDir().mkpath(QFileInfo(m_file).path());
    QSaveFile file(m_file);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit())
        warn(QStringLiteral("cannot write the LV2 description cache %1: %2")
                 .arg(m_file, file.errorString()));
}
