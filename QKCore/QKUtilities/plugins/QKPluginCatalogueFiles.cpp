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

void QKPluginCatalogueFiles::saveDatabase(qsizetype count,
                                          const std::function<QVariantMap(qsizetype)> &stateAt,
                                          std::optional<qsizetype> changed)
{
    const qsizetype known = m_encodedEntries.size();
    if (changed && *changed < count &&
        (known == count || (known + 1 == count && *changed == known))) {
        m_encodedEntries.resize(count);
        m_encodedEntries[*changed] = encodeEntry(stateAt(*changed));
    } else {
        m_encodedEntries.clear();
        m_encodedEntries.reserve(count);
        for (qsizetype i = 0; i < count; ++i)
            m_encodedEntries.append(encodeEntry(stateAt(i)));
    }
    QByteArray root;
    if (m_encodedEntries.isEmpty()) {
        root = "<array/>\n";
    } else {
        root = "<array>\n";
        for (const QByteArray &entry : std::as_const(m_encodedEntries))
            root += entry;
        root += "</array>\n";
    }
    const QByteArray document = QKPropertyList::xmlDocument(root);

    QString error;
    QFile file(m_databasePath);
    bool saved = QKFile::createDirectoryAtPath(QFileInfo(m_databasePath).path(), &error);
    if (saved) {
        saved = file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
                file.write(document) == document.size() && file.flush();
        if (!saved)
            error = file.errorString();
    }
    if (!saved) {
        // Whatever is on disk may now be a part of a file; the next save writes it whole.
        m_encodedEntries.clear();
        if (!m_saveFailureLogged)
            warn(QStringLiteral("cannot save the plug-in database %1: %2")
                     .arg(m_databasePath, error));
    }
    m_saveFailureLogged = !saved;
}

QByteArray QKPluginCatalogueFiles::encodeEntry(const QVariantMap &state)
{
    QString error;
    QByteArray encoded = QKPropertyList::xmlElement(state, 1, &error);
    if (!encoded.isEmpty())
        return encoded;
    // A plug-in's name or maker may hold control characters; one such entry must not keep the
    // whole catalogue from being saved.
    QVariantMap storable = state;
    for (QVariant &value : storable) {
        if (value.typeId() != QMetaType::QString)
            continue;
        QString text = value.toString();
        for (qsizetype i = 0; i < text.size(); ++i) {
            const QChar c = text.at(i);
            if (c.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()) {
                ++i;
                continue;
            }
            if ((c < QChar(0x20) && c != u'\t' && c != u'\n' && c != u'\r') || c.isSurrogate() ||
                c == QChar(0xfffe) || c == QChar(0xffff))
                text[i] = QChar::ReplacementCharacter;
        }
        value = text;
    }
    warn(QStringLiteral("a plug-in entry holds text a property list cannot store (%1); it is "
                        "saved with that text replaced")
             .arg(error));
    encoded = QKPropertyList::xmlElement(storable, 1, &error);
    return encoded;
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
