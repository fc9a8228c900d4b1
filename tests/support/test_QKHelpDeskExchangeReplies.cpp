#include "SupportTestSupport.h"

#include "HSForms.h"
#include "QKHelpDeskExchange.h"

#include <QKNetworkReplies.h>

#include "QKTestEnvironment.h"

#include <QElapsedTimer>
#include <QFile>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

using namespace SupportTest;
using namespace std::chrono_literals;

namespace {

// A server that reads a whole request, then writes a scripted reply a few bytes at a time,
// each piece in a write of its own, and closes the connection or leaves it open.
class RawServer : public QTcpServer
{
public:
    QByteArray reply;
    qsizetype pieceSize = 0; // 0: the reply in one write
    bool closeAfterReply = true;
    int connections = 0;
    int requests = 0;

    RawServer()
    {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = nextPendingConnection()) {
                ++connections;
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { read(socket); });
            }
        });
    }
    QUrl url() const
    {
        return QUrl(QStringLiteral("http://127.0.0.1:%1/helpspot_api.php").arg(serverPort()));
    }

private:
    void read(QTcpSocket *socket)
    {
        QByteArray &received = m_received[socket];
        received += socket->readAll();
        if (!received.endsWith("--\r\n"))
            return;
        ++requests;
        writeFrom(socket, 0);
    }
    void writeFrom(QTcpSocket *socket, qsizetype at)
    {
        const qsizetype size = pieceSize > 0 ? pieceSize : reply.size();
        socket->write(reply.mid(at, size));
        socket->flush();
        if (at + size < reply.size()) {
            QTimer::singleShot(1, socket, [=, this] { writeFrom(socket, at + size); });
        } else if (closeAfterReply) {
            socket->disconnectFromHost();
        }
    }
    QHash<QTcpSocket *, QByteArray> m_received;
};

struct Ending
{
    std::optional<QString> error;
    QByteArray reply;
};

// Runs one exchange with @p url to its end; nothing when it did not end in time.
std::optional<Ending> exchangeWith(const QUrl &url, const QVariantMap &form, int timeoutMs = 10000)
{
    QKHelpDeskExchange exchange;
    std::optional<Ending> ending;
    if (!exchange.start(url, form))
        return std::nullopt;
    exchange.setEndConnectionSelector([&](const std::optional<QString> &error) {
        ending = Ending{error, exchange.responseData()};
    });
    waitUntil([&] { return ending.has_value(); }, timeoutMs);
    return ending;
}

struct ReplyCase
{
    const char *name;
    QByteArray reply;
    bool closeAfterReply;
    std::optional<QByteArray> body; // nothing: a transport failure
};

void PrintTo(const ReplyCase &c, std::ostream *os)
{
    *os << c.name;
}

const QByteArray filler = "X-Filler: " + QByteArray(70, 'f') + "\r\n";

const ReplyCase replyCases[] = {
    {"chunked",
     "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
     "4;ext=1\r\n<res\r\nA\r\nults/>done\r\n0\r\nX-Trailer: yes\r\n\r\n",
     false, "<results/>done"},
    {"afterContinue",
     "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nfirst", false,
     "first"},
    {"toTheClose", "HTTP/1.0 200 OK\r\nContent-Type: text/xml\r\n\r\nuntil the close", true,
     "until the close"},
    {"errorPage", "HTTP/1.1 500 Oops\r\nContent-Length: 4\r\n\r\ngone", false, "gone"},
    {"bareLineFeeds", "HTTP/1.1 200 OK\nContent-Length: 3\n\nabc", false, "abc"},
    {"noContent", "HTTP/1.1 204 No Content\r\n\r\n", false, ""},
    {"notHTTP", "SSH-2.0-OpenSSH_9.2\r\n", false, std::nullopt},
    {"badStatus", "HTTP/1.1 2000 OK\r\n\r\n", false, std::nullopt},
    {"fieldWithoutColon", "HTTP/1.1 200 OK\r\nnonsense\r\n\r\n", false, std::nullopt},
    {"lengthsDisagree", "HTTP/1.1 200 OK\r\nContent-Length: 3\r\nContent-Length: 4\r\n\r\nabcd",
     false, std::nullopt},
    {"hugeLength", "HTTP/1.1 200 OK\r\nContent-Length: 99999999999\r\n\r\nabc", false,
     std::nullopt},
    {"hugeChunk", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nffffffffff\r\nabc", false,
     std::nullopt},
    {"badChunkSize", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nabc", false,
     std::nullopt},
    {"chunkOverrun", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nabc\r\n0\r\n\r\n",
     false, std::nullopt},
    {"endlessHead", "HTTP/1.1 200 OK\r\n" + filler.repeated(1000), false, std::nullopt},
    {"switchesProtocols", "HTTP/1.1 101 Switching Protocols\r\nUpgrade: h2c\r\n\r\n", false,
     std::nullopt},
    {"truncated", "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort", true, std::nullopt},
    {"closedInHead", "HTTP/1.1 200 OK\r\nContent-Le", true, std::nullopt},
};

