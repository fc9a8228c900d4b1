#include "SupportTestSupport.h"

#include "HSForms.h"
#include "QKHelpDeskExchange.h"

#include <QCoreApplication>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

using namespace SupportTest;

// How the pane reads failed and error replies is checked with the upload chain.
TEST(QKHelpDeskExchange, oneExchangeAtATimeAndEndMethodsMayStartTheNext)
{
    ScriptedHelpDesk desk;
    desk.script = [](const QMap<QString, QString> &form) {
        const QString email = form.value("sEmail");
        if (email == u"hang")
            return std::optional(ScriptedHelpDesk::Reply{200, "", false, true});
        return std::optional(email == u"drop" ? ScriptedHelpDesk::Reply{200, "", true}
                                              : ScriptedHelpDesk::Reply{500, email.toUtf8()});
    };
    QKHelpDeskExchange exchange;
    EXPECT_FALSE(exchange.start(QUrl("nowhere"), HSForms::list("a")));
    EXPECT_FALSE(exchange.start(QUrl("ftp://127.0.0.1/helpspot_api.php"), HSForms::list("a")));
    ASSERT_TRUE(exchange.start(QUrl(desk.url()), HSForms::list("first")));
    EXPECT_FALSE(exchange.start(QUrl(desk.url()), HSForms::list("second")));
    EXPECT_TRUE(exchange.isRunning());

    QList<std::pair<std::optional<QString>, QByteArray>> endings;
    QByteArray firstAfterStartingSecond;
    bool endedOnOwnersThread = true;
    QKHelpDeskExchange::EndMethod end = [&](const std::optional<QString> &error) {
        endedOnOwnersThread &= QThread::currentThread() == exchange.thread();
        endings.append({error, exchange.responseData()});
        if (endings.size() == 1) {
            ASSERT_TRUE(exchange.start(QUrl(desk.url()), HSForms::list("drop")));
            firstAfterStartingSecond = exchange.responseData();
            exchange.setEndConnectionSelector(end);
        }
    };
    exchange.setEndConnectionSelector(end);
    ASSERT_TRUE(waitUntil([&] { return endings.size() == 2; }));
    EXPECT_FALSE(exchange.isRunning());
    // The reply is gone once its end method has returned.
    EXPECT_TRUE(exchange.responseData().isNull());
    // An error page is a reply like any other; a dropped connection is an error.
    EXPECT_FALSE(endings[0].first.has_value());
    EXPECT_EQ(endings[0].second, "first");
    EXPECT_EQ(firstAfterStartingSecond, "first");
    EXPECT_TRUE(endings[1].first.has_value());
    EXPECT_TRUE(endings[1].second.isNull());
    EXPECT_TRUE(endedOnOwnersThread);

    // Going away abandons a running exchange without calling its end method.
    auto abandoned = std::make_unique<QKHelpDeskExchange>();
    bool abandonedEnded = false;
    ASSERT_TRUE(abandoned->start(QUrl(desk.url()), HSForms::list("hang")));
    abandoned->setEndConnectionSelector([&](const auto &) { abandonedEnded = true; });
    ASSERT_TRUE(waitUntil([&] { return desk.forms.size() == 3; }));
    abandoned.reset();
    QCoreApplication::processEvents();
    EXPECT_FALSE(abandonedEnded);
}

// An upload prepares while its files are archived: the connection is made then, nothing is
// sent on it, and the form goes out on it afterwards.
TEST(QKHelpDeskExchange, preparingConnectsWithoutSendingAndTheExchangeUsesThatConnection)
{
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    QList<QTcpSocket *> connections;
    QByteArray received;
    QObject::connect(&server, &QTcpServer::newConnection, &server, [&] {
        while (QTcpSocket *socket = server.nextPendingConnection()) {
            connections.append(socket);
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [&, socket] {
                received += socket->readAll();
                if (received.endsWith("--\r\n"))
                    socket->write("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
            });
        }
    });
    const QUrl url(QStringLiteral("http://127.0.0.1:%1/helpspot_api.php").arg(server.serverPort()));
    QKHelpDeskExchange exchange;
    exchange.prepare(url);
    ASSERT_TRUE(waitUntil([&] { return connections.size() == 1; }));
    EXPECT_FALSE(waitUntil([&] { return !received.isEmpty(); }, 200));

    std::optional<std::optional<QString>> ended;
    QByteArray reply;
    ASSERT_TRUE(exchange.start(url, HSForms::list("a@example.org")));
    exchange.setEndConnectionSelector([&](const std::optional<QString> &error) {
        ended = error;
        reply = exchange.responseData();
    });
    ASSERT_TRUE(waitUntil([&] { return ended.has_value(); }));
    EXPECT_FALSE(ended->has_value());
    EXPECT_EQ(reply, "ok");
    EXPECT_TRUE(received.startsWith("POST /helpspot_api.php "));
    EXPECT_EQ(connections.size(), 1);
}
