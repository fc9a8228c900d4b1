#include "SupportTestSupport.h"

#include "HSForms.h"
#include "QKHelpDeskExchange.h"

#include <QUrl>

#include <gtest/gtest.h>

using namespace SupportTest;

namespace {

struct Ending
{
    std::optional<QString> error;
    QByteArray data;
};

} // namespace

TEST(QKHelpDeskExchange, onlyTransportFailuresAreErrors)
{
    ScriptedHelpDesk desk;
    desk.setScript([](const QMap<QString, QString> &form) {
        const QString email = form.value("sEmail");
        if (email == u"drop")
            return std::optional(ScriptedHelpDesk::Reply{200, "", true});
        if (email == u"500")
            return std::optional(ScriptedHelpDesk::Reply{500, "<html>down</html>"});
        return std::optional<ScriptedHelpDesk::Reply>();
    });
    QKHelpDeskExchange exchange;
    for (const char *email : {"500", "drop", "ok"}) {
        std::optional<Ending> ending;
        ASSERT_TRUE(exchange.start(QUrl(desk.url()), HSForms::list(QString::fromLatin1(email))));
        EXPECT_TRUE(exchange.responseData().isNull());
        exchange.setEndConnectionSelector([&](const std::optional<QString> &error) {
            ending = Ending{error, exchange.responseData()};
        });
        ASSERT_TRUE(waitUntil([&] { return ending.has_value(); })) << email;
        EXPECT_FALSE(exchange.isRunning());
        // The reply is gone once its end method has returned.
        EXPECT_TRUE(exchange.responseData().isNull());
        if (email == std::string_view("drop")) {
            EXPECT_TRUE(ending->error.has_value());
            EXPECT_TRUE(ending->data.isNull());
        } else {
            EXPECT_FALSE(ending->error.has_value()) << ending->error->toStdString();
            EXPECT_EQ(ending->data, email == std::string_view("500")
                                        ? QByteArray("<html>down</html>")
                                        : QByteArray("<?xml version=\"1.0\"?><results></results>"));
        }
    }
}

TEST(QKHelpDeskExchange, oneExchangeAtATimeAndEndMethodsMayStartTheNext)
{
    ScriptedHelpDesk desk;
    desk.setScript([](const QMap<QString, QString> &form) {
        return std::optional(ScriptedHelpDesk::Reply{200, form.value("sEmail").toUtf8()});
    });
    QKHelpDeskExchange exchange;
    EXPECT_FALSE(exchange.start(QUrl("nowhere"), HSForms::list("a")));
    EXPECT_FALSE(exchange.start(QUrl("ftp://127.0.0.1/helpspot_api.php"), HSForms::list("a")));
    ASSERT_TRUE(exchange.start(QUrl(desk.url()), HSForms::list("first")));
    EXPECT_FALSE(exchange.start(QUrl(desk.url()), HSForms::list("second")));

    QList<Ending> endings;
    QByteArray firstAfterStartingSecond;
    exchange.setEndConnectionSelector([&](const std::optional<QString> &error) {
        endings << Ending{error, exchange.responseData()};
        ASSERT_TRUE(exchange.start(QUrl(desk.url()), HSForms::list("second")));
        firstAfterStartingSecond = exchange.responseData();
        exchange.setEndConnectionSelector([&](const std::optional<QString> &error) {
            endings << Ending{error, exchange.responseData()};
        });
    });
    ASSERT_TRUE(waitUntil([&] { return endings.size() == 2; }));
    EXPECT_EQ(endings[0].data, "first");
    EXPECT_EQ(firstAfterStartingSecond, "first");
    EXPECT_EQ(endings[1].data, "second");
    EXPECT_EQ(desk.steps(), QStringList({"list", "list"}));
}
