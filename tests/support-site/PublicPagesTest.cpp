#include "QKSupportSiteProcess.h"
#include "SiteClient.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QXmlStreamReader>

#include <gtest/gtest.h>

namespace {

const QString sparkle = QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");

struct FeedItem
{
    QString title;
    QString notes;
    QString pubDate;
    QString url;
    QString version;
    QString shortVersion;
    qint64 length = -1;
    QString type;
};

struct Feed
{
    bool valid = false;
    QString channelTitle;
    QList<FeedItem> items;
};

Feed readFeed(const QByteArray &xml)
{
    Feed feed;
    QXmlStreamReader reader(xml);
    if (!reader.readNextStartElement() || reader.name() != QLatin1String("rss") ||
        reader.attributes().value(QLatin1String("version")) != QLatin1String("2.0") ||
        !reader.readNextStartElement() || reader.name() != QLatin1String("channel")) {
        return feed;
    }
    while (reader.readNextStartElement()) {
        if (reader.name() == QLatin1String("title")) {
            feed.channelTitle = reader.readElementText();
        } else if (reader.name() == QLatin1String("item")) {
            FeedItem item;
            while (reader.readNextStartElement()) {
                const auto name = reader.name();
                if (name == QLatin1String("enclosure")) {
                    const QXmlStreamAttributes attributes = reader.attributes();
                    item.url = attributes.value(QLatin1String("url")).toString();
                    item.version = attributes.value(sparkle, QLatin1String("version")).toString();
                    item.shortVersion =
                        attributes.value(sparkle, QLatin1String("shortVersionString")).toString();
                    item.length = attributes.value(QLatin1String("length")).toLongLong();
                    item.type = attributes.value(QLatin1String("type")).toString();
                    reader.skipCurrentElement();
                } else if (name == QLatin1String("title")) {
                    item.title = reader.readElementText();
                } else if (name == QLatin1String("description")) {
                    item.notes = reader.readElementText();
                } else if (name == QLatin1String("pubDate")) {
                    item.pubDate = reader.readElementText();
                } else {
                    reader.skipCurrentElement();
                }
            }
            feed.items.append(item);
        } else {
            reader.skipCurrentElement();
        }
    }
    feed.valid = !reader.hasError();
    return feed;
}

QStringList versions(const Feed &feed)
{
    QStringList list;
    for (const FeedItem &item : feed.items)
        list.append(item.version);
    return list;
}

QByteArray sampleFile(const QKSupportSiteProcess &site, const QString &relative)
{
    QFile file(QDir(site.dataPath()).filePath(relative));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

class PublicPages : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString(); }

    SiteResponse get(const QString &path) { return SiteClient::get(site.baseURL() + path); }

    QKSupportSiteProcess site{QKSupportSiteProcess::Environment::Keep};
};

} // namespace

TEST_F(PublicPages, appcastListsBetaItemsOnlyInTheTestingFeed)
{
    const SiteResponse release =
        get("/appcast.php?titleCode=slab&titleVersion=3&testing=0&style=appcast");
    ASSERT_EQ(release.status, 200);
    EXPECT_EQ(release.contentType, "application/rss+xml");
    EXPECT_TRUE(release.body.contains("xmlns:sparkle=\"" + sparkle.toUtf8() + "\""));
    const Feed releaseFeed = readFeed(release.body);
    ASSERT_TRUE(releaseFeed.valid);
    EXPECT_EQ(releaseFeed.channelTitle, "Sound Lab Changelog");
    EXPECT_EQ(versions(releaseFeed), QStringList({"3001", "3000", "2402"}));

    const Feed testingFeed =
        readFeed(get("/appcast.php?titleCode=slab&titleVersion=3&testing=1&style=appcast").body);
    ASSERT_EQ(versions(testingFeed), QStringList({"3102", "3101", "3001", "3000", "2402"}));
    const FeedItem &beta = testingFeed.items.first();
    EXPECT_EQ(beta.shortVersion, "3.1b2");
    EXPECT_EQ(beta.type, "application/octet-stream");
    EXPECT_TRUE(beta.notes.contains("<li>")) << beta.notes.toStdString();

    QDateTime previous;
    for (const FeedItem &item : testingFeed.items) {
        const QDateTime date = QDateTime::fromString(item.pubDate, Qt::RFC2822Date);
        ASSERT_TRUE(date.isValid()) << item.pubDate.toStdString();
        if (previous.isValid()) {
            EXPECT_LT(date, previous) << "items must be newest first";
        }
        previous = date;
    }
}

