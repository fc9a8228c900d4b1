#include "QKCapsLock.h"

#include <QDir>
#include <QFile>

namespace {

QString &folderSetting()
{
    static QString folder = QStringLiteral("/sys/class/leds");
    return folder;
}

} // namespace

bool QKCapsLock::isOn()
{
    const QDir leds(folderSetting());
    const QStringList names = leds.entryList({QStringLiteral("*::capslock")},
                                             QDir::Dirs | QDir::NoDotAndDotDot | QDir::System);
    for (const QString &name : names) {
        QFile brightness(leds.filePath(name + QStringLiteral("/brightness")));
        if (brightness.open(QIODevice::ReadOnly) && brightness.readLine().trimmed().toInt() > 0)
            return true;
    }
    return false;
}

QString QKCapsLock::ledsFolder()
{
    return folderSetting();
}

void QKCapsLock::setLedsFolder(const QString &folder)
{
    folderSetting() = folder;
}
