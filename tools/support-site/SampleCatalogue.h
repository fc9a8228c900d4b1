#pragma once

#include <QDateTime>
#include <QJsonArray>
#include <QList>
#include <QString>

#include <optional>

/** One release in an appcast. */
struct AppcastItem
{
    QString title;
    /** The build number (sparkle:version), e.g. "3102". */
    QString version;
    /** The version shown to people (sparkle:shortVersionString), e.g. "3.1b2". */
    QString shortVersionString;
    QDateTime published;
    /** Beta items are listed only in the testing feed. */
    bool beta = false;
    /** The release notes, an HTML fragment. */
    QString notes;
    /** The download; may hold the {{BASE}} placeholder. */
    QString enclosureURL;
    qint64 enclosureLength = 0;
};

/** The update feed of one title and major version, items in the order of the data. */
struct Appcast
{
    QString title;
    QString link;
    QString description;
    QString language;
    QList<AppcastItem> items;
};

/** The current manual of one title and major version. */
struct ManualInfo
{
    QString version;
    QDateTime published;
};

/** A help desk category. */
struct HelpDeskCategory
{
    int id = 0;
    QString name;
    bool allowPublicSubmit = true;
    bool deleted = false;
};

/**
 * The sample-data folder: what the site publishes per title ("titles/<code>/<major>/") and
 * the help desk's categories and seed requests ("helpdesk/"). Files are read at every call,
 * so edits show up without a restart. Missing or corrupt files read as absent (with a
 * warning on stderr); codes and versions that are not plain names never reach the disk.
 */
class SampleCatalogue
{
public:
    explicit SampleCatalogue(const QString &dataPath);

    QString dataPath() const { return m_dataPath; }

    /** Every title of the data as (code, major version), sorted. */
    QList<std::pair<QString, QString>> titles() const;

    /** The folder of a title's data; empty when there is none. The code is case-insensitive. */
    QString titlePath(const QString &code, const QString &major) const;

    /** The appcast of a title; nullopt when the title has none or it cannot be read. */
    std::optional<Appcast> appcast(const QString &code, const QString &major) const;
    /** The manual version of a title; nullopt when unknown. */
    std::optional<ManualInfo> manual(const QString &code, const QString &major) const;
    /** The tutorial tree of a title, as in the data; nullopt when unknown. */
    std::optional<QJsonArray> tutorials(const QString &code, const QString &major) const;

    /**
     * The path of an existing file below @p folder of a title ("manuals/pdf", "downloads");
     * empty when there is none or @p fileName is not a plain file name.
     */
    QString titleFile(const QString &code, const QString &major, const QString &folder,
                      const QString &fileName) const;
    /** The manual files of a title as "type/file name" (e.g. "pdf/X.pdf"), sorted. */
    QStringList manualFiles(const QString &code, const QString &major) const;

    /** The help desk categories, in the order of the data; empty when unreadable. */
    QList<HelpDeskCategory> categories() const;
    /** The requests a fresh help desk starts with; empty when there are none. */
    QJsonArray seedRequests() const;

    /** True when @p name can be used as one path component (no separators, no dot start). */
    static bool isPlainName(const QString &name);

private:
    std::optional<QJsonValue> readJson(const QString &path) const;
    /** readJson() of @p fileName in a title's folder; nullopt when the title is unknown. */
    std::optional<QJsonValue> titleJson(const QString &code, const QString &major,
                                        const QString &fileName) const;
    QString readText(const QString &path) const;
    AppcastItem appcastItem(const QJsonObject &object, const QString &titlePath,
                            const QString &code, const QString &major) const;

    QString m_dataPath;
};
