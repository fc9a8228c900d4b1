#pragma once

#include "QKBaseGlobal.h"

#include <QStringList>

class QByteArray;
class QDateTime;

/**
 * File and folder helpers. Every path goes through conformPath() first, so "~/Library/..."
 * lands in the user's XDG folders. Failures return false or an empty value and, where the signature
 * has one, put the reason into @p error; nothing throws.
 */
class QKBASE_EXPORT QKFile
{
public:
    /**
     * Expands a leading "~" or "~/" to $HOME and cleans the result ("~/a//b/" becomes
     * "$HOME/a/b"). The home's Library folders go where Linux keeps such files:
     * "~/Library/Application Support" to $XDG_DATA_HOME (~/.local/share), "~/Library/Logs"
     * to $XDG_STATE_HOME (~/.local/state), "~/Library/Caches" to $XDG_CACHE_HOME (~/.cache)
     * and "~/Library/Preferences" to $XDG_CONFIG_HOME (~/.config); a variable that is empty
     * or not absolute counts as unset. Other paths, "~user/..." included, are returned
     * unchanged.
     */
    static QString conformPath(const QString &path);

    /** True when something exists at @p path; a symbolic link counts by its target. */
    static bool existsAtPath(const QString &path);
    /** True when @p path is a folder or a link to one. */
    static bool isDirectoryAtPath(const QString &path);

    /** The names in the folder, sorted, hidden ones included, without "." and "..".
     *  Empty, with @p error set, when @p path is not a readable folder. */
    static QStringList contentsOfDirectoryAtPath(const QString &path, QString *error = nullptr);

    /** Creates the folder and any missing folders above it. True when it exists afterwards
     *  (also when it did before); false when a file is in the way or creation failed. */
    static bool createDirectoryAtPath(const QString &path, QString *error = nullptr);

    /** Creates the folder, with mode 0700, unless something is there already; its parent
     *  must exist. True only when it then is a real folder (not a link) of this user that
     *  nobody else may write in; otherwise false with the reason, and nothing is changed. */
    static bool createPrivateDirectoryAtPath(const QString &path, QString *error = nullptr);

    /** Writes @p contents to a new or replaced file, atomically. The folder must exist. */
    static bool createFileAtPath(const QString &path, const QByteArray &contents,
                                 QString *error = nullptr);

    /** Removes a file, a link (not its target) or a whole folder tree. False when nothing
     *  is there or something could not be removed. */
    static bool removeItemAtPath(const QString &path, QString *error = nullptr);

    /** Removes everything inside the folder, hidden items included, and keeps the folder.
     *  False when @p path is not a folder or something could not be removed. */
    static bool emptyDirectoryAtPath(const QString &path, QString *error = nullptr);

    /** The time of the last change of the item's contents; invalid when nothing is there. */
    static QDateTime modificationDateOfItemAtPath(const QString &path);
};
