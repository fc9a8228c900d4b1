#include "QKPluginCatalogueFiles.h"

#include "QKApplicationLog.h"
#include "QKFile.h"
#include "QKPropertyList.h"

#include <QFile>
#include <QFileInfo>
#include <QVariantList>

namespace {

// A marker holds a 20-byte description or one path; anything longer is not ours.
constexpr qint64 MarkerSizeLimit = 64 * 1024;

} // namespace

QKPluginCatalogueFiles::QKPluginCatalogueFiles(const QString &logDomain,
                                               const QString &databasePath,
                                               const QString &markerPath)
    : m_logDomain(logDomain), m_databasePath(databasePath), m_markerPath(markerPath)
{}

QList<QVariantMap> QKPluginCatalogueFiles::readDatabase() const
{
    QList<QVariantMap> states;
    if (!QFileInfo::exists(m_databasePath))
        return states;
    QString error;
    const QVariant root = QKPropertyList::readFile(m_databasePath, &error);
    if (root.typeId() != QMetaType::QVariantList) {
        // Keep the damaged file for whoever looks into it; the catalogue is rebuilt anyway.
        const QString aside = m_databasePath + QStringLiteral(".corrupt");
        QFile::remove(aside);
        QFile::rename(m_databasePath, aside);
        warn(QStringLiteral("the plug-in database %1 is not a list of entries (%2); it was "
                            "moved to %3 and the catalogue starts empty")
                 .arg(m_databasePath, error.isEmpty() ? QStringLiteral("wrong root type") : error,
                      aside));
        return states;
    }
    const QVariantList elements = root.toList();
    for (qsizetype i = 0; i < elements.size(); ++i) {
        if (elements.at(i).typeId() != QMetaType::QVariantMap) {
            warn(QStringLiteral("entry %1 of the plug-in database %2 is not a dictionary; "
                                "skipped")
                     .arg(i)
                     .arg(m_databasePath));
            continue;
        }
        states.append(elements.at(i).toMap());
    }
    return states;
}

void QKPluginCatalogueFiles::saveDatabase(const QList<QVariantMap> &states) const
{
    QVariantList root;
    root.reserve(states.size());
    for (const QVariantMap &state : states)
        root.append(state);
    QString error;
    const QString folder = QFileInfo(m_databasePath).path();
    if (!QKFile::createDirectoryAtPath(folder, &error) ||
        !QKPropertyList::writeFile(root, m_databasePath, QKPropertyList::Format::Xml,
                                   /*atomically=*/false, &error)) {
        if (!m_saveFailureLogged)
            warn(QStringLiteral("cannot save the plug-in database %1: %2")
                     .arg(m_databasePath, error));
        m_saveFailureLogged = true;
        return;
    }
    m_saveFailureLogged = false;
}

bool QKPluginCatalogueFiles::writeMarker(const QByteArray &contents) const
{
    QFile file(m_markerPath);
    QKFile::createDirectoryAtPath(QFileInfo(m_markerPath).path());
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        file.write(contents) != contents.size() || !file.flush()) {
        warn(QStringLiteral("cannot write the loading marker %1: %2")
                 .arg(m_markerPath, file.errorString()));
        return false;
    }
    return true;
}

std::optional<QByteArray> QKPluginCatalogueFiles::readMarker() const
{
    QFile file(m_markerPath);
    if (!file.exists())
        return std::nullopt;
    if (!file.open(QIODevice::ReadOnly)) {
        warn(QStringLiteral("cannot read the loading marker %1: %2")
                 .arg(m_markerPath, file.errorString()));
        return std::nullopt;
    }
    QByteArray contents = file.read(MarkerSizeLimit + 1);
    if (contents.size() > MarkerSizeLimit) {
        warn(QStringLiteral("the loading marker %1 is too large to name a plug-in")
                 .arg(m_markerPath));
        return std::nullopt;
    }
    return contents;
}

void QKPluginCatalogueFiles::removeMarker() const
{
    QFile::remove(m_markerPath);
}

void QKPluginCatalogueFiles::warn(const QString &message) const
{
    QKApplicationLog::sharedLog()->warning(QKApplicationLogContext(m_logDomain), message);
}
