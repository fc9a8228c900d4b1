#include "QKBundle.h"

#include "QKPropertyList.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QMutex>

Q_LOGGING_CATEGORY(lcBundle, "qk.bundle")

struct QKBundle::Private
{
    QStringList roots;
    mutable QMutex mutex;
    mutable bool infoLoaded = false;
    mutable QVariantMap info;
};

QKBundle *QKBundle::mainBundle()
{
    static QKBundle bundle([] {
        QStringList roots{QStringLiteral(":/")};
        const QString appDir = QCoreApplication::applicationDirPath();
        if (!appDir.isEmpty())
            roots << appDir + QStringLiteral("/Resources") << appDir;
        return roots;
    }());
    return &bundle;
}

QKBundle *QKBundle::libraryBundle()
{
    static QKBundle bundle({QStringLiteral(":/QKUtilities")});
    return &bundle;
}

QKBundle::QKBundle(const QStringList &resourceRoots) : d(std::make_unique<Private>())
{
    d->roots = resourceRoots;
}

QKBundle::~QKBundle() = default;

QStringList QKBundle::resourceRoots() const
{
    return d->roots;
}

QVariantMap QKBundle::infoDictionary() const
{
    QMutexLocker lock(&d->mutex);
    if (!d->infoLoaded) {
        d->infoLoaded = true;
        const QString path = pathForResource(QStringLiteral("Info"), QStringLiteral("plist"));
        if (path.isEmpty()) {
            qCWarning(lcBundle) << "No Info.plist in" << d->roots;
            return d->info;
        }
        QString error;
        const QVariant info = QKPropertyList::readFile(path, &error);
        if (info.typeId() == QMetaType::QVariantMap)
            d->info = info.toMap();
        else
            qCWarning(lcBundle).noquote() << "Unreadable Info.plist" << path << error;
    }
    return d->info;
}

QVariant QKBundle::objectForInfoDictionaryKey(const QString &key) const
{
    return infoDictionary().value(key);
}

QString QKBundle::pathForResource(const QString &name, const QString &type) const
{
    if (name.isEmpty())
        return QString();
    const QString fileName = type.isEmpty() ? name : name + QLatin1Char('.') + type;
    for (const QString &root : d->roots) {
        const QString candidate = QDir(root).filePath(fileName);
        if (QFileInfo(candidate).isFile())
            return candidate;
    }
    return QString();
}

QByteArray QKBundle::dataForResource(const QString &name, const QString &type) const
{
    const QString path = pathForResource(name, type);
    if (path.isEmpty())
        return QByteArray();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qCWarning(lcBundle).noquote() << "Cannot read resource" << path << file.errorString();
        return QByteArray();
    }
    return file.readAll();
}
