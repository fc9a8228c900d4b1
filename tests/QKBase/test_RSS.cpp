#include "QKApplicationLog.h"
#include "QKTestEnvironment.h"
#include "QKTestHttpServer.h"
#include "QKTestSupport.h"
#include "RSS.h"

#include <optional>
#include <thread>

namespace {

QByteArray sample(const char *name)
{
    return QKTestEnvironment::readAll(
        QKTestEnvironment::sourcePath(u"QKBase/data/"_s + QLatin1StringView(name)));
}

void expectUnreadable(const RSS &feed, const char *what)
{
    SCOPED_TRACE(what);
    EXPECT_FALSE(feed.isValid());
    EXPECT_FALSE(feed.errorString().isEmpty());
    EXPECT_TRUE(feed.newsItems().isEmpty() && feed.headerItems().isEmpty());
}

QVariantMap item(const RSS &feed, int index)
{
    return feed.newsItems().value(index).toMap();
}

void expectTexts(const QVariantMap &map,
                 std::initializer_list<std::pair<const char *, QString>> expected)
{
    for (const auto &[key, text] : expected)
        EXPECT_EQ(map.value(QString::fromUtf8(key)).toString(), text) << key;
}

} // namespace

TEST(RSS, rssAtomAndRdfFeedsOfferTheirItemsUnderRss2Names)
{
    const RSS appcast(sample("appcast.xml"), true);
    ASSERT_TRUE(appcast.isValid()) << appcast.errorString().toStdString();
    expectTexts(appcast.headerItems(),
                {{"title", u"Sound Lab Changelog"_s}, {"language", u"en"_s}});
    ASSERT_EQ(appcast.newsItems().size(), 2);
    expectTexts(item(appcast, 0),
                {{"title", u"Sound Lab 2.5.1"_s},
                 {"description",
                  u"<ul><li>Fixes a crash when <b>closing</b> the mixer &amp; more.</li></ul>"_s},
                 {"pubDate", u"Tue, 03 Mar 2009 18:00:00 +0000"_s},
                 {"sparkle:releaseNotesLink", u"https://support.example.com/notes/251.html"_s},
                 {"category", u"Release"_s}});
    const QVariantMap enclosure = {
        {"url", "https://support.example.com/files/SoundLab-2.5.1.tar.gz"},
        {"sparkle:version", "2510"},
        {"sparkle:shortVersionString", "2.5.1"},
        {"length", "18475212"},
        {"type", "application/octet-stream"},
    };
    EXPECT_EQ(item(appcast, 0).value("enclosure").toMap(), enclosure);
    expectTexts(item(appcast, 1), {{"dc:date", u"2009-01-20T09:30:00Z"_s},
                                   {"pubDate", u"Tue, 20 Jan 2009 09:30:00 +0000"_s}});

    const RSS atom(sample("atom.xml"), true);
    ASSERT_TRUE(atom.isValid()) << atom.errorString().toStdString();
    expectTexts(atom.headerItems(), {{"title", u"Sound Lab Tutorials"_s},
                                     {"description", u"Videos and lessons"_s},
                                     {"link", u"https://support.example.com/tutorials/"_s},
                                     {"pubDate", u"Sun, 01 Feb 2009 12:00:00 +0000"_s}});
    ASSERT_EQ(atom.newsItems().size(), 2);
    expectTexts(item(atom, 0),
                {{"title", u"Recording your first loop"_s},
                 {"link", u"https://support.example.com/tutorials/loop.html"_s},
                 {"guid", u"urn:uuid:1225c695-cfb8-4ebb-aaaa-80da344efa6a"_s},
                 {"pubDate", u"Sat, 31 Jan 2009 08:15:30 +0100"_s},
                 {"description", u"<div><p>Press <em>Record</em> &amp; play.</p></div>"_s}});
    EXPECT_EQ(item(atom, 0).value("author").toMap().value("name"), u"Zoë Ångström"_s);
    expectTexts(item(atom, 1), {{"description", u"<p>Levels and panning</p>"_s},
                                {"link", u"https://support.example.com/tutorials/mixing.html"_s},
                                {"pubDate", u"Sat, 10 Jan 2009 10:00:00 +0000"_s}});

    // RSS 1.0 items stand beside the channel.
    const RSS rdf(sample("rss10.xml"), true);
    EXPECT_EQ(rdf.headerItems().value("title"), "Velmora News");
    ASSERT_EQ(rdf.newsItems().size(), 1);
    expectTexts(item(rdf, 0), {{"title", u"New plug-ins"_s},
                               {"c:encoded", u"<p>Three new <i>effects</i>.</p>"_s},
                               {"description", u"<p>Three new <i>effects</i>.</p>"_s},
                               {"pubDate", u"Sun, 01 Mar 2009 10:00:00 +0200"_s}});
}

