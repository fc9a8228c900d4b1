#include "HSResults.h"
#include "SiteClient.h"

#include <QDeadlineTimer>
#include <QTcpSocket>

namespace {

/** Sends @p bytes on @p socket and reads until the reply holds @p end or the site closes the
 *  connection; the time limit only guards against a hung site. */
QByteArray exchange(QTcpSocket &socket, const QByteArray &bytes, const QByteArray &end = {})
{
    socket.write(bytes);
    QByteArray reply;
    const QDeadlineTimer deadline(10000);
    while (socket.state() == QAbstractSocket::ConnectedState && !deadline.hasExpired() &&
           (end.isEmpty() || !reply.contains(end))) {
        socket.waitForReadyRead(int(deadline.remainingTime()));
        reply += socket.readAll();
    }
    return reply + socket.readAll();
}

/** A site whose body limit is lowered through its environment variable. */
class RequestLimit : public ::testing::Test
{
protected:
    static constexpr qint64 limit = 64 * 1024;

    void SetUp() override
    {
        qputenv("QK_SUPPORT_SITE_MAX_BODY", QByteArray::number(limit));
        site = std::make_unique<QKSupportSiteProcess>(QKSupportSiteProcess::Environment::Keep);
        ASSERT_TRUE(site->isRunning()) << site->errorString().toStdString();
        socket.connectToHost(QHostAddress::LocalHost, site->port());
        ASSERT_TRUE(socket.waitForConnected(10000));
    }

    QByteArray send(const QByteArray &bytes, const QByteArray &end = {})
    {
        return exchange(socket, bytes, end);
    }

    QByteArray head(const QByteArray &framing) const
    {
        return "POST /helpspot_api.php HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: " +
               categories.contentType() + "\r\n" + framing + "\r\n\r\n";
    }

    std::unique_ptr<QKSupportSiteProcess> site;
    QTcpSocket socket;
    const MultipartBody categories{{{"action", "categories"}}};
};

QByteArray chunked(const QByteArray &body, qsizetype chunkSize)
{
    QByteArray chunks;
    for (qsizetype i = 0; i < body.size(); i += chunkSize) {
        const QByteArray chunk = body.mid(i, chunkSize);
        chunks += QByteArray::number(chunk.size(), 16) + "\r\n" + chunk + "\r\n";
    }
    return chunks + "0\r\n\r\n";
}

} // namespace

TEST_F(RequestLimit, aBodyAnnouncedOverTheLimitIsRefusedBeforeItIsSent)
{
    const QByteArray reply = send(head("Content-Length: 3221225472"));
    EXPECT_TRUE(reply.startsWith("HTTP/1.1 413 ")) << reply.toStdString();
    EXPECT_EQ(socket.state(), QAbstractSocket::UnconnectedState);

    // The site goes on serving, a document just under the limit included.
    EXPECT_EQ(SiteClient::post(site->helpDeskAPIURL(), categories.contentType(), categories.body())
                  .status,
              200);
    const MultipartBody request = newRequest("Large log attached");
    const QString history =
        HSResults(
            SiteClient::post(site->helpDeskAPIURL(), request.contentType(), request.body()).body,
            false)
            .results()
            .toMap()
            .value("xRequestHistory")
            .toString();
    const MultipartBody document =
        addDocument(history, "debug_log",
                    QString::fromLatin1(QByteArray(limit / 4 * 3 - 1024, 'x').toBase64()));
    ASSERT_LT(document.body().size(), limit);
    EXPECT_EQ(
        SiteClient::post(site->helpDeskAPIURL(), document.contentType(), document.body()).status,
        200);
}

