#include "QKPluginCatalogueFiles.h"

#include "QKApplicationLog.h"
#include "QKFile.h"
#include "QKPropertyList.h"

#include <QFile>
#include <QFileInfo>
#include <QVariantList>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

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
    // The file on disk ends with the entries from the first changed one on; the part before
    // it is what the last save wrote, so only the rest is written again.
    qsizetype from = 0;
    const qsizetype known = m_encodedEntries.size();
    if (changed && *changed < count &&
        (known == count || (known + 1 == count && *changed == known))) {
        m_encodedEntries.resize(count);
        m_encodedEntries[*changed] = encodeEntry(stateAt(*changed));
        from = *changed;
    } else {
        m_encodedEntries.clear();
        m_encodedEntries.reserve(count);
        for (qsizetype i = 0; i < count; ++i)
            m_encodedEntries.append(encodeEntry(stateAt(i)));
    }
    static const auto [header, footer] = [] {
        const QByteArray document = QKPropertyList::xmlDocument("<array>\n</array>\n");
        const qsizetype end = document.indexOf("</array>\n");
        return std::pair(document.left(end), document.mid(end));
    }();
    m_entryOffsets.resize(count + 1);
    m_entryOffsets[0] = header.size();
    for (qsizetype i = std::max<qsizetype>(from, 1); i <= count; ++i)
        m_entryOffsets[i] = m_entryOffsets[i - 1] + m_encodedEntries.at(i - 1).size();

    QByteArray tail;
    qint64 offset = 0;
    if (count == 0) {
        tail = QKPropertyList::xmlDocument("<array/>\n");
    } else {
        offset = from == 0 ? 0 : m_entryOffsets[from];
        tail.reserve(m_entryOffsets[count] - offset + header.size() + footer.size());
        if (from == 0)
            tail += header;
        for (qsizetype i = from; i < count; ++i)
            tail += m_encodedEntries.at(i);
        tail += footer;
    }

    QString error;
    const bool saved = QKFile::createDirectoryAtPath(QFileInfo(m_databasePath).path(), &error) &&
                       writeFrom(offset, tail, &error);
    if (!saved) {
        // Whatever is on disk may now be a part of a file; the next save writes it whole.
        m_encodedEntries.clear();
        if (!m_saveFailureLogged)
            warn(QStringLiteral("cannot save the plug-in database %1: %2")
                     .arg(m_databasePath, error));
    }
    m_saveFailureLogged = !saved;
}

// Replaces the database from @p offset on with @p bytes, leaving what is before it.
bool QKPluginCatalogueFiles::writeFrom(qint64 offset, const QByteArray &bytes, QString *error) const
{
    const int fd =
        ::open(QFile::encodeName(m_databasePath).constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    bool written = fd >= 0;
    for (qsizetype done = 0; written && done < bytes.size();) {
        const ssize_t n =
            ::pwrite(fd, bytes.constData() + done, size_t(bytes.size() - done), offset + done);
        if (n < 0 && errno == EINTR)
            continue;
        written = n > 0;
        done += std::max<ssize_t>(n, 0);
    }
    written = written && ::ftruncate(fd, offset + bytes.size()) == 0;
    if (!written)
        *error = QString::fromLocal8Bit(strerror(errno));
    if (fd >= 0)
        ::close(fd);
    return written;
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
