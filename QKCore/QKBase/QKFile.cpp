#include "QKFile.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace {

void setError(QString *error, const QString &reason)
{
    if (error)
        *error = reason;
}

/** Why a folder could not be made at @p path: the nearest existing item above it decides. */
QString createFailureReason(const QString &path)
{
    QFileInfo info(path);
    while (!info.exists() && !info.isSymLink()) {
        const QString parent = info.path();
        if (parent == info.filePath())
            break;
        info.setFile(parent);
    }
    if (info.exists() && !info.isDir())
        return QStringLiteral("\"%1\" is not a folder").arg(info.filePath());
    if (info.exists() && !info.isWritable())
        return QStringLiteral("no permission to write in \"%1\"").arg(info.filePath());
    return QStringLiteral("the folder \"%1\" could not be created").arg(path);
}

bool removeConformed(const QString &path, QString *error)
{
    const QFileInfo info(path);
    if (!info.exists() && !info.isSymLink()) {
        setError(error, QStringLiteral("\"%1\" does not exist").arg(path));
        return false;
    }
    // A link to a folder is removed as a link; its target is never entered.
    const bool removed =
        info.isDir() && !info.isSymLink() ? QDir(path).removeRecursively() : QFile::remove(path);
    if (!removed)
        setError(error, QStringLiteral("\"%1\" could not be removed completely").arg(path));
    return removed;
}

/** Where a folder of the home's "Library" lives on Linux: the XDG variable that moves it and
 *  the folder under the home it defaults to. */
struct LibraryFolder
{
    const char *libraryPath;
    const char *variable;
    const char *defaultPath;
};

constexpr LibraryFolder libraryFolders[] = {
    {"/Library/Application Support", "XDG_DATA_HOME", "/.local/share"},
    {"/Library/Logs", "XDG_STATE_HOME", "/.local/state"},
    {"/Library/Caches", "XDG_CACHE_HOME", "/.cache"},
    {"/Library/Preferences", "XDG_CONFIG_HOME", "/.config"},
};

QString xdgFolder(const LibraryFolder &folder, const QString &home)
{
    // A relative value is invalid under the XDG base directory rules and is ignored.
    const QString value = qEnvironmentVariable(folder.variable);
    if (!value.isEmpty() && QDir::isAbsolutePath(value))
        return value;
    return home + QLatin1String(folder.defaultPath);
}

} // namespace

QString QKFile::conformPath(const QString &path)
{
    if (path != u"~" && !path.startsWith(QStringLiteral("~/")))
        return path;
    // QDir::homePath() honours $HOME (each test sets its own); the root folder when unset.
    const QString home = QDir::homePath();
    const QString inHome = QDir::cleanPath(QStringLiteral("/") + path.mid(1));
    for (const LibraryFolder &folder : libraryFolders) {
        const QString prefix = QLatin1String(folder.libraryPath);
        if (inHome == prefix || inHome.startsWith(prefix + QLatin1Char('/')))
            return QDir::cleanPath(xdgFolder(folder, home) + inHome.mid(prefix.size()));
    }
    return QDir::cleanPath(home + inHome);
}

bool QKFile::existsAtPath(const QString &path)
{
    return !path.isEmpty() && QFileInfo::exists(conformPath(path));
}

bool QKFile::isDirectoryAtPath(const QString &path)
{
    return !path.isEmpty() && QFileInfo(conformPath(path)).isDir();
}

