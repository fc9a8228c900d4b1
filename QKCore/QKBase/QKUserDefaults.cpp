#include "QKUserDefaults.h"

#include "QKApplication.h"
#include "QKFile.h"
#include "QKPropertyList.h"

#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <QLoggingCategory>
#include <QMutex>
#include <QRegularExpression>
#include <QSaveFile>

#include <cmath>

Q_LOGGING_CATEGORY(lcDefaults, "qk.defaults")

namespace {

QMutex s_sharedMutex;
std::unique_ptr<QKUserDefaults> s_shared;

QString configFolder()
{
    return QKFile::conformPath(QStringLiteral("~/Library/Preferences/Velmora"));
}

QString applicationName()
{
    const QString name = QKApplication::currentName();
    return name.isEmpty() ? QStringLiteral("QKUtilities") : name;
}

} // namespace

struct QKUserDefaults::Private
{
    mutable QMutex mutex;
    QString filePath;
    QVariantMap registered;
    QVariantMap persistent;
    // The file on disk holds something unreadable, which the next save must not destroy.
    bool keepUnreadableFile = false;

    void load()
    {
        if (!QFileInfo::exists(filePath))
            return;
        QString error;
        const QVariant stored = QKPropertyList::readFile(filePath, &error);
        if (stored.typeId() == QMetaType::QVariantMap) {
            persistent = stored.toMap();
            return;
        }
        // Keep the unreadable file untouched until a setting changes, so nothing is lost to
        // a passing read error; the next save moves it aside first.
        keepUnreadableFile = true;
        qCWarning(lcDefaults).noquote()
            << "Ignoring unreadable user defaults" << filePath << ":"
            << (error.isEmpty() ? QStringLiteral("root is not a dictionary") : error);
    }

    bool save()
    {
        QDir().mkpath(QFileInfo(filePath).absolutePath());
        if (keepUnreadableFile && !backUpUnreadableFile())
            return false;
        QString error;
        if (QKPropertyList::writeFile(persistent, filePath, QKPropertyList::Format::Xml, true,
                                      &error))
            return true;
        qCWarning(lcDefaults).noquote()
            << "Could not save user defaults to" << filePath << ":" << error;
        return false;
    }

    // Copies the unreadable file to "<name>.plist.corrupt", replacing an older copy.
    bool backUpUnreadableFile()
    {
        const QString backup = filePath + QStringLiteral(".corrupt");
        QFile file(filePath);
        QSaveFile copy(backup);
        if (file.open(QIODevice::ReadOnly) && copy.open(QIODevice::WriteOnly) &&
            copy.write(file.readAll()) == file.size() && copy.commit()) {
            qCWarning(lcDefaults).noquote()
                << "Kept the unreadable user defaults" << filePath << "as" << backup;
            keepUnreadableFile = false;
            return true;
        }
        qCWarning(lcDefaults).noquote()
            << "Not saving user defaults: could not keep the unreadable" << filePath << "as"
            << backup << ":"
            << (file.error() != QFile::NoError ? file.errorString() : copy.errorString());
        return false;
    }

    QVariant value(const QString &key) const
    {
        auto it = persistent.constFind(key);
        if (it != persistent.constEnd())
            return it.value();
        return registered.value(key);
    }
};

QKUserDefaults *QKUserDefaults::standardUserDefaults()
{
    QMutexLocker lock(&s_sharedMutex);
    if (!s_shared)
        s_shared = std::make_unique<QKUserDefaults>(configFolder() + QLatin1Char('/') +
                                                    applicationName() + QStringLiteral(".plist"));
    return s_shared.get();
}

void QKUserDefaults::resetStandardUserDefaults()
{
    QMutexLocker lock(&s_sharedMutex);
    s_shared.reset();
}

QKUserDefaults::QKUserDefaults(const QString &filePath) : d(std::make_unique<Private>())
{
    d->filePath = filePath;
    d->load();
}

QKUserDefaults::~QKUserDefaults() = default;

QString QKUserDefaults::filePath() const
{
    return d->filePath;
}

void QKUserDefaults::registerDefaults(const QVariantMap &defaults)
{
    QMutexLocker lock(&d->mutex);
    d->registered.insert(defaults);
}

