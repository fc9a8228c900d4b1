#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

/**
 * The plug-in descriptions a lilv world gave for the LV2 folders, kept on disk so that a later
 * process finding the folders as they were need not load the world to list them. Loading
 * parses the Turtle of every bundle: about 1.5 s for a few hundred real plug-ins, at every
 * launch of the host, while the catalogue itself is up to date.
 *
 * The folders' fingerprint covers every file of every bundle by path, size and modification
 * time, taken when the object is made: a bundle installed, removed or updated since makes the
 * cache miss. Folders too large or too deep to walk quickly are not cached. The file lives in
 * the user's cache folder, one per LV2 path; a damaged one is logged and counts as a miss.
 */
class QKLV2DescriptionCache
{
public:
    /** For the folders @p folders of @p lv2Path, with "~" expanded. */
    QKLV2DescriptionCache(const QString &lv2Path, const QStringList &folders);

    /** The descriptions stored for the folders as they are now; nothing on a miss. */
    std::optional<QList<QByteArray>> descriptions() const;
    /** Stores @p descriptions, as a world loaded after this object was made gave them. */
    void store(const QList<QByteArray> &descriptions) const;

private:
    QString m_file;
    QByteArray m_fingerprint; // a digest; empty when the folders are not cached
};