class ExchangeReply : public ::testing::TestWithParam<ReplyCase>
{
};

} // namespace

// Replies arrive in pieces of every size; each ends the exchange as soon as it is complete
// or cannot be read, never by waiting for the idle timeout.
TEST_P(ExchangeReply, endsAsSoonAsTheReplyIsReadOrRefused)
{
    const ReplyCase &c = GetParam();
    QKNetworkReplies::setIdleTimeout(60s);
    for (const qsizetype piece : {qsizetype(0), qsizetype(1), qsizetype(5)}) {
        SCOPED_TRACE(piece);
        // The endless head goes out in large pieces, or it would take seconds to send.
        RawServer server;
        server.reply = c.reply;
        server.pieceSize = c.reply.size() > 1000 && piece > 0 ? 4096 : piece;
        server.closeAfterReply = c.closeAfterReply;
        const std::optional<Ending> ending = exchangeWith(server.url(), HSForms::list("a@b.org"));
        ASSERT_TRUE(ending.has_value());
        if (c.body) {
            EXPECT_EQ(ending->error, std::nullopt);
            EXPECT_EQ(ending->reply, *c.body);
        } else {
            EXPECT_TRUE(ending->error.has_value());
            EXPECT_TRUE(ending->reply.isEmpty());
        }
        EXPECT_EQ(server.requests, 1);
    }
}

INSTANTIATE_TEST_SUITE_P(Replies, ExchangeReply, ::testing::ValuesIn(replyCases),
                         [](const auto &info) { return std::string(info.param.name); });

// A help desk may refuse a large upload as soon as it has read the head. That is its answer:
// the exchange ends with it at once, without sending the rest.
TEST(QKHelpDeskExchangeTransport, anAnswerBeforeTheWholeBodyEndsTheExchange)
{
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    int connections = 0;
    QObject::connect(&server, &QTcpServer::newConnection, &server, [&] {
        while (QTcpSocket *socket = server.nextPendingConnection()) {
            ++connections;
            // Answers once, then reads on without storing: a close with unread bytes would
            // reset the connection before the client read the answer.
            QObject::connect(
                socket, &QTcpSocket::readyRead, socket, [socket, answered = false]() mutable {
                    socket->readAll();
                    if (!std::exchange(answered, true))
                        socket->write(
                            "HTTP/1.1 413 Too Large\r\nContent-Length: 9\r\n\r\ntoo large");
                });
        }
    });
    const QUrl url(QStringLiteral("http://127.0.0.1:%1/helpspot_api.php").arg(server.serverPort()));
    const std::optional<Ending> ending =
        exchangeWith(url, {{"action", "add_document"}, {"body", QByteArray(32 << 20, 'b')}});
    ASSERT_TRUE(ending.has_value());
    EXPECT_EQ(ending->error, std::nullopt);
    EXPECT_EQ(ending->reply, "too large");
    EXPECT_EQ(connections, 1);
}

