#include "PublicPages.h"

#include "AppcastWriter.h"
#include "BlobDevice.h"
#include "PropertyListWriter.h"
#include "SampleCatalogue.h"
#include "SiteDates.h"

#include <QFile>
#include <QJsonObject>
#include <QMimeDatabase>
#include <QRegularExpression>
#include <QUrlQuery>

namespace {

const QByteArray htmlType = QByteArrayLiteral("text/html; charset=utf-8");
const QByteArray plistType = QByteArrayLiteral("application/xml; charset=utf-8");

QString withBase(QString text, const QString &baseURL)
{
    return text.replace(QLatin1String("{{BASE}}"), baseURL);
}

/** A tutorial node of the data as the property list shows it: dates in text form, links based. */
QVariant tutorialNode(const QJsonValue &value, const QString &baseURL)
{
    if (value.isArray()) {
        QVariantList list;
        const QJsonArray array = value.toArray();
        for (const QJsonValue &element : array)
            list.append(tutorialNode(element, baseURL));
        return list;
    }
    if (value.isObject()) {
        QVariantMap map;
        const QJsonObject object = value.toObject();
        for (auto it = object.begin(); it != object.end(); ++it) {
            const QDateTime date = it.key() == QLatin1String("published")
                                       ? SiteDates::parse(it.value().toString())
                                       : QDateTime();
            map.insert(it.key(), date.isValid() ? QVariant(SiteDates::plainText(date))
                                                : tutorialNode(it.value(), baseURL));
        }
        return map;
    }
    if (value.isString())
        return withBase(value.toString(), baseURL);
    return value.toVariant();
}

QString htmlPage(const QString &title, const QString &body)
{
    return QStringLiteral("<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>%1</title>"
                          "</head>\n<body>\n<h1>%1</h1>\n%2</body></html>\n")
        .arg(title.toHtmlEscaped(), body);
}

} // namespace

PublicPages::PublicPages(const SampleCatalogue &catalogue) : m_catalogue(catalogue) {}

SiteReply PublicPages::handle(const QStringList &path, const QUrlQuery &query,
                              const QString &baseURL) const
{
    const auto item = [&](const char *name) {
        return query.queryItemValue(QLatin1String(name));
    };
    const QString first = path.value(0);
    const qsizetype size = path.size();
    if (size == 0)
        return homePage(baseURL);
    if (size == 1 && first == QLatin1String("appcast.php")) {
        return appcast(item("titleCode"), item("titleVersion"),
                       item("testing") == QLatin1String("1"), baseURL);
    }
    if (size == 4 && first == QLatin1String("appcasts") && path[3] == QLatin1String("index.xml"))
        return appcast(path[1], path[2], false, baseURL);
    if (size == 6 && first == QLatin1String("users") && path[1] == QLatin1String("beta") &&
        path[2] == QLatin1String("appcasts") && path[5] == QLatin1String("index.php")) {
        return appcast(path[3], path[4], true, baseURL);
    }
    if (size == 1 && first == QLatin1String("manual_version.php"))
        return manualVersion(item("appCode"), item("version"));
    if (size == 1 && first == QLatin1String("manuals.php"))
        return manualsPage(item("appCode"), item("version"), baseURL);
    if (size == 5 && first == QLatin1String("manuals"))
        return titleFile(path[1], path[2], QStringLiteral("manuals/") + path[3], path[4]);
    if (size == 4 && first == QLatin1String("tutorials")) {
        if (path[3] == QLatin1String("index.xml"))
            return tutorialIndex(path[1], path[2], baseURL);
        return titleFile(path[1], path[2], QStringLiteral("tutorials"), path[3]);
    }
    if (first == QLatin1String("downloads"))
        return download(path);
    return SiteReply::notFound();
}

SiteReply PublicPages::appcast(const QString &code, const QString &major, bool testing,
                               const QString &baseURL) const
{
    const std::optional<Appcast> appcast = m_catalogue.appcast(code, major);
    const QString fallbackTitle = QStringLiteral("%1 %2 Changelog").arg(code, major);
    return SiteReply::ok(
        "application/rss+xml",
        AppcastWriter::write(appcast ? &*appcast : nullptr, testing, baseURL, fallbackTitle));
}

SiteReply PublicPages::manualVersion(const QString &code, const QString &major) const
{
    const std::optional<ManualInfo> manual = m_catalogue.manual(code, major);
    if (!manual)
        return SiteReply::notFound();
    const QVariantMap dictionary{
        {QStringLiteral("version"), manual->version},
        {QStringLiteral("published"), SiteDates::twelveHour(manual->published)}};
    return SiteReply::ok(plistType, PropertyListWriter::write(dictionary));
}

