#include "QKMultipartRequest.h"
#include "QKSynchronousRequest.h"
#include "QKTestHttpServer.h"
#include "QKTestSupport.h"

#include <QNetworkRequest>
#include <QTcpServer>

#include <atomic>
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
    return {200, "posted " + QByteArray::number(request.body.size()), {}, {}};
}

QKSynchronousRequest::Reply
get(const QUrl &url, std::chrono::milliseconds timeout = QKSynchronousRequest::DefaultTimeout)
{
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::UserAgentHeader, u"QKTest/1.0"_s);
    return QKSynchronousRequest::get(request, timeout);
}

} // namespace

TEST(QKSynchronousRequest, errorStatusesAndRedirectsAreAnswers)
{
    QKTestHttpServer server(route);
    const struct
    {
        const char *path;
        int status;
        QByteArray data;
    } cases[] = {{"/feed", 200, "feed for QKTest/1.0"},
                 {"/missing", 404, "<html>No such page</html>"},
                 {"/broken", 500, "boom"},
                 {"/moved", 200, "feed for QKTest/1.0"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path);
        const auto reply = get(server.url(QString::fromLatin1(c.path)));
        EXPECT_TRUE(reply.isSuccess()) << reply.errorString.toStdString();
        EXPECT_EQ(reply.statusCode, c.status);
        EXPECT_EQ(reply.data, c.data);
    }
    EXPECT_EQ(get(server.url("/moved")).url, server.url("/feed"));
}

TEST(QKSynchronousRequest, transportFailuresAreErrors)
{
    QKTestHttpServer server(route);
    const auto dropped = get(server.url("/drop"));
    EXPECT_FALSE(dropped.isSuccess());
    EXPECT_TRUE(dropped.data.isEmpty());

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

    QKSynchronousRequest::Reply posted, fetched, dropped;
    std::thread poster([&] { posted = QKSynchronousRequest::post(form); });
    std::thread fetcher([&] { fetched = get(server.url("/feed")); });
    std::thread failer([&] { dropped = get(server.url("/drop")); });
    poster.join();
    fetcher.join();
    failer.join();

    EXPECT_TRUE(posted.isSuccess()) << posted.errorString.toStdString();
    EXPECT_TRUE(posted.data.startsWith("posted "));
    EXPECT_GT(posted.data.mid(7).toLongLong(), archive.size());
    EXPECT_EQ(fetched.data, "feed for QKTest/1.0");
    EXPECT_FALSE(dropped.isSuccess());
}

TEST(QKSynchronousRequest, abortAllEndsWaitingWorkersAndRefusesNewRequests)
{
    QKTestHttpServer server(route);
    std::atomic<bool> started = false;
    QKSynchronousRequest::Reply hung;
    std::thread waiter([&] {
        started = true;
        hung = get(server.url("/hang"), 60s);
    });
    while (!started)
        std::this_thread::yield();
    // The request must be under way before it can be aborted; the hanging route never ends.
    std::this_thread::sleep_for(200ms);
    const auto before = std::chrono::steady_clock::now();
    QKSynchronousRequest::abortAll();
    waiter.join();
    EXPECT_LT(std::chrono::steady_clock::now() - before, 10s);
    EXPECT_FALSE(hung.isSuccess());

    const auto refused = get(server.url("/feed"));
    EXPECT_FALSE(refused.isSuccess());
    EXPECT_TRUE(refused.data.isEmpty());
}