TEST_F(RequestLimit, requestsOnOneConnectionAreFollowedAndAChunkedBodyIsCutOffAtTheLimit)
{
    // The form holds an empty line of its own, which must not pass for the end of a head.
    const QByteArray form = categories.body();
    QByteArray reply =
        send(head("Content-Length: " + QByteArray::number(form.size())) + form, "</results>");
    EXPECT_TRUE(reply.startsWith("HTTP/1.1 200 ")) << reply.toStdString();
    reply = send(head("Transfer-Encoding: chunked") + chunked(form, 7), "</results>");
    EXPECT_TRUE(reply.startsWith("HTTP/1.1 200 ")) << reply.toStdString();

    // Every chunk fits; their sum does not.
    reply = send(head("Transfer-Encoding: chunked") + chunked(QByteArray(2 * limit, 'x'), 4096));
    EXPECT_TRUE(reply.startsWith("HTTP/1.1 413 ")) << reply.toStdString();
    EXPECT_EQ(socket.state(), QAbstractSocket::UnconnectedState);

    // A head that never ends is cut off too.
    socket.connectToHost(QHostAddress::LocalHost, site->port());
    ASSERT_TRUE(socket.waitForConnected(10000));
    reply = send("GET / HTTP/1.1\r\nX-Padding: " + QByteArray(128 * 1024, 'p'));
    EXPECT_TRUE(reply.startsWith("HTTP/1.1 400 ")) << reply.toStdString();
    EXPECT_EQ(SiteClient::get(site->baseURL() + "/").status, 200);
}

TEST(SpooledUpload, aLargeBodyThatIsNoFormOrIsCutOffLeavesTheSiteServing)
{
    QKSupportSiteProcess site(QKSupportSiteProcess::Environment::Keep);
    ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();

    const QByteArray junk(2 * 1024 * 1024, 'j');
    const SiteResponse refused =
        SiteClient::post(site.helpDeskAPIURL(), "multipart/form-data; boundary=b0undary", junk);
    EXPECT_EQ(refused.status, 400);
    EXPECT_TRUE(refused.body.startsWith("<?xml")) << refused.body.left(200).toStdString();

    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, site.port());
    ASSERT_TRUE(socket.waitForConnected(10000));
    socket.write("POST /helpspot_api.php HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: "
                 "multipart/form-data; boundary=b0undary\r\nContent-Length: " +
                 QByteArray::number(junk.size()) + "\r\n\r\n" + junk.left(junk.size() / 2));
    ASSERT_TRUE(socket.waitForBytesWritten(10000));
    socket.abort();
    EXPECT_EQ(SiteClient::get(site.baseURL() + "/").status, 200);
}

TEST(SpooledUpload, aClientWaitingToSendALargeBodyIsAskedForIt)
{
    QKSupportSiteProcess site(QKSupportSiteProcess::Environment::Keep);
    ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, site.port());
    ASSERT_TRUE(socket.waitForConnected(10000));

    const MultipartBody form =
        MultipartBody({{"action", "categories"}}).field("padding", QString(2 << 20, u'p'));
    const QByteArray head = "POST /helpspot_api.php HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: " +
                            form.contentType() +
                            "\r\nContent-Length: " + QByteArray::number(form.body().size()) +
                            "\r\nExpect: 100-continue\r\n\r\n";
    EXPECT_EQ(exchange(socket, head, "\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");
    const QByteArray reply = exchange(socket, form.body(), "</results>");
    EXPECT_TRUE(reply.startsWith("HTTP/1.1 200 OK\r\n")) << reply.left(200).toStdString();
}

TEST(SpooledUpload, aRequestAheadOfALargeOneInTheSameReadIsAnsweredToo)
{
    QKSupportSiteProcess site(QKSupportSiteProcess::Environment::Keep);
    ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, site.port());
    ASSERT_TRUE(socket.waitForConnected(10000));

    const auto request = [](const MultipartBody &form) {
        return "POST /helpspot_api.php HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: " +
               form.contentType() +
               "\r\nContent-Length: " + QByteArray::number(form.body().size()) + "\r\n\r\n" +
               form.body();
    };
    const MultipartBody small({{"action", "categories"}});
    const MultipartBody large =
        MultipartBody({{"action", "categories"}}).field("padding", QString(2 << 20, u'p'));
    socket.write(request(small) + request(large));
    QByteArray replies;
    const QDeadlineTimer deadline(10000);
    while (replies.count("</results>") < 2 && !deadline.hasExpired() &&
           socket.waitForReadyRead(int(deadline.remainingTime())))
        replies += socket.readAll();
    EXPECT_EQ(replies.count("HTTP/1.1 200 OK\r\n"), 2) << replies.left(300).toStdString();
}