SiteReply PublicPages::manualsPage(const QString &code, const QString &major,
                                   const QString &baseURL) const
{
    const QStringList files = m_catalogue.manualFiles(code, major);
    if (files.isEmpty())
        return SiteReply{404, htmlType, htmlPage(QStringLiteral("No manuals"), QString()).toUtf8(),
                         nullptr};
    QString list = QStringLiteral("<ul>\n");
    for (const QString &file : files) {
        // The same double-slash form the help desk's download button uses.
        const QString url =
            QStringLiteral("%1/manuals/%2/%3//%4").arg(baseURL, code.toLower(), major, file);
        list += QStringLiteral("<li><a href=\"%1\">%2</a></li>\n")
                    .arg(url.toHtmlEscaped(), file.section(QLatin1Char('/'), 1).toHtmlEscaped());
    }
    list += QStringLiteral("</ul>\n");
    const auto manual = m_catalogue.manual(code, major);
    if (manual) {
        list += QStringLiteral("<p>Version %1, published %2.</p>\n")
                    .arg(manual->version.toHtmlEscaped(), SiteDates::rfc822(manual->published));
    }
    const QString title = QStringLiteral("Manuals for %1 %2").arg(code, major);
    return SiteReply::ok(htmlType, htmlPage(title, list).toUtf8());
}

SiteReply PublicPages::tutorialIndex(const QString &code, const QString &major,
                                     const QString &baseURL) const
{
    const std::optional<QJsonArray> tutorials = m_catalogue.tutorials(code, major);
    if (!tutorials)
        return SiteReply::notFound();
    return SiteReply::ok(plistType, PropertyListWriter::write(tutorialNode(*tutorials, baseURL)));
}

SiteReply PublicPages::download(const QStringList &path) const
{
    static const QRegularExpression blobName(QStringLiteral("^blob-([0-9]{1,12})\\.bin$"));
    if (path.size() == 2) {
        const QRegularExpressionMatch match = blobName.match(path[1]);
        const qint64 size = match.hasMatch() ? match.captured(1).toLongLong() : -1;
        if (size < 0 || size > maximumBlobSize)
            return SiteReply::notFound();
        SiteReply reply = SiteReply::ok("application/octet-stream", QByteArray());
        reply.stream = std::make_unique<BlobDevice>(size);
        return reply;
    }
    if (path.size() == 4)
        return titleFile(path[1], path[2], QStringLiteral("downloads"), path[3]);
    return SiteReply::notFound();
}

SiteReply PublicPages::titleFile(const QString &code, const QString &major, const QString &folder,
                                 const QString &fileName) const
{
    const QString path = m_catalogue.titleFile(code, major, folder, fileName);
    if (path.isEmpty())
        return SiteReply::notFound();
    auto file = std::make_unique<QFile>(path);
    if (!file->open(QIODevice::ReadOnly))
        return SiteReply::text(500, "Cannot read " + fileName.toUtf8());
    SiteReply reply =
        SiteReply::ok(QMimeDatabase().mimeTypeForFile(path).name().toUtf8(), QByteArray());
    reply.stream = std::move(file);
    return reply;
}

SiteReply PublicPages::homePage(const QString &baseURL) const
{
    QString body = QStringLiteral("<p>Help desk API: <code>%1/helpspot_api.php</code> (POST).</p>\n"
                                  "<ul>\n")
                       .arg(baseURL.toHtmlEscaped());
    for (const auto &[code, major] : m_catalogue.titles()) {
        const QString links[][2] = {
            {QStringLiteral("appcast.php?titleCode=%1&titleVersion=%2&testing=1&style=appcast"),
             QStringLiteral("beta appcast")},
            {QStringLiteral("appcasts/%1/%2/index.xml"), QStringLiteral("release appcast")},
            {QStringLiteral("manual_version.php?appCode=%1&version=%2"),
             QStringLiteral("manual version")},
            {QStringLiteral("manuals.php?appCode=%1&version=%2"), QStringLiteral("manuals")},
            {QStringLiteral("tutorials/%1/%2/index.xml"), QStringLiteral("tutorials")},
        };
        body += QStringLiteral("<li>%1 %2:").arg(code, major);
        for (const auto &link : links) {
            body += QStringLiteral(" <a href=\"%1/%2\">%3</a>")
                        .arg(baseURL, link[0].arg(code, major).toHtmlEscaped(), link[1]);
        }
        body += QStringLiteral("</li>\n");
    }
    body +=
        QStringLiteral("</ul>\n<p>Help desk state: <a href=\"%1/inspect/requests\">requests</a>,"
                       " <a href=\"%1/inspect/documents\">documents</a>.</p>\n")
            .arg(baseURL);
    return SiteReply::ok(htmlType, htmlPage(QStringLiteral("Support site"), body).toUtf8());
}
