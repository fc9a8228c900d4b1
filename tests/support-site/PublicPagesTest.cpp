#include "QKSupportSiteProcess.h"
#include "QKTestEnvironment.h"
#include "SiteClient.h"

#include <QKPropertyList.h>
#include <RSS.h>

#include <QDateTime>
#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

// The build (sparkle:version) of each item, read as the updater reads the feed.
QStringList versions(const RSS &feed)
{
    QStringList list;
    for (const QVariant &item : feed.newsItems())
        list << item.toMap().value("enclosure").toMap().value("sparkle:version").toString();
    return list;
}

const QStringList releases{"3001", "3000", "2402"};
const QStringList betas{"3102", "3101", "3001", "3000", "2402"};

class PublicPages : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString(); }

    SiteResponse get(const QString &path) { return SiteClient::get(site.baseURL() + path); }
    RSS feed(const QString &path) { return RSS(get(path).body, false); }
    QByteArray sampleFile(const QString &relative) const
    {
        return QKTestEnvironment::readAll(QDir(site.dataPath()).filePath(relative));
    }

    QKSupportSiteProcess site{QKSupportSiteProcess::Environment::Keep};
};

} // namespace

TEST_F(PublicPages, appcastListsBetaItemsOnlyInTheTestingFeed)
{
    const SiteResponse release =
        get("/appcast.php?titleCode=slab&titleVersion=3&testing=0&style=appcast");
    ASSERT_EQ(release.status, 200);
    EXPECT_EQ(release.contentType, "application/rss+xml");
    EXPECT_TRUE(QString::fromUtf8(release.body)
                    .contains(QRegularExpression(u"<rss [^>]*version=\"2.0\""_s)));
    EXPECT_TRUE(release.body.contains(
        "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\""));
    const RSS releaseFeed(release.body, false);
    ASSERT_TRUE(releaseFeed.isValid());
    EXPECT_EQ(releaseFeed.headerItems().value("title"), "Sound Lab Changelog");
    EXPECT_EQ(versions(releaseFeed), releases);

    const RSS testing = feed("/appcast.php?titleCode=slab&titleVersion=3&testing=1&style=appcast");
    ASSERT_EQ(versions(testing), betas);
    const QVariantMap beta = testing.newsItems().first().toMap();
    EXPECT_EQ(beta.value("enclosure").toMap().value("sparkle:shortVersionString"), "3.1b2");
    EXPECT_EQ(beta.value("enclosure").toMap().value("type"), "application/octet-stream");
    EXPECT_TRUE(beta.value("description").toString().contains("<li>"));

    QDateTime previous;
    for (const QVariant &item : testing.newsItems()) {
        const QString pubDate = item.toMap().value("pubDate").toString();
        const QDateTime date = QDateTime::fromString(pubDate, Qt::RFC2822Date);
        ASSERT_TRUE(date.isValid()) << pubDate.toStdString();
        EXPECT_TRUE(!previous.isValid() || date < previous) << "items must be newest first";
        previous = date;
    }

    // Every enclosure points back at the site, with its true length.
    for (const QVariant &item : testing.newsItems()) {
        const QVariantMap enclosure = item.toMap().value("enclosure").toMap();
        const QString url = enclosure.value("url").toString();
        SCOPED_TRACE(url.toStdString());
        ASSERT_TRUE(url.startsWith(site.baseURL() + "/"));
        const SiteResponse download = SiteClient::get(url);
        EXPECT_EQ(download.status, 200);
        EXPECT_EQ(download.body.size(), enclosure.value("length").toLongLong());
        EXPECT_TRUE(download.body.startsWith("\x1f\x8b")) << "a gzip archive";
    }
}

TEST_F(PublicPages, appcastPagesServeFeedsAndUnknownTitlesAnEmptyChannel)
{
    EXPECT_EQ(versions(feed("/appcasts/slab/3/index.xml")), releases);
    EXPECT_EQ(versions(feed("/users/beta/appcasts/slab/3/index.php")), betas);
    EXPECT_EQ(versions(feed("/users/beta/appcasts/tsth/2/index.php")),
              QStringList({"2501", "2400", "2301"}));

    for (const char *path :
         {"/appcast.php?titleCode=nope&titleVersion=3&testing=1",
          "/appcast.php?titleCode=slab&titleVersion=9&testing=0", "/appcasts/nope/1/index.xml"}) {
        SCOPED_TRACE(path);
        const SiteResponse response = get(QString::fromLatin1(path));
        EXPECT_EQ(response.status, 200);
        const RSS empty(response.body, false);
        EXPECT_TRUE(empty.isValid());
        EXPECT_TRUE(empty.newsItems().isEmpty());
    }
}

