#include "SampleCatalogue.h"

#include "SiteDates.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QUrl>

#include <algorithm>

#include <cstdio>

namespace {

void warn(const QString &message)
{
    std::fprintf(stderr, "warning: %s\n", qPrintable(message));
}

} // namespace

SampleCatalogue::SampleCatalogue(const QString &dataPath) : m_dataPath(dataPath) {}

bool SampleCatalogue::isPlainName(const QString &name)
{
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9_][A-Za-z0-9_.-]*$"));
    return plain.match(name).hasMatch();
}

QList<std::pair<QString, QString>> SampleCatalogue::titles() const
{
    QList<std::pair<QString, QString>> titles;
    const QDir root(QDir(m_dataPath).filePath(QStringLiteral("titles")));
    const auto folders = QDir::Dirs | QDir::NoDotAndDotDot;
    for (const QString &code : root.entryList(folders, QDir::Name)) {
        for (const QString &major : QDir(root.filePath(code)).entryList(folders, QDir::Name))
            titles.append({code, major});
    }
    return titles;
}

QString SampleCatalogue::titlePath(const QString &code, const QString &major) const
{
    if (!isPlainName(code) || !isPlainName(major))
        return {};
    const QString path =
        QDir(m_dataPath).filePath(QStringLiteral("titles/%1/%2").arg(code.toLower(), major));
    return QFileInfo(path).isDir() ? path : QString();
}

std::optional<QJsonValue> SampleCatalogue::readJson(const QString &path) const
{
    QFile file(path);
    if (!file.exists())
        return std::nullopt;
    if (!file.open(QIODevice::ReadOnly)) {
        warn(QStringLiteral("cannot read %1: %2").arg(path, file.errorString()));
        return std::nullopt;
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (document.isNull()) {
        warn(QStringLiteral("%1 is not JSON: %2").arg(path, error.errorString()));
        return std::nullopt;
    }
    return document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
}

std::optional<QJsonValue> SampleCatalogue::titleJson(const QString &code, const QString &major,
                                                     const QString &fileName) const
{
    const QString folder = titlePath(code, major);
    if (folder.isEmpty())
        return std::nullopt;
    return readJson(QDir(folder).filePath(fileName));
}

QString SampleCatalogue::readText(const QString &path) const
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        warn(QStringLiteral("cannot read %1: %2").arg(path, file.errorString()));
        return {};
    }
    return QString::fromUtf8(file.readAll());
}

std::optional<Appcast> SampleCatalogue::appcast(const QString &code, const QString &major) const
{
    const auto json = titleJson(code, major, QStringLiteral("appcast.json"));
    if (!json || !json->isObject())
        return std::nullopt;
    const QString folder = titlePath(code, major);
    const QJsonObject object = json->toObject();
    Appcast appcast;
    appcast.title = object.value(QLatin1String("title")).toString();
    appcast.link = object.value(QLatin1String("link")).toString();
    appcast.description = object.value(QLatin1String("description")).toString();
    appcast.language = object.value(QLatin1String("language")).toString();
    const QJsonArray items = object.value(QLatin1String("items")).toArray();
    for (const QJsonValue &item : items)
        appcast.items.append(appcastItem(item.toObject(), folder, code, major));
    return appcast;
}