TEST(RSS, withoutNormalizationValuesStayAsWritten)
{
    const RSS feed(sample("appcast.xml"), false);
    ASSERT_EQ(feed.newsItems().size(), 2);
    EXPECT_TRUE(item(feed, 0).value("description").toString().startsWith("\n        <ul>"));
    EXPECT_FALSE(item(feed, 1).contains("pubDate"));

    const QVariantMap entry = item(RSS(sample("atom.xml"), false), 0);
    EXPECT_EQ(entry.value("link").toMap().value("rel"), "enclosure");
    EXPECT_FALSE(entry.contains("description"));
    EXPECT_EQ(entry.value("title"), "  Recording your first loop  ");
}

TEST(RSS, unreadableFeedsGiveNoItemsAndAWarning)
{
    const QByteArray appcast = sample("appcast.xml");
    const std::pair<const char *, QByteArray> inputs[] = {
        {"empty", QByteArray()},
        {"plain text", "Service temporarily unavailable"},
        {"HTML page", "<!DOCTYPE html><html><body>Error<br></body></html>"},
        {"not a feed", "<?xml version=\"1.0\"?><plist><dict/></plist>"},
        {"no channel", "<rss version=\"2.0\"></rss>"},
        {"truncated", appcast.left(appcast.indexOf("</item>") + 40)},
    };
    for (const auto &[what, data] : inputs)
        expectUnreadable(RSS(data), what);

    const QList<QByteArray> lines =
        QKTestEnvironment::readAll(QKApplicationLog::sharedLog()->logFilePath()).split('\n');
    const auto warnings = std::count_if(lines.cbegin(), lines.cend(), [](const QByteArray &line) {
        return line.contains("\tWarning\tRSS\t") && line.contains("Could not read the feed");
    });
    EXPECT_EQ(warnings, std::ssize(inputs));
}

TEST(RSS, fetchesOnWorkerThreadWithUserAgent)
{
    const QByteArray appcast = sample("appcast.xml");
    QKTestHttpServer server([&](const QKTestHttpServer::Request &request) {
        using Response = QKTestHttpServer::Response;
        if (request.path.startsWith("/appcast.php"))
            return Response{200, appcast, {{"Content-Type", "application/rss+xml"}}};
        if (request.path == "/drop")
            return Response{QKTestHttpServer::Drop};
        return Response{404, "<?xml version=\"1.0\"?><rss><channel/></rss>"};
    });
    const QString userAgent = u"Sound Lab/2510 (Linux) Sparkle/1.0"_s;

    std::optional<RSS> fetched, missing, dropped;
    std::thread([&] {
        fetched.emplace(server.url("/appcast.php?titleCode=soundlab&titleVersion=2"), true,
                        userAgent);
        missing.emplace(server.url("/nothing.xml"), true, userAgent);
        dropped.emplace(server.url("/drop"), true, QString());
    }).join();

    ASSERT_TRUE(fetched->isValid()) << fetched->errorString().toStdString();
    EXPECT_EQ(fetched->newsItems().size(), 2);
    EXPECT_EQ(server.requests().value(0).header("User-Agent"), userAgent.toUtf8());
    expectUnreadable(*missing, "404");
    EXPECT_TRUE(missing->errorString().contains(u"404"_s));
    expectUnreadable(*dropped, "dropped connection");
}