TEST_F(PublicPages, manualVersionIsADictionaryWithTwelveHourDate)
{
    const SiteResponse response = get("/manual_version.php?appCode=slab&version=3");
    ASSERT_EQ(response.status, 200);
    const QVariantMap soundLab = QKPropertyList::fromData(response.body).toMap();
    EXPECT_EQ(soundLab.value("version"), "3.0.1");
    EXPECT_EQ(soundLab.value("published"), "Sat, 02 Mar 2024 04:05:00 +0000");
    // 22:15:30 has no AM/PM marker in this form, only the 12-hour clock.
    EXPECT_EQ(QKPropertyList::fromData(get("/manual_version.php?appCode=tsth&version=2").body)
                  .toMap()
                  .value("published"),
              "Mon, 02 Oct 2023 10:15:30 +0000");
    EXPECT_EQ(get("/manual_version.php?appCode=slab&version=9").status, 404);
    EXPECT_EQ(get("/manual_version.php?appCode=../slab&version=3").status, 404);
}

TEST_F(PublicPages, tutorialIndexIsATreeOfDatedEntries)
{
    const SiteResponse response = get("/tutorials/slab/3/index.xml");
    ASSERT_EQ(response.status, 200);
    const QVariantList tutorials = QKPropertyList::fromData(response.body).toList();
    ASSERT_EQ(tutorials.size(), 4);

    const QRegularExpression dateForm(u"^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d [+-]\\d{4}$"_s);
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
    EXPECT_EQ(drums.value("title"), "Recording Drums");
    EXPECT_EQ(drums.value("published"), "2024-03-10 14:00:00 -0500");
    const QString stream = drums.value("streamURL").toString();
    ASSERT_TRUE(stream.startsWith(site.baseURL() + "/")) << stream.toStdString();
    const SiteResponse page = SiteClient::get(stream);
    EXPECT_EQ(page.status, 200);
    EXPECT_TRUE(page.body.contains("<h1>Recording Drums</h1>"));
    EXPECT_TRUE(drums.value("downloadURL").toString().startsWith(site.baseURL() + "/downloads/"));
    EXPECT_EQ(get("/tutorials/slab/9/index.xml").status, 404);
}

TEST_F(PublicPages, manualsAreServedAtTheDoubleSlashAddress)
{
    const QByteArray pdf = sampleFile("titles/slab/3/manuals/pdf/SoundLab_3.x_Manual.pdf");
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
    EXPECT_EQ(zip.body, sampleFile("titles/slab/3/manuals/zip/SoundLab_3.x_Manual.zip"));

    const SiteResponse page = get("/manuals.php?appCode=slab&version=3");
    ASSERT_EQ(page.status, 200);
    for (const char *file : {"pdf/SoundLab_3.x_Manual.pdf", "zip/SoundLab_3.x_Manual.zip"})
        EXPECT_TRUE(page.body.contains((site.baseURL() + "/manuals/slab/3//" + file).toUtf8()));
    EXPECT_EQ(get("/manuals/slab/3//pdf/Missing.pdf").status, 404);
    EXPECT_EQ(get("/manuals/slab/3//pdf/..%2F..%2Fmanual.json").status, 404);
    EXPECT_EQ(get("/manuals.php?appCode=nope&version=1").status, 404);
}

TEST_F(PublicPages, generatedDownloadsCarryTheirLengthAndPattern)
{
    const qint64 size = 3 * 1024 * 1024 + 17;
    const SiteResponse blob = get(u"/downloads/blob-%1.bin"_s.arg(size));
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
    const std::pair<const char *, QByteArray> files[] = {
        {"titles/slab/3/appcast.json", "{ \"title\": \"Sound Lab"},
        {"titles/slab/3/tutorials.json", "[{\"title\": 1},"},
        {"titles/slab/3/manual.json", "{\"version\": \"3.0\"}"},
        {"helpdesk/requests.json", "not json at all"}};
    for (const auto &[name, contents] : files)
        ASSERT_TRUE(
            QKTestEnvironment::writeAll(data.filePath(QString::fromLatin1(name)), contents));

    QKSupportSiteProcess site(QKSupportSiteProcess::Environment::Keep, data.path());
    ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
    const RSS feed(
        SiteClient::get(site.baseURL() + "/appcast.php?titleCode=slab&titleVersion=3&testing=1")
            .body,
        false);
    EXPECT_TRUE(feed.isValid());
    EXPECT_TRUE(feed.newsItems().isEmpty());
    EXPECT_EQ(SiteClient::get(site.baseURL() + "/tutorials/slab/3/index.xml").status, 404);
    EXPECT_EQ(SiteClient::get(site.baseURL() + "/manual_version.php?appCode=slab&version=3").status,
              404);
    const SiteResponse categories =
        SiteClient::post(site.helpDeskAPIURL(), MultipartBody({{"action", "categories"}}));
    EXPECT_EQ(categories.status, 200);
    EXPECT_TRUE(SiteClient::helpDesk(categories.body, true).toList().isEmpty());
    EXPECT_TRUE(site.isRunning());
}