TEST_F(PublicPages, appcastEnclosuresPointBackAtTheSite)
{
    const Feed feed =
        readFeed(get("/appcast.php?titleCode=slab&titleVersion=3&testing=1&style=appcast").body);
    ASSERT_FALSE(feed.items.isEmpty());
    for (const FeedItem &item : feed.items) {
        ASSERT_TRUE(item.url.startsWith(site.baseURL() + "/")) << item.url.toStdString();
        const SiteResponse download = SiteClient::get(item.url);
        EXPECT_EQ(download.status, 200) << item.url.toStdString();
        EXPECT_EQ(download.body.size(), item.length) << item.url.toStdString();
        EXPECT_TRUE(download.body.startsWith("\x1f\x8b")) << "a gzip archive";
    }
}

TEST_F(PublicPages, appcastPagesServeTheReleaseAndBetaFeeds)
{
    const SiteResponse release = get("/appcasts/slab/3/index.xml");
    ASSERT_EQ(release.status, 200);
    EXPECT_EQ(versions(readFeed(release.body)), QStringList({"3001", "3000", "2402"}));

    const SiteResponse beta = get("/users/beta/appcasts/slab/3/index.php");
    ASSERT_EQ(beta.status, 200);
    EXPECT_EQ(versions(readFeed(beta.body)), QStringList({"3102", "3101", "3001", "3000", "2402"}));

    const Feed testHost = readFeed(get("/users/beta/appcasts/tsth/2/index.php").body);
    EXPECT_EQ(versions(testHost), QStringList({"2501", "2400", "2301"}));
}

TEST_F(PublicPages, unknownTitleGetsAnEmptyChannel)
{
    for (const QString &path :
         {QStringLiteral("/appcast.php?titleCode=nope&titleVersion=3&testing=1"),
          QStringLiteral("/appcast.php?titleCode=slab&titleVersion=9&testing=0"),
          QStringLiteral("/appcasts/nope/1/index.xml")}) {
        const SiteResponse response = get(path);
        EXPECT_EQ(response.status, 200) << path.toStdString();
        const Feed feed = readFeed(response.body);
        EXPECT_TRUE(feed.valid) << path.toStdString();
        EXPECT_TRUE(feed.items.isEmpty()) << path.toStdString();
    }
}

TEST_F(PublicPages, manualVersionIsADictionaryWithTwelveHourDate)
{
    const SiteResponse response = get("/manual_version.php?appCode=slab&version=3");
    ASSERT_EQ(response.status, 200);
    const QVariantMap soundLab = SiteXml::propertyList(response.body).toMap();
    EXPECT_EQ(soundLab.value("version").toString(), "3.0.1");
    EXPECT_EQ(soundLab.value("published").toString(), "Sat, 02 Mar 2024 04:05:00 +0000");

    // 22:15:30 has no AM/PM marker in this form, only the 12-hour clock.
    const QVariantMap testHost =
        SiteXml::propertyList(get("/manual_version.php?appCode=tsth&version=2").body).toMap();
    EXPECT_EQ(testHost.value("published").toString(), "Mon, 02 Oct 2023 10:15:30 +0000");

    EXPECT_EQ(get("/manual_version.php?appCode=slab&version=9").status, 404);
    EXPECT_EQ(get("/manual_version.php?appCode=../slab&version=3").status, 404);
}