AppcastItem SampleCatalogue::appcastItem(const QJsonObject &object, const QString &titlePath,
                                         const QString &code, const QString &major) const
{
    AppcastItem item;
    item.title = object.value(QLatin1String("title")).toString();
    item.version = object.value(QLatin1String("version")).toString();
    item.shortVersionString = object.value(QLatin1String("shortVersionString")).toString();
    item.published = SiteDates::parse(object.value(QLatin1String("published")).toString());
    if (!item.published.isValid())
        warn(QStringLiteral("appcast item \"%1\" has no valid published date").arg(item.title));
    item.beta = object.value(QLatin1String("beta")).toBool();
    const QString notes = object.value(QLatin1String("notes")).toString();
    const QStringList notesPath = notes.split(QLatin1Char('/'));
    if (!notes.isEmpty()) {
        if (std::all_of(notesPath.cbegin(), notesPath.cend(), isPlainName))
            item.notes = readText(QDir(titlePath).filePath(notes));
        else
            warn(
                QStringLiteral("appcast item \"%1\": notes lie outside its title").arg(item.title));
    }

    const QString file = object.value(QLatin1String("file")).toString();
    if (!file.isEmpty()) {
        const QString path = titleFile(code, major, QStringLiteral("downloads"), file);
        if (path.isEmpty())
            warn(QStringLiteral("appcast item \"%1\": no download %2").arg(item.title, file));
        item.enclosureURL =
            QStringLiteral("{{BASE}}/downloads/%1/%2/%3")
                .arg(code.toLower(), major, QString::fromUtf8(QUrl::toPercentEncoding(file)));
        item.enclosureLength = path.isEmpty() ? 0 : QFileInfo(path).size();
    } else {
        item.enclosureURL = object.value(QLatin1String("url")).toString();
        item.enclosureLength = object.value(QLatin1String("length")).toInteger();
    }
    return item;
}

std::optional<ManualInfo> SampleCatalogue::manual(const QString &code, const QString &major) const
{
    const auto json = titleJson(code, major, QStringLiteral("manual.json"));
    if (!json || !json->isObject())
        return std::nullopt;
    ManualInfo info;
    info.version = json->toObject().value(QLatin1String("version")).toString();
    info.published =
        SiteDates::parse(json->toObject().value(QLatin1String("published")).toString());
    if (info.version.isEmpty() || !info.published.isValid()) {
        warn(QStringLiteral("%1/manual.json needs a version and an ISO 8601 published date")
                 .arg(titlePath(code, major)));
        return std::nullopt;
    }
    return info;
}

std::optional<QJsonArray> SampleCatalogue::tutorials(const QString &code,
                                                     const QString &major) const
{
    const auto json = titleJson(code, major, QStringLiteral("tutorials.json"));
    if (!json || !json->isArray())
        return std::nullopt;
    return json->toArray();
}

QString SampleCatalogue::titleFile(const QString &code, const QString &major, const QString &folder,
                                   const QString &fileName) const
{
    const QString title = titlePath(code, major);
    if (title.isEmpty() || !isPlainName(fileName))
        return {};
    const QFileInfo info(QDir(title).filePath(folder + QLatin1Char('/') + fileName));
    return info.isFile() ? info.filePath() : QString();
}

QStringList SampleCatalogue::manualFiles(const QString &code, const QString &major) const
{
    const QString title = titlePath(code, major);
    if (title.isEmpty())
        return {};
    QStringList files;
    const QDir manuals(QDir(title).filePath(QStringLiteral("manuals")));
    const QStringList types = manuals.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString &type : types) {
        const QStringList names = QDir(manuals.filePath(type)).entryList(QDir::Files, QDir::Name);
        for (const QString &name : names)
            files.append(type + QLatin1Char('/') + name);
    }
    return files;
}

QList<HelpDeskCategory> SampleCatalogue::categories() const
{
    const auto json =
        readJson(QDir(m_dataPath).filePath(QStringLiteral("helpdesk/categories.json")));
    QList<HelpDeskCategory> categories;
    if (!json || !json->isArray())
        return categories;
    const QJsonArray array = json->toArray();
    for (const QJsonValue &value : array) {
        const QJsonObject object = value.toObject();
        HelpDeskCategory category;
        category.id = object.value(QLatin1String("xCategory")).toInt();
        category.name = object.value(QLatin1String("sCategory")).toString();
        category.allowPublicSubmit = object.value(QLatin1String("fAllowPublicSubmit")).toInt(1);
        category.deleted = object.value(QLatin1String("fDeleted")).toInt(0);
        if (category.id > 0)
            categories.append(category);
    }
    return categories;
}

QJsonArray SampleCatalogue::seedRequests() const
{
    const auto json = readJson(QDir(m_dataPath).filePath(QStringLiteral("helpdesk/requests.json")));
    return json && json->isArray() ? json->toArray() : QJsonArray();
}
