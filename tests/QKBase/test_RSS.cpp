#include "QKApplicationLog.h"
#include "QKTestEnvironment.h"
#include "QKTestHttpServer.h"
#include "RSS.h"

#include <QFile>
#include <QUrl>

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <thread>

namespace {

QByteArray sample(const QString &name)
{
    QFile file(QKTestEnvironment::sourcePath(QStringLiteral("QKBase/data/") + name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void expectUnreadable(const RSS &feed, const char *what)
{
    EXPECT_FALSE(feed.isValid()) << what;
    EXPECT_FALSE(feed.errorString().isEmpty()) << what;
    EXPECT_TRUE(feed.newsItems().isEmpty()) << what;
    EXPECT_TRUE(feed.headerItems().isEmpty()) << what;
}

} // namespace

TEST(RSS, sparkleAppcastItemsKeepFeedOrderAndEnclosureAttributes)
{
    const RSS feed(sample(QStringLiteral("appcast.xml")), true);
    ASSERT_TRUE(feed.isValid()) << feed.errorString().toStdString();
    EXPECT_EQ(feed.headerItems().value("title").toString().toStdString(), "Sound Lab Changelog");
    EXPECT_EQ(feed.headerItems().value("language").toString().toStdString(), "en");

    const QVariantList items = feed.newsItems();
    ASSERT_EQ(items.size(), 2);
    const QVariantMap newest = items[0].toMap();
    EXPECT_EQ(newest.value("title").toString().toStdString(), "Sound Lab 2.5.1");
    EXPECT_EQ(newest.value("description").toString().toStdString(),
              "<ul><li>Fixes a crash when <b>closing</b> the mixer &amp; more.</li></ul>");
    EXPECT_EQ(newest.value("pubDate").toString().toStdString(), "Tue, 03 Mar 2009 18:00:00 +0000");
    EXPECT_EQ(newest.value("sparkle:releaseNotesLink").toString().toStdString(),
              "https://support.example.com/notes/251.html");
    EXPECT_EQ(newest.value("category").toString().toStdString(), "Release");
    const QVariantMap enclosure = {
        {"url", "https://support.example.com/files/SoundLab-2.5.1.tar.gz"},
        {"sparkle:version", "2510"},
        {"sparkle:shortVersionString", "2.5.1"},
        {"length", "18475212"},
        {"type", "application/octet-stream"},
    };
    EXPECT_EQ(newest.value("enclosure").toMap(), enclosure);

    const QVariantMap older = items[1].toMap();
    EXPECT_EQ(older.value("enclosure").toMap().value("sparkle:version").toString().toStdString(),
              "2500");
    EXPECT_EQ(older.value("dc:date").toString().toStdString(), "2009-01-20T09:30:00Z");
    EXPECT_EQ(older.value("pubDate").toString().toStdString(), "Tue, 20 Jan 2009 09:30:00 +0000");
}

TEST(RSS, withoutNormalizationValuesStayAsWritten)
{
    const RSS feed(sample(QStringLiteral("appcast.xml")), false);
    ASSERT_TRUE(feed.isValid());
    const QVariantList items = feed.newsItems();
    ASSERT_EQ(items.size(), 2);
    EXPECT_TRUE(items[0].toMap().value("description").toString().startsWith("\n        <ul>"));
    EXPECT_FALSE(items[1].toMap().contains("pubDate"));

    const RSS atom(sample(QStringLiteral("atom.xml")), false);
    const QVariantMap entry = atom.newsItems().value(0).toMap();
    EXPECT_EQ(entry.value("link").toMap().value("rel").toString().toStdString(), "enclosure");
    EXPECT_FALSE(entry.contains("description"));
    EXPECT_EQ(entry.value("title").toString().toStdString(), "  Recording your first loop  ");
}

TEST(RSS, atomEntriesAreOfferedUnderRss2Names)
{
    const RSS feed(sample(QStringLiteral("atom.xml")), true);
    ASSERT_TRUE(feed.isValid()) << feed.errorString().toStdString();

    const QVariantMap header = feed.headerItems();
    EXPECT_EQ(header.value("title").toString().toStdString(), "Sound Lab Tutorials");
    EXPECT_EQ(header.value("description").toString().toStdString(), "Videos and lessons");
    EXPECT_EQ(header.value("link").toString().toStdString(),
              "https://support.example.com/tutorials/");
    EXPECT_EQ(header.value("pubDate").toString().toStdString(), "Sun, 01 Feb 2009 12:00:00 +0000");

    const QVariantList items = feed.newsItems();
    ASSERT_EQ(items.size(), 2);
    const QVariantMap first = items[0].toMap();
    EXPECT_EQ(first.value("title").toString().toStdString(), "Recording your first loop");
    EXPECT_EQ(first.value("link").toString().toStdString(),
              "https://support.example.com/tutorials/loop.html");
    EXPECT_EQ(first.value("guid").toString().toStdString(),
              "urn:uuid:1225c695-cfb8-4ebb-aaaa-80da344efa6a");
    EXPECT_EQ(first.value("pubDate").toString().toStdString(), "Sat, 31 Jan 2009 08:15:30 +0100");
    EXPECT_EQ(first.value("description").toString().toStdString(),
              "<div><p>Press <em>Record</em> &amp; play.</p></div>");
    EXPECT_EQ(first.value("author").toMap().value("name").toString().toStdString(), "Zoë Ångström");

    const QVariantMap second = items[1].toMap();
    EXPECT_EQ(second.value("description").toString().toStdString(), "<p>Levels and panning</p>");
    EXPECT_EQ(second.value("link").toString().toStdString(),
              "https://support.example.com/tutorials/mixing.html");
    EXPECT_EQ(second.value("pubDate").toString().toStdString(), "Sat, 10 Jan 2009 10:00:00 +0000");
}

TEST(RSS, rss10ItemsBesideTheChannelAreRead)
{
    const RSS feed(sample(QStringLiteral("rss10.xml")), true);
    ASSERT_TRUE(feed.isValid()) << feed.errorString().toStdString();
    EXPECT_EQ(feed.headerItems().value("title").toString().toStdString(), "Velmora News");
    const QVariantList items = feed.newsItems();
    ASSERT_EQ(items.size(), 1);
    const QVariantMap item = items[0].toMap();
    EXPECT_EQ(item.value("title").toString().toStdString(), "New plug-ins");
    EXPECT_EQ(item.value("c:encoded").toString().toStdString(), "<p>Three new <i>effects</i>.</p>");
    EXPECT_EQ(item.value("description").toString().toStdString(),
              "<p>Three new <i>effects</i>.</p>");
    EXPECT_EQ(item.value("pubDate").toString().toStdString(), "Sun, 01 Mar 2009 10:00:00 +0200");
}

TEST(RSS, unreadableFeedsGiveNoItemsAndAnError)
{
    const QByteArray appcast = sample(QStringLiteral("appcast.xml"));
    expectUnreadable(RSS(QByteArray()), "empty");
    expectUnreadable(RSS(QByteArray("Service temporarily unavailable")), "plain text");
    expectUnreadable(RSS(QByteArray("<!DOCTYPE html><html><body>Error<br></body></html>")),
                     "HTML page");
    expectUnreadable(RSS(QByteArray("<?xml version=\"1.0\"?><plist><dict/></plist>")),
                     "not a feed");
    expectUnreadable(RSS(QByteArray("<rss version=\"2.0\"></rss>")), "no channel");
    expectUnreadable(RSS(appcast.left(appcast.indexOf("</item>") + 40)), "truncated");

    QFile log(QKApplicationLog::sharedLog()->logFilePath());
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = log.readAll().split('\n');
    const auto warnings = std::count_if(lines.cbegin(), lines.cend(), [](const QByteArray &line) {
        return line.contains("\tWarning\tRSS\t") && line.contains("Could not read the feed");
    });
    EXPECT_EQ(warnings, 6);
}

TEST(RSS, fetchesOnWorkerThreadWithUserAgent)
{
    const QByteArray appcast = sample(QStringLiteral("appcast.xml"));
    QKTestHttpServer server([&](const QKTestHttpServer::Request &request) {
        using Response = QKTestHttpServer::Response;
        if (request.path.startsWith("/appcast.php"))
            return Response{200, appcast, {{"Content-Type", "application/rss+xml"}}, {}};
        if (request.path == "/drop")
            return Response{0, {}, {}, Response::Action::Drop};
        return Response{404, "<?xml version=\"1.0\"?><rss><channel/></rss>", {}, {}};
    });
    const QString userAgent = QStringLiteral("Sound Lab/2510 (Linux) Sparkle/1.0");

    std::optional<RSS> fetched, missing, dropped;
    std::thread loader([&] {
        fetched.emplace(server.url("/appcast.php?titleCode=soundlab&titleVersion=2"), true,
                        userAgent);
        missing.emplace(server.url("/nothing.xml"), true, userAgent);
        dropped.emplace(server.url("/drop"), true, QString());
    });
    loader.join();

    ASSERT_TRUE(fetched->isValid()) << fetched->errorString().toStdString();
    EXPECT_EQ(fetched->newsItems().size(), 2);
    EXPECT_EQ(server.requests().value(0).header("User-Agent"), userAgent.toUtf8());
    expectUnreadable(*missing, "404");
    EXPECT_TRUE(missing->errorString().contains(QStringLiteral("404")));
    expectUnreadable(*dropped, "dropped connection");
}