TEST_F(PublicPages, tutorialIndexIsATreeOfDatedEntries)
{
    const SiteResponse response = get("/tutorials/slab/3/index.xml");
    ASSERT_EQ(response.status, 200);
    const QVariantList tutorials = SiteXml::propertyList(response.body).toList();
    ASSERT_EQ(tutorials.size(), 4);

    const QRegularExpression dateForm(
        QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d [+-]\\d{4}$"));
    const QVariantMap group = tutorials.first().toMap();
    const QVariantList children = group.value("items").toList();
    ASSERT_EQ(children.size(), 2);
    EXPECT_FALSE(group.contains("downloadURL"));
    const QString groupDate = group.value("published").toString();
    const QString newestChild = children.last().toMap().value("published").toString();
    ASSERT_TRUE(dateForm.match(groupDate).hasMatch()) << groupDate.toStdString();
    ASSERT_TRUE(dateForm.match(newestChild).hasMatch()) << newestChild.toStdString();
    EXPECT_GT(newestChild, groupDate) << "a group with an older date has a newer child";

    const QVariantMap drums = tutorials.at(1).toMap();
    EXPECT_EQ(drums.value("title").toString(), "Recording Drums");
    EXPECT_EQ(drums.value("published").toString(), "2024-03-10 14:00:00 -0500");

    const QString stream = drums.value("streamURL").toString();
    ASSERT_TRUE(stream.startsWith(site.baseURL() + "/")) << stream.toStdString();
    const SiteResponse page = SiteClient::get(stream);
    EXPECT_EQ(page.status, 200);
    EXPECT_TRUE(page.body.contains("<h1>Recording Drums</h1>"));
    const QString download = drums.value("downloadURL").toString();
    EXPECT_TRUE(download.startsWith(site.baseURL() + "/downloads/")) << download.toStdString();

    EXPECT_EQ(get("/tutorials/slab/9/index.xml").status, 404);
}

TEST_F(PublicPages, manualsAreServedAtTheDoubleSlashAddress)
{
    const QByteArray pdf = sampleFile(site, "titles/slab/3/manuals/pdf/SoundLab_3.x_Manual.pdf");
    ASSERT_TRUE(pdf.startsWith("%PDF-"));
    const SiteResponse doubleSlash = get("/manuals/slab/3//pdf/SoundLab_3.x_Manual.pdf");
    ASSERT_EQ(doubleSlash.status, 200);
    EXPECT_EQ(doubleSlash.contentType, "application/pdf");
    EXPECT_EQ(doubleSlash.contentLength, pdf.size());
    EXPECT_EQ(doubleSlash.body, pdf);
    EXPECT_EQ(get("/manuals/slab/3/pdf/SoundLab_3.x_Manual.pdf").body, pdf);

    const SiteResponse zip = get("/manuals/slab/3//zip/SoundLab_3.x_Manual.zip");
    ASSERT_EQ(zip.status, 200);
    EXPECT_TRUE(zip.body.startsWith("PK\x03\x04"));
    EXPECT_EQ(zip.body, sampleFile(site, "titles/slab/3/manuals/zip/SoundLab_3.x_Manual.zip"));

    const SiteResponse page = get("/manuals.php?appCode=slab&version=3");
    ASSERT_EQ(page.status, 200);
    EXPECT_TRUE(page.body.contains(
        (site.baseURL() + "/manuals/slab/3//pdf/SoundLab_3.x_Manual.pdf").toUtf8()));
    EXPECT_TRUE(page.body.contains(
        (site.baseURL() + "/manuals/slab/3//zip/SoundLab_3.x_Manual.zip").toUtf8()));

    EXPECT_EQ(get("/manuals/slab/3//pdf/Missing.pdf").status, 404);
    EXPECT_EQ(get("/manuals/slab/3//pdf/..%2F..%2Fmanual.json").status, 404);
    EXPECT_EQ(get("/manuals.php?appCode=nope&version=1").status, 404);
}

TEST_F(PublicPages, generatedDownloadsCarryTheirLengthAndPattern)
{
    const qint64 size = 3 * 1024 * 1024 + 17;
    const SiteResponse blob = get(QStringLiteral("/downloads/blob-%1.bin").arg(size));
    ASSERT_EQ(blob.status, 200);
    EXPECT_EQ(blob.contentLength, size);
    ASSERT_EQ(blob.body.size(), size);
    qint64 firstWrong = -1;
    for (qint64 i = 0; i < size && firstWrong < 0; ++i) {
        if (blob.body[i] != char(i % 251))
            firstWrong = i;
    }
    EXPECT_EQ(firstWrong, -1);

    const SiteResponse empty = get("/downloads/blob-0.bin");
    EXPECT_EQ(empty.status, 200);
    EXPECT_EQ(empty.contentLength, 0);
    EXPECT_EQ(get("/downloads/blob-x.bin").status, 404);
}

TEST(PublicPagesData, corruptSampleDataReadsAsAbsent)
{
    QTemporaryDir data;
    const auto write = [&](const QString &relative, const QByteArray &content) {
        QDir(data.path()).mkpath(QFileInfo(data.filePath(relative)).path());
        QFile file(data.filePath(relative));
        return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
    };
    ASSERT_TRUE(write("titles/slab/3/appcast.json", "{ \"title\": \"Sound Lab"));
    ASSERT_TRUE(write("titles/slab/3/tutorials.json", "[{\"title\": 1},"));
    ASSERT_TRUE(write("titles/slab/3/manual.json", "{\"version\": \"3.0\"}"));
    ASSERT_TRUE(write("helpdesk/requests.json", "not json at all"));

    QKSupportSiteProcess site(QKSupportSiteProcess::Environment::Keep, data.path());
    ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
    const Feed feed = readFeed(
        SiteClient::get(site.baseURL() + "/appcast.php?titleCode=slab&titleVersion=3&testing=1")
            .body);
    EXPECT_TRUE(feed.valid);
    EXPECT_TRUE(feed.items.isEmpty());
    EXPECT_EQ(SiteClient::get(site.baseURL() + "/tutorials/slab/3/index.xml").status, 404);
    EXPECT_EQ(SiteClient::get(site.baseURL() + "/manual_version.php?appCode=slab&version=3").status,
              404);

    const SiteResponse categories =
        SiteClient::post(site.helpDeskAPIURL(), MultipartBody().field("action", "categories"));
    EXPECT_EQ(categories.status, 200);
    EXPECT_TRUE(SiteXml::elements(categories.body, "category").isEmpty());
    EXPECT_TRUE(site.isRunning());
}
