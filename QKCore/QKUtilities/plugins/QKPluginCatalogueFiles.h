#pragma once

#include <QList>
#include <QString>
#include <QVariantMap>

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
    /** Writes @p states as the database, creating its folder when needed. */
    void saveDatabase(const QList<QVariantMap> &states) const;

    /** Writes the marker; false (logged) when it cannot be written. */
    bool writeMarker(const QByteArray &contents) const;
    /** The marker's bytes; nothing when there is no marker or it cannot be read. */
    std::optional<QByteArray> readMarker() const;
    void removeMarker() const;

private:
    void warn(const QString &message) const;

    QString m_logDomain;
    QString m_databasePath;
    QString m_markerPath;
    // One failed save is worth a log line; the next thousand alike are not.
    mutable bool m_saveFailureLogged = false;
};