// A connection opened while the files were archived may be closed by the server before the
// form is ready; the form then goes out once, on a new connection.
TEST(QKHelpDeskExchangeTransport, aPreparedConnectionTheServerClosedIsReplaced)
{
    RawServer server;
    server.reply = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
    QKHelpDeskExchange exchange;
    exchange.prepare(server.url());
    ASSERT_TRUE(waitUntil([&] { return server.connections == 1; }));
    for (QTcpSocket *socket : server.findChildren<QTcpSocket *>())
        socket->disconnectFromHost();
    // Time for the close to reach the exchange's thread.
    waitUntil([] { return false; }, 300);

    std::optional<Ending> ending;
    ASSERT_TRUE(exchange.start(server.url(), HSForms::list("a@b.org")));
    exchange.setEndConnectionSelector([&](const std::optional<QString> &error) {
        ending = Ending{error, exchange.responseData()};
    });
    ASSERT_TRUE(waitUntil([&] { return ending.has_value(); }));
    EXPECT_EQ(ending->error, std::nullopt);
    EXPECT_EQ(ending->reply, "ok");
    EXPECT_EQ(server.requests, 1);
    EXPECT_EQ(server.connections, 2);
}

// A server that takes the connection and stops reading leaves the body stuck in the kernel's
// buffers: with no byte moving the exchange fails after the idle timeout, naming it.
TEST(QKHelpDeskExchangeTransport, aServerThatStopsReadingFailsAfterTheIdleTimeout)
{
    QKNetworkReplies::setIdleTimeout(500ms);
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    server.setMaxPendingConnections(1);
    const QUrl url(QStringLiteral("http://127.0.0.1:%1/helpspot_api.php").arg(server.serverPort()));
    QElapsedTimer timer;
    timer.start();
    const std::optional<Ending> ending =
        exchangeWith(url, {{"action", "add_document"}, {"body", QByteArray(64 << 20, 'b')}});
    ASSERT_TRUE(ending.has_value());
    ASSERT_TRUE(ending->error.has_value());
    EXPECT_TRUE(ending->error->contains(u"500 ms")) << ending->error->toStdString();
    EXPECT_GE(timer.elapsed(), 500);
}

namespace {

QByteArray testData(const QString &name)
{
    QFile file(QKTestEnvironment::sourcePath(u"support/data/"_s + name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// A help desk on https with the test certificate, which answers "ok" to a whole form.
class TlsHelpDesk : public QSslServer
{
public:
    QSslCertificate certificate{testData(u"help-desk-cert.pem"_s)};
    QByteArray received;

    TlsHelpDesk()
    {
        QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
        configuration.setLocalCertificate(certificate);
        configuration.setPrivateKey(QSslKey(testData(u"help-desk-key.pem"_s), QSsl::Ec));
        setSslConfiguration(configuration);
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::pendingConnectionAvailable, this, [this] {
            while (QTcpSocket *socket = nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    received += socket->readAll();
                    if (received.endsWith("--\r\n"))
                        socket->write("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
                });
            }
        });
    }
    QUrl url() const { return QUrl(u"https://127.0.0.1:%1/helpspot_api.php"_s.arg(serverPort())); }
};

} // namespace

// Forms carry people's details: over https the help desk's certificate must be trusted, or
// nothing is sent.
TEST(QKHelpDeskExchangeTransport, httpsSendsOnlyToATrustedHelpDesk)
{
    ASSERT_TRUE(QSslSocket::supportsSsl()) << "Qt finds no TLS backend (libssl3)";
    TlsHelpDesk desk;
    ASSERT_FALSE(desk.certificate.isNull());
    const std::optional<Ending> refused = exchangeWith(desk.url(), HSForms::list("a@b.org"));
    ASSERT_TRUE(refused.has_value());
    EXPECT_TRUE(refused->error.has_value());
    EXPECT_TRUE(desk.received.isEmpty());

    QSslConfiguration trusting = QSslConfiguration::defaultConfiguration();
    trusting.addCaCertificate(desk.certificate);
    QSslConfiguration::setDefaultConfiguration(trusting);
    const std::optional<Ending> sent = exchangeWith(desk.url(), HSForms::list("a@b.org"));
    ASSERT_TRUE(sent.has_value());
    EXPECT_EQ(sent->error, std::nullopt);
    EXPECT_EQ(sent->reply, "ok");
    EXPECT_TRUE(desk.received.startsWith("POST /helpspot_api.php HTTP/1.1\r\n"));
    EXPECT_TRUE(desk.received.contains("a@b.org"));
}
