#include "QKWorkspace.h"

#include <QDesktopServices>
#include <QFile>
#include <QMutex>
#include <QStandardPaths>
#include <QUrl>

#include <pwd.h>
#include <unistd.h>

#include <vector>

namespace {

QMutex s_mutex;
QKWorkspace::Opener s_opener;

QString gecosOfCurrentUser()
{
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? size_t(size) : 16384);
    passwd entry{};
    passwd *result = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &result) != 0 || !result ||
        !result->pw_gecos)
        return QString();
    return QString::fromLocal8Bit(result->pw_gecos);
}

} // namespace

bool QKWorkspace::openURL(const QUrl &url)
{
    Opener opener;
    {
        QMutexLocker lock(&s_mutex);
        opener = s_opener;
    }
    if (!url.isValid())
        return false;
    return opener ? opener(url) : QDesktopServices::openUrl(url);
}

bool QKWorkspace::openFile(const QString &path)
{
    if (path.isEmpty() || !QFile::exists(path))
        return false;
    return openURL(QUrl::fromLocalFile(path));
}

void QKWorkspace::setOpener(Opener opener)
{
    QMutexLocker lock(&s_mutex);
    s_opener = std::move(opener);
}

QString QKWorkspace::downloadDirectory()
{
    return QStandardPaths::writableLocation(QStandardPaths::DownloadLocation);
}

QKContactCard QKWorkspace::contactCardFromGecos(const QString &gecos, const QString &email)
{
    // GECOS: "Full Name,Room,Work Phone,Home Phone,Other".
    const QStringList fields = gecos.split(QLatin1Char(','));
    QKContactCard card;
    const QString fullName = fields.value(0).simplified();
    const qsizetype space = fullName.lastIndexOf(QLatin1Char(' '));
    if (space < 0) {
        card.firstName = fullName;
    } else {
        card.firstName = fullName.left(space);
        card.lastName = fullName.mid(space + 1);
    }
    for (int i = 2; i <= 3 && card.phone.isEmpty(); ++i)
        card.phone = fields.value(i).trimmed();
    card.email = email.trimmed();
    return card;
}

QKContactCard QKWorkspace::meCard()
{
    return contactCardFromGecos(gecosOfCurrentUser(), qEnvironmentVariable("EMAIL"));
}

QString QKWorkspace::machineIdentifier()
{
    for (const char *path : {"/etc/machine-id", "/var/lib/dbus/machine-id"}) {
        QFile file(QString::fromLatin1(path));
        if (file.open(QIODevice::ReadOnly)) {
            const QString id = QString::fromLatin1(file.readAll()).trimmed();
            if (!id.isEmpty())
                return id;
        }
    }
    return QString();
}