QVariant QKUserDefaults::objectForKey(const QString &key) const
{
    QMutexLocker lock(&d->mutex);
    return d->value(key);
}

bool QKUserDefaults::hasKey(const QString &key) const
{
    QMutexLocker lock(&d->mutex);
    return d->persistent.contains(key) || d->registered.contains(key);
}

QString QKUserDefaults::stringForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    switch (value.typeId()) {
    case QMetaType::QString:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Double:
        return value.toString();
    default:
        return QString();
    }
}

QByteArray QKUserDefaults::dataForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    return value.typeId() == QMetaType::QByteArray ? value.toByteArray() : QByteArray();
}

QVariantList QKUserDefaults::arrayForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    return value.typeId() == QMetaType::QVariantList ? value.toList() : QVariantList();
}

QVariantMap QKUserDefaults::dictionaryForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    return value.typeId() == QMetaType::QVariantMap ? value.toMap() : QVariantMap();
}

bool QKUserDefaults::boolForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    if (value.typeId() == QMetaType::QString) {
        const QString text = value.toString().toLower();
        return text == QLatin1String("yes") || text == QLatin1String("true") || text.toInt() != 0;
    }
    return value.toBool();
}

qint64 QKUserDefaults::integerForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    bool isInteger = false;
    const qint64 integer = value.toLongLong(&isInteger);
    if (value.typeId() != QMetaType::Double && isInteger)
        return integer;
    // A real, or text such as "3.7", gives its integer part rather than Qt's rounding.
    const double number = value.toDouble();
    return std::abs(number) < 9.2e18 ? qint64(number) : 0;
}

double QKUserDefaults::doubleForKey(const QString &key) const
{
    return objectForKey(key).toDouble();
}

void QKUserDefaults::setObject(const QVariant &value, const QString &key)
{
    if (!value.isValid()) {
        removeObjectForKey(key);
        return;
    }
    // A value the file cannot hold would make every later save fail, so it is refused alone.
    QString error;
    if (QKPropertyList::toData(value, QKPropertyList::Format::Xml, &error).isEmpty()) {
        qCWarning(lcDefaults).noquote() << "Not storing user default" << key << ":" << error;
        return;
    }
    QMutexLocker lock(&d->mutex);
    d->persistent.insert(key, value);
    d->save();
}

void QKUserDefaults::setBool(bool value, const QString &key)
{
    setObject(value, key);
}

void QKUserDefaults::setInteger(qint64 value, const QString &key)
{
    setObject(QVariant::fromValue(value), key);
}

void QKUserDefaults::setDouble(double value, const QString &key)
{
    setObject(value, key);
}

void QKUserDefaults::removeObjectForKey(const QString &key)
{
    QMutexLocker lock(&d->mutex);
    if (d->persistent.remove(key) > 0)
        d->save();
}

bool QKUserDefaults::synchronize()
{
    QMutexLocker lock(&d->mutex);
    return d->save();
}

QVariantMap QKUserDefaults::persistentDomain() const
{
    QMutexLocker lock(&d->mutex);
    return d->persistent;
}

QString NSStringFromRect(const QRectF &rect)
{
    // The shortest text that reads back as the same number: "0.1", not "0.10000000000000001".
    const auto number = [](double value) {
        return QString::number(value, 'g', QLocale::FloatingPointShortest);
    };
    return QStringLiteral("{{%1, %2}, {%3, %4}}")
        .arg(number(rect.x()), number(rect.y()), number(rect.width()), number(rect.height()));
}

QRectF NSRectFromString(const QString &text)
{
    static const QRegularExpression number(
        QStringLiteral("[-+]?(?:\\d+\\.?\\d*|\\.\\d+)(?:[eE][-+]?\\d+)?"));
    // Like the platform's parser: take up to four numbers in order; missing ones are zero.
    double values[4] = {0, 0, 0, 0};
    int count = 0;
    auto matches = number.globalMatch(text);
    while (matches.hasNext() && count < 4)
        values[count++] = matches.next().captured().toDouble();
    if (count == 0)
        return QRectF();
    return QRectF(values[0], values[1], values[2], values[3]);
}
