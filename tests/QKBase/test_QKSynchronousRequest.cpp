#include "QKMultipartRequest.h"
#include "QKSynchronousRequest.h"
#include "QKTestHttpServer.h"
#include "QKTestSupport.h"

#include <QNetworkRequest>
#include <QTcpServer>

#include <thread>

using namespace std::chrono_literals;
using Response = QKTestHttpServer::Response;

namespace {

Response route(const QKTestHttpServer::Request &request)
{
    if (request.path == "/feed")
        return {200, "feed for " + request.header("User-Agent")};
    if (request.path == "/missing")
        return {404, "<html>No such page</html>"};
    if (request.path == "/moved")
        return {302, {}, {{"Location", "/feed"}}};
    if (request.path == "/drop")
        return {QKTestHttpServer::Drop};
    if (request.path == "/hang")
        return {QKTestHttpServer::Hang};
    return {200, "posted " + QByteArray::number(request.body.size())};
}

QKSynchronousRequest::Reply
get(const QUrl &url, std::chrono::milliseconds timeout = QKSynchronousRequest::DefaultTimeout)
{
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::UserAgentHeader, u"QKTest/1.0"_s);
    return QKSynchronousRequest::get(request, timeout);
}

} // namespace

TEST(QKSynchronousRequest, errorStatusesAndRedirectsAreAnswersAndTransportFailuresErrors)
{
    QKTestHttpServer server(route);
    const std::tuple<const char *, int, QByteArray> answers[] = {
        {"/feed", 200, "feed for QKTest/1.0"},
        {"/missing", 404, "<html>No such page</html>"},
        {"/moved", 200, "feed for QKTest/1.0"}};
    for (const auto &[path, status, data] : answers) {
        const auto reply = get(server.url(QString::fromLatin1(path)));
        EXPECT_TRUE(reply.isSuccess()) << path << reply.errorString.toStdString();
        EXPECT_EQ(reply.statusCode, status) << path;
        EXPECT_EQ(reply.data, data) << path;
    }
    EXPECT_EQ(get(server.url("/moved")).url, server.url("/feed"));

    const auto hung = get(server.url("/hang"), 300ms);
    EXPECT_FALSE(hung.isSuccess());
    EXPECT_TRUE(hung.errorString.contains(u"300 ms"_s));
    QTcpServer closed;
    ASSERT_TRUE(closed.listen(QHostAddress::LocalHost));
    const QUrl refusedUrl(u"http://127.0.0.1:%1/"_s.arg(closed.serverPort()));
    closed.close();
    const auto refused = get(refusedUrl);
    EXPECT_FALSE(refused.isSuccess());
    EXPECT_EQ(refused.statusCode, 0);
}

TEST(QKSynchronousRequest, worksOnWorkerThreadsWithoutEventLoop)
{
    QKTestHttpServer server(route);
    const QByteArray archive(256 * 1024, 'z');
    const QKMultipartRequest form = QKMultipartRequest::requestWithURL(
        server.url("/api"), {{"action", "add_document"}, {"body", archive}});

    // The help desk's casts already fetch from a worker; here a post and a failure at once.
    QKSynchronousRequest::Reply posted, dropped;
    {
        std::jthread poster([&] { posted = QKSynchronousRequest::post(form); });
        std::jthread failer([&] { dropped = get(server.url("/drop")); });
    }
    EXPECT_TRUE(posted.isSuccess()) << posted.errorString.toStdString();
    EXPECT_TRUE(posted.data.startsWith("posted "));
    EXPECT_GT(posted.data.mid(7).toLongLong(), archive.size());
    EXPECT_FALSE(dropped.isSuccess());
    EXPECT_TRUE(dropped.data.isEmpty());
}

TEST(QKSynchronousRequest, abortAllEndsWaitingWorkersAndRefusesNewRequests)
{
    QKTestHttpServer server(route);
    QKSynchronousRequest::Reply hung;
    std::thread waiter([&] { hung = get(server.url("/hang"), 60s); });
    // Abort once the request is under way; the hanging route never answers.
    while (server.requests().isEmpty())
        std::this_thread::sleep_for(10ms);
    const auto before = std::chrono::steady_clock::now();
    QKSynchronousRequest::abortAll();
    waiter.join();
    EXPECT_LT(std::chrono::steady_clock::now() - before, 10s);
    EXPECT_FALSE(hung.isSuccess());

    const auto refused = get(server.url("/feed"));
    EXPECT_FALSE(refused.isSuccess());
    EXPECT_TRUE(refused.data.isEmpty());
}
