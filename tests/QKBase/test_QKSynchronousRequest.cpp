#include "QKMultipartRequest.h"
#include "QKSynchronousRequest.h"
#include "QKTestHttpServer.h"

#include <QNetworkRequest>
#include <QTcpServer>

#include <gtest/gtest.h>

#include <thread>

using namespace std::chrono_literals;
using Response = QKTestHttpServer::Response;

namespace {

Response route(const QKTestHttpServer::Request &request)
{
    if (request.path == "/feed")
        return {200, "feed for " + request.header("User-Agent"), {}, {}};
    if (request.path == "/missing")
        return {404, "<html>No such page</html>", {}, {}};
    if (request.path == "/broken")
        return {500, "boom", {}, {}};
    if (request.path == "/moved")
        return {302, {}, {{"Location", "/feed"}}, {}};
    if (request.path == "/drop")
        return {0, {}, {}, Response::Action::Drop};
    if (request.path == "/hang")
        return {0, {}, {}, Response::Action::Hang};
    if (request.method == "POST")
        return {200, "posted " + QByteArray::number(request.body.size()), {}, {}};
    return {404, {}, {}, {}};
}

QNetworkRequest requestFor(const QUrl &url)
{
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("QKTest/1.0"));
    return request;
}

} // namespace

TEST(QKSynchronousRequest, errorStatusesAreAnswersNotFailures)
{
    QKTestHttpServer server(route);

    const auto ok = QKSynchronousRequest::get(requestFor(server.url("/feed")));
    EXPECT_TRUE(ok.isSuccess()) << ok.errorString.toStdString();
    EXPECT_EQ(ok.statusCode, 200);
    EXPECT_EQ(ok.data, "feed for QKTest/1.0");

    const auto missing = QKSynchronousRequest::get(requestFor(server.url("/missing")));
    EXPECT_TRUE(missing.isSuccess());
    EXPECT_EQ(missing.statusCode, 404);
    EXPECT_EQ(missing.data, "<html>No such page</html>");

    const auto broken = QKSynchronousRequest::get(requestFor(server.url("/broken")));
    EXPECT_TRUE(broken.isSuccess());
    EXPECT_EQ(broken.statusCode, 500);
    EXPECT_EQ(broken.data, "boom");
}

TEST(QKSynchronousRequest, redirectsAreFollowed)
{
    QKTestHttpServer server(route);
    const auto reply = QKSynchronousRequest::get(requestFor(server.url("/moved")));
    EXPECT_TRUE(reply.isSuccess());
    EXPECT_EQ(reply.statusCode, 200);
    EXPECT_EQ(reply.data, "feed for QKTest/1.0");
    EXPECT_EQ(reply.url, server.url("/feed"));
}

TEST(QKSynchronousRequest, transportFailuresAreErrors)
{
    QKTestHttpServer server(route);

    const auto dropped = QKSynchronousRequest::get(requestFor(server.url("/drop")));
    EXPECT_FALSE(dropped.isSuccess());
    EXPECT_TRUE(dropped.data.isEmpty());

    const auto hung = QKSynchronousRequest::get(requestFor(server.url("/hang")), 300ms);
    EXPECT_FALSE(hung.isSuccess());
    EXPECT_TRUE(hung.errorString.contains(QStringLiteral("300 ms")));

    QTcpServer closed;
    ASSERT_TRUE(closed.listen(QHostAddress::LocalHost));
    const QUrl refusedUrl(QStringLiteral("http://127.0.0.1:%1/").arg(closed.serverPort()));
    closed.close();
    const auto refused = QKSynchronousRequest::get(requestFor(refusedUrl));
    EXPECT_FALSE(refused.isSuccess());
    EXPECT_EQ(refused.statusCode, 0);
}

TEST(QKSynchronousRequest, worksOnWorkerThreadsWithoutEventLoop)
{
    QKTestHttpServer server(route);
    const QByteArray archive(256 * 1024, 'z');
    const QKMultipartRequest form = QKMultipartRequest::requestWithURL(
        server.url("/api"), {{"action", "add_document"}, {"body", archive}});

    QKSynchronousRequest::Reply posted, fetched, dropped;
    std::thread poster([&] { posted = QKSynchronousRequest::post(form); });
    std::thread fetcher(
        [&] { fetched = QKSynchronousRequest::get(requestFor(server.url("/feed"))); });
    std::thread failer(
        [&] { dropped = QKSynchronousRequest::get(requestFor(server.url("/drop"))); });
    poster.join();
    fetcher.join();
    failer.join();

    EXPECT_TRUE(posted.isSuccess()) << posted.errorString.toStdString();
    EXPECT_TRUE(posted.data.startsWith("posted "));
    EXPECT_GT(posted.data.mid(7).toLongLong(), archive.size());
    EXPECT_EQ(fetched.data, "feed for QKTest/1.0");
    EXPECT_FALSE(dropped.isSuccess());
}
