#pragma once

#include <QList>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <optional>

/**
 * The two files a plug-in catalogue keeps: its database, a property list whose root is an
 * array of entry states, and the marker that names the plug-in being loaded.
 *
 * Both are written in place, not atomically: the catalogue saves after every step so that a
 * crash inside a plug-in leaves a database that names it. Failures are logged under the
 * catalogue's domain and otherwise ignored; the catalogue works on from memory.
 */
class QKPluginCatalogueFiles
{
public:
    QKPluginCatalogueFiles(const QString &logDomain, const QString &databasePath,
                           const QString &markerPath);

    QString databasePath() const { return m_databasePath; }
    QString markerPath() const { return m_markerPath; }

    /** The entry states in file order. A missing file gives none. A file that is not a
     *  property list array is kept aside as "<name>.corrupt" and gives none; elements that
     *  are not dictionaries are skipped. Each problem is logged. */
    QList<QVariantMap> readDatabase() const;
    /** Writes the @p count entries whose states @p stateAt gives as the database, creating
     *  its folder when needed. @p changed names the one entry that changed or was appended
     *  since the last save, if that is all that changed: only that entry is encoded again,
     *  which keeps a catalogue that saves after every plug-in from slowing down as it grows.
     *  An entry holding text XML cannot carry is saved with that text replaced, and logged. */
    void saveDatabase(qsizetype count, const std::function<QVariantMap(qsizetype)> &stateAt,
                      std::optional<qsizetype> changed = std::nullopt);

    /** Writes the marker; false (logged) when it cannot be written. */
    bool writeMarker(const QByteArray &contents) const;
    /** The marker's bytes; nothing when there is no marker or it cannot be read. */
    std::optional<QByteArray> readMarker() const;
    void removeMarker() const;

private:
    void warn(const QString &message) const;
    QByteArray encodeEntry(const QVariantMap &state);
    bool writeFrom(qint64 offset, const QByteArray &bytes, QString *error) const;

    QString m_logDomain;
    QString m_databasePath;
    QString m_markerPath;
    // One failed save is worth a log line; the next thousand alike are not.
    bool m_saveFailureLogged = false;
    // The XML of every entry as last saved, in catalogue order.
    QList<QByteArray> m_encodedEntries;
    // Where each entry starts in the file, and where the last one ends.
    QList<qint64> m_entryOffsets;
};
