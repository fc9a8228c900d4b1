#include "QKSupportSiteProcess.h"
#include "QKTestEnvironment.h"
#include "SiteClient.h"

#include <QKPropertyList.h>
#include <RSS.h>

#include <QDateTime>
#include <QDir>

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

class PublicPages : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString(); }

    SiteResponse get(const QString &path) { return SiteClient::get(site.baseURL() + path); }
    RSS feed(const QString &path) { return RSS(get(path).body, false); }

    QKSupportSiteProcess site{QKSupportSiteProcess::Environment::Keep};
};

} // namespace

TEST_F(PublicPages, appcastsListBetaItemsOnlyInTheTestingFeed)
{
    const QStringList releases{"3001", "3000", "2402"};
    const QStringList betas{"3102", "3101", "3001", "3000", "2402"};
    const SiteResponse release =
        get("/appcast.php?titleCode=slab&titleVersion=3&testing=0&style=appcast");
    ASSERT_EQ(release.status, 200);
    EXPECT_EQ(release.contentType, "application/rss+xml");
    EXPECT_TRUE(release.body.contains(
        "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\""));
    const RSS releaseFeed(release.body, false);
    EXPECT_EQ(releaseFeed.headerItems().value("title"), "Sound Lab Changelog");
    EXPECT_EQ(versions(releaseFeed), releases);
    EXPECT_EQ(versions(feed("/appcasts/slab/3/index.xml")), releases);
    EXPECT_EQ(versions(feed("/users/beta/appcasts/slab/3/index.php")), betas);

    const RSS testing = feed("/appcast.php?titleCode=slab&titleVersion=3&testing=1&style=appcast");
    ASSERT_EQ(versions(testing), betas);
    EXPECT_EQ(testing.newsItems()
                  .first()
                  .toMap()
                  .value("enclosure")
                  .toMap()
                  .value("sparkle:shortVersionString"),
              "3.1b2");
    QDateTime previous;
    for (const QVariant &item : testing.newsItems()) {
        const QDateTime date =
            QDateTime::fromString(item.toMap().value("pubDate").toString(), Qt::RFC2822Date);
        ASSERT_TRUE(date.isValid());
        EXPECT_TRUE(!previous.isValid() || date < previous) << "items must be newest first";
        previous = date;
    }
    // Enclosures point back at the site, with their true length.
    const QVariantMap enclosure = testing.newsItems().first().toMap().value("enclosure").toMap();
    const SiteResponse download = SiteClient::get(enclosure.value("url").toString());
    EXPECT_EQ(download.body.size(), enclosure.value("length").toLongLong());
    EXPECT_TRUE(download.body.startsWith("\x1f\x8b")) << "a gzip archive";

    for (const char *path :
         {"/appcast.php?titleCode=nope&titleVersion=3&testing=1", "/appcasts/nope/1/index.xml"}) {
        SCOPED_TRACE(path);
        const SiteResponse response = get(QString::fromLatin1(path));
        EXPECT_EQ(response.status, 200);
        const RSS empty(response.body, false);
        EXPECT_TRUE(empty.isValid());
        EXPECT_TRUE(empty.newsItems().isEmpty());
    }
}

TEST_F(PublicPages, manualVersionsManualsAndTutorials)
{
    const QVariantMap soundLab =
        QKPropertyList::fromData(get("/manual_version.php?appCode=slab&version=3").body).toMap();
    EXPECT_EQ(soundLab.value("version"), "3.0.1");
    EXPECT_EQ(soundLab.value("published"), "Sat, 02 Mar 2024 04:05:00 +0000");
    // 22:15:30 has no AM/PM marker in this form, only the 12-hour clock.
    EXPECT_EQ(QKPropertyList::fromData(get("/manual_version.php?appCode=tsth&version=2").body)
                  .toMap()
                  .value("published"),
              "Mon, 02 Oct 2023 10:15:30 +0000");

    const QByteArray pdf = QKTestEnvironment::readAll(
        QDir(site.dataPath()).filePath("titles/slab/3/manuals/pdf/SoundLab_3.x_Manual.pdf"));
    ASSERT_TRUE(pdf.startsWith("%PDF-"));
    const SiteResponse doubleSlash = get("/manuals/slab/3//pdf/SoundLab_3.x_Manual.pdf");
    EXPECT_EQ(doubleSlash.contentType, "application/pdf");
    EXPECT_EQ(doubleSlash.contentLength, pdf.size());
    EXPECT_EQ(doubleSlash.body, pdf);
    const QByteArray page = get("/manuals.php?appCode=slab&version=3").body;
    EXPECT_TRUE(
        page.contains((site.baseURL() + "/manuals/slab/3//zip/SoundLab_3.x_Manual.zip").toUtf8()));

    const QVariantList tutorials =
        QKPropertyList::fromData(get("/tutorials/slab/3/index.xml").body).toList();
    ASSERT_EQ(tutorials.size(), 4);
    const QVariantMap group = tutorials.first().toMap();
    ASSERT_EQ(group.value("items").toList().size(), 2);
    EXPECT_GT(group.value("items").toList().last().toMap().value("published").toString(),
              group.value("published").toString())
        << "a group with an older date has a newer child";
    const QVariantMap drums = tutorials.at(1).toMap();
    EXPECT_EQ(drums.value("title"), "Recording Drums");
    EXPECT_EQ(drums.value("published"), "2024-03-10 14:00:00 -0500");
    EXPECT_TRUE(SiteClient::get(drums.value("streamURL").toString())
                    .body.contains("<h1>Recording Drums</h1>"));
    EXPECT_TRUE(drums.value("downloadURL").toString().startsWith(site.baseURL() + "/downloads/"));

    for (const char *missing :
         {"/manual_version.php?appCode=slab&version=9",
          "/manual_version.php?appCode=../slab&version=3",
          "/manuals/slab/3//pdf/..%2F..%2Fmanual.json", "/manuals.php?appCode=nope&version=1",
          "/tutorials/slab/9/index.xml", "/downloads/blob-x.bin"}) {
        SCOPED_TRACE(missing);
        EXPECT_EQ(get(QString::fromLatin1(missing)).status, 404);
    }
}