QStringList QKFile::contentsOfDirectoryAtPath(const QString &path, QString *error)
{
    const QString conformed = conformPath(path);
    const QFileInfo info(conformed);
    if (conformed.isEmpty() || !info.exists()) {
        setError(error, QStringLiteral("\"%1\" does not exist").arg(conformed));
        return {};
    }
    if (!info.isDir()) {
        setError(error, QStringLiteral("\"%1\" is not a folder").arg(conformed));
        return {};
    }
    if (!info.isReadable() || !info.isExecutable()) {
        setError(error, QStringLiteral("no permission to read \"%1\"").arg(conformed));
        return {};
    }
    return QDir(conformed).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

bool QKFile::createDirectoryAtPath(const QString &path, QString *error)
{
    const QString conformed = conformPath(path);
    if (conformed.isEmpty()) {
        setError(error, QStringLiteral("no folder given"));
        return false;
    }
    const QFileInfo info(conformed);
    if (info.exists() && !info.isDir()) {
        setError(error, QStringLiteral("\"%1\" exists and is not a folder").arg(conformed));
        return false;
    }
    if (QDir().mkpath(conformed))
        return true;
    setError(error, createFailureReason(conformed));
    return false;
}

bool QKFile::createPrivateDirectoryAtPath(const QString &path, QString *error)
{
    const QString conformed = conformPath(path);
    if (conformed.isEmpty()) {
        setError(error, QStringLiteral("no folder given"));
        return false;
    }
    const QByteArray name = QFile::encodeName(conformed);
    if (::mkdir(name.constData(), S_IRWXU) != 0 && errno != EEXIST) {
        setError(error, QStringLiteral("the folder \"%1\" could not be created: %2")
                            .arg(conformed, QString::fromLocal8Bit(std::strerror(errno))));
        return false;
    }
    // Whoever made the folder first owns it: in a shared temporary folder that can be another
    // user, or a link planted to make us write (or empty) somewhere else.
    struct stat status;
    if (::lstat(name.constData(), &status) != 0) {
        setError(error, QStringLiteral("\"%1\" cannot be examined: %2")
                            .arg(conformed, QString::fromLocal8Bit(std::strerror(errno))));
        return false;
    }
    QString reason;
    if (S_ISLNK(status.st_mode))
        reason = QStringLiteral("\"%1\" is a symbolic link").arg(conformed);
    else if (!S_ISDIR(status.st_mode))
        reason = QStringLiteral("\"%1\" is not a folder").arg(conformed);
    else if (status.st_uid != ::geteuid())
        reason = QStringLiteral("\"%1\" belongs to user %2").arg(conformed).arg(status.st_uid);
    else if (status.st_mode & (S_IWGRP | S_IWOTH))
        reason = QStringLiteral("others may write in \"%1\"").arg(conformed);
    if (reason.isEmpty())
        return true;
    setError(error, reason);
    return false;
}

bool QKFile::createFileAtPath(const QString &path, const QByteArray &contents, QString *error)
{
    const QString conformed = conformPath(path);
    QSaveFile file(conformed);
    if (conformed.isEmpty() || !file.open(QIODevice::WriteOnly)) {
        setError(
            error,
            QStringLiteral("\"%1\" could not be created: %2").arg(conformed, file.errorString()));
        return false;
    }
    if (file.write(contents) != contents.size() || !file.commit()) {
        setError(
            error,
            QStringLiteral("\"%1\" could not be written: %2").arg(conformed, file.errorString()));
        return false;
    }
    return true;
}

bool QKFile::removeItemAtPath(const QString &path, QString *error)
{
    if (path.isEmpty()) {
        setError(error, QStringLiteral("no item given"));
        return false;
    }
    return removeConformed(conformPath(path), error);
}

bool QKFile::emptyDirectoryAtPath(const QString &path, QString *error)
{
    const QString conformed = conformPath(path);
    QString listingError;
    const QStringList names = contentsOfDirectoryAtPath(conformed, &listingError);
    if (!listingError.isEmpty()) {
        setError(error, listingError);
        return false;
    }
    const QDir folder(conformed);
    bool emptied = true;
    QString firstError;
    for (const QString &name : names) {
        QString reason;
        if (!removeConformed(folder.filePath(name), &reason) && emptied) {
            emptied = false;
            firstError = reason;
        }
    }
    if (!emptied)
        setError(error, firstError);
    return emptied;
}

QDateTime QKFile::modificationDateOfItemAtPath(const QString &path)
{
    const QFileInfo info(conformPath(path));
    return !path.isEmpty() && info.exists() ? info.lastModified() : QDateTime();
}
