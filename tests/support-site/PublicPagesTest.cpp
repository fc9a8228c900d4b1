#include "QKTestEnvironment.h"
#include "SiteClient.h"

#include <QKPropertyList.h>
#include <RSS.h>

#include <QDir>

#include <gtest/gtest.h>

using PublicPages = SiteTest;

TEST_F(PublicPages, appcastsListBetaItemsOnlyInTheTestingFeed)
{
    const QStringList releases{"3001", "3000", "2402"};
    const QStringList betas{"3102", "3101", "3001", "3000", "2402"};
    const std::pair<const char *, QStringList> feeds[] = {
        {"/appcast.php?titleCode=slab&titleVersion=3&testing=0&style=appcast", releases},
        {"/appcasts/slab/3/index.xml", releases},
        {"/users/beta/appcasts/slab/3/index.php", betas},
        {"/appcast.php?titleCode=slab&titleVersion=3&testing=1&style=appcast", betas},
        // Unknown titles have an empty feed.
        {"/appcast.php?titleCode=nope&titleVersion=3&testing=1", {}},
        {"/appcasts/nope/1/index.xml", {}},
    };
    for (const auto &[path, expected] : feeds) {
        SCOPED_TRACE(path);
        const SiteResponse response = get(QString::fromLatin1(path));
        EXPECT_EQ(response.status, 200);
        EXPECT_EQ(response.contentType, "application/rss+xml");
        EXPECT_TRUE(response.body.contains(
            "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\""));
        // The builds of the items, read as the updater reads the feed.
        const RSS feed(response.body, false);
        EXPECT_TRUE(feed.isValid());
        QStringList versions;
        for (const QVariant &item : feed.newsItems())
            versions << item.toMap().value("enclosure").toMap().value("sparkle:version").toString();
        EXPECT_EQ(versions, expected);
    }

    // Newest first is checked by the version order above; dates where the updater reads them.
    const RSS testing(get(QString::fromLatin1(feeds[3].first)).body, false);
    EXPECT_EQ(testing.headerItems().value("title"), "Sound Lab Changelog");
    // Enclosures point back at the site, with their true length.
    const QVariantMap enclosure = testing.newsItems().first().toMap().value("enclosure").toMap();
    EXPECT_EQ(enclosure.value("sparkle:shortVersionString"), "3.1b2");
    const SiteResponse download = SiteClient::get(enclosure.value("url").toString());
    EXPECT_EQ(download.body.size(), enclosure.value("length").toLongLong());
    EXPECT_TRUE(download.body.startsWith("\x1f\x8b")) << "a gzip archive";
}

// Manual versions are read end to end with the help desk.
TEST_F(PublicPages, manualsAndTutorials)
{
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
    const QVariantMap drums = tutorials.at(1).toMap();
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
