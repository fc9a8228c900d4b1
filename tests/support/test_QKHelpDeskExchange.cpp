#include "SupportTestSupport.h"

#include "HSForms.h"
#include "QKHelpDeskExchange.h"

#include <QCoreApplication>
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
