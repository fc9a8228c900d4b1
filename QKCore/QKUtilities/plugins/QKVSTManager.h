#pragma once

#include "QKUtilitiesGlobal.h"
#include "QKVSTDescription.h"

#include <QByteArray>
#include <QList>
#include <QStringList>

#include <memory>
#include <optional>

class QMenu;
class QObject;

/**
 * The catalogue of the VST 2 plug-ins installed on this machine, kept in
 * "~/Library/Application Support/Velmora/vst_db.plist" between launches.
 *
 * validate() walks the plug-in folders and opens each plug-in once, when it is first seen
 * or after its file changed. Opening somebody else's plug-in can crash the process, so a
 * marker file names the plug-in being opened; the next validation finds it and ignores that
 * plug-in for good. The catalogue feeds an effects and an instruments menu whose submenus
 * follow the folders below the plug-in folder.
 */
class QKUTILITIES_EXPORT QKVSTManager
{
public:
    /** Reads the database; @p computerCode identifies this machine
     *  (QKWorkspace::machineIdentifier()). Entries made on another machine are dropped by
     *  the next validate(). */
    explicit QKVSTManager(const QString &computerCode);
    ~QKVSTManager();
    QKVSTManager(const QKVSTManager &) = delete;
    QKVSTManager &operator=(const QKVSTManager &) = delete;

    /** The folders a host walks, in order: "/usr/lib/vst", "/usr/local/lib/vst", "~/.vst",
     *  "/usr/lib/lxvst", "~/.lxvst", then each absolute folder of the colon-separated
     *  VST_PATH. "~" is expanded. */
    static QStringList standardPluginFolders();

    /** The folders validate() walks; standardPluginFolders() unless set. */
    QStringList pluginFolders() const;
    void setPluginFolders(const QStringList &folders);

    /** Brings the catalogue up to date: drops entries of another machine and of removed or
     *  changed files, ignores the plug-in a crash left the marker for, then walks the
     *  folders and loads every plug-in ("*.so" file) not catalogued yet. Hostile folders
     *  (link loops, unreadable folders, a folder that is a file) are logged and skipped. */
    void validate();

    /** With @p outOfProcess, each new plug-in is loaded in a validator process that comes
     *  with the library, up to one per core at a time; a plug-in that crashes or hangs its
     *  validator (10 s) is ignored in the same validation, and the host keeps running. Off
     *  by default: plug-ins are then loaded in the host, guarded by the marker. */
    void setValidatesOutOfProcess(bool outOfProcess);
    bool validatesOutOfProcess() const;

    /** The non-ignored loaded effects, in submenus by folder, sorted by title; each item
     *  sends @p action to @p target (along the responder chain when null) and holds its
     *  QKVSTDescription as data(). An empty catalogue gives the one item "No plug-ins
     *  found". */
    std::unique_ptr<QMenu> effectsMenuWithTarget(QObject *target, const QByteArray &action) const;
    /** The same for instruments. */
    std::unique_ptr<QMenu> instrumentsMenuWithTarget(QObject *target,
                                                     const QByteArray &action) const;

    QString computerCode() const;
    QString databasePath() const;
    /** The marker that names the plug-in being loaded. */
    QString loadingFilePath() const;
    /** The catalogue in its order. */
    const QList<QKVSTDescription> &database() const;

private:
    void _prune();
    void _recoverFromCrash();
    void _loadDescriptionsForDirectory(const QString &folder);
    void _addPlugin(const QString &path);
    void loadNewEntry(qsizetype index);
    void applyValidatorReply(qsizetype index, const QVariantMap &state, const QString &failure);
    qsizetype _descriptionForPath(const QString &path) const;
    /** Saves the catalogue; @p changed names its only entry changed or appended since the
     *  last save, when that is so. */
    void _saveDatabase(std::optional<qsizetype> changed = std::nullopt) const;
    std::unique_ptr<QMenu> _menuWithTarget(QObject *target, const QByteArray &action,
                                           bool isInstrument) const;

    struct Private;
    std::unique_ptr<Private> d;
};
