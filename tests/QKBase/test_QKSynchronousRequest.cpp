#include "QKMultipartRequest.h"
#include "QKNetworkReplies.h"
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
    if (request.path == "/stall")
        return {QKTestHttpServer::Stall, "the start of a feed"};
    return {200, "posted " + QByteArray::number(request.body.size())};
}

QKSynchronousRequest::Reply get(const QUrl &url)
{
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::UserAgentHeader, u"QKTest/1.0"_s);
    return QKSynchronousRequest::get(request);
}

bool waitFor(const std::function<bool()> &condition, std::chrono::milliseconds deadline)
{
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(10ms);
    }
    return true;
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

    QTcpServer closed;
    ASSERT_TRUE(closed.listen(QHostAddress::LocalHost));
    const QUrl refusedUrl(u"http://127.0.0.1:%1/"_s.arg(closed.serverPort()));
    closed.close();
    const auto refused = get(refusedUrl);
    EXPECT_FALSE(refused.isSuccess());
    EXPECT_EQ(refused.statusCode, 0);
}

TEST(QKSynchronousRequest, transfersWithNoBytesMovingFail)
{
    QKTestHttpServer server(route);
    QKNetworkReplies::setIdleTimeout(300ms);
    // A server that accepts and never answers, one that stops after the head, and a post.
    const QKMultipartRequest form =
        QKMultipartRequest::requestWithURL(server.url("/hang"), {{"action", "new"}});
    const QKSynchronousRequest::Reply replies[] = {
        get(server.url("/hang")), get(server.url("/stall")), QKSynchronousRequest::post(form)};
    for (const auto &reply : replies) {
        EXPECT_FALSE(reply.isSuccess());
        EXPECT_TRUE(reply.errorString.contains(u"300 ms"_s)) << reply.errorString.toStdString();
        EXPECT_TRUE(reply.data.isEmpty());
    }
}

TEST(QKSynchronousRequest, aFormThatCannotBeBuiltFailsWithoutSending)
{
    QKTestHttpServer server(route);
    const QKBase64EncodedFile missing(u"/nonexistent/archive.zip"_s);
    const auto reply = QKSynchronousRequest::post(QKMultipartRequest::requestWithURL(
        server.url("/api"), {{"archive", QVariant::fromValue(missing)}}));
    EXPECT_FALSE(reply.isSuccess());
    EXPECT_TRUE(server.requests().isEmpty());
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
    std::thread waiter([&] { hung = get(server.url("/hang")); });
    // Abort once the request is under way; the hanging route never answers.
    const bool underWay = waitFor([&] { return !server.requests().isEmpty(); }, 20s);
    const auto before = std::chrono::steady_clock::now();
    QKSynchronousRequest::abortAll();
    waiter.join();
    ASSERT_TRUE(underWay);
    EXPECT_LT(std::chrono::steady_clock::now() - before, 10s);
    // Ended by the quit, not by the idle timeout.
    EXPECT_EQ(hung.errorString, u"The application is quitting"_s);

    const auto refused = get(server.url("/feed"));
    EXPECT_FALSE(refused.isSuccess());
    EXPECT_TRUE(refused.data.isEmpty());
}
