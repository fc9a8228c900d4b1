#include "HSResults.h"
#include "HelpDeskTestSupport.h"
#include "QKSupportSiteProcess.h"

#include <QKMultipartRequest.h>
#include <QKSynchronousRequest.h>

#include <gtest/gtest.h>

namespace {

const QByteArray requestList = R"(<?xml version="1.0" encoding="UTF-8"?>
<results>
  <request>
    <xRequest>10001</xRequest><fOpen>1</fOpen>
    <history>
      <history_events><fPublic>1</fPublic><tNote>It crashes</tNote><xPerson>0</xPerson>
        <dtGMTChange>1700000000</dtGMTChange></history_events>
      <history_events><fPublic>1</fPublic><tNote>Try 2.4</tNote><xPerson>3</xPerson>
        <dtGMTChange>1700000600</dtGMTChange></history_events>
    </history>
  </request>
  <request><xRequest>10002</xRequest><fOpen>0</fOpen></request>
  <request><xRequest>10003</xRequest><fOpen>1</fOpen></request>
  <request><xRequest>10002</xRequest><fOpen>1</fOpen></request>
</results>)";

QByteArray apiReply(const QKSupportSiteProcess &site, const QVariantMap &form)
{
    return QKSynchronousRequest::post(
               QKMultipartRequest::requestWithURL(QUrl(site.helpDeskAPIURL()), form))
        .data;
}

} // namespace

TEST(HSResults, requestListsFilterClosedRequestsAndFindTheFirstMatch)
{
    const HSResults results(requestList, true);
    ASSERT_FALSE(results.isNull());
    EXPECT_EQ(results.requestID(), "10001");
    EXPECT_EQ(results.requestIDs(true), QStringList({"10001", "10002", "10003", "10002"}));
    EXPECT_EQ(results.requestIDs(false), QStringList({"10001", "10003", "10002"}));

    // Two requests share a number: the first one answers, and it is closed.
    EXPECT_EQ(results.requestForID("10002").value("fOpen").toString(), "0");
    EXPECT_FALSE(results.requestIsOpenForID("10002"));
    EXPECT_TRUE(results.requestIsOpenForID("10003"));
    EXPECT_FALSE(results.requestIsOpenForID("99999"));
    EXPECT_TRUE(results.requestForID("99999").isEmpty());

    const QVariantList history = results.requestForID("10001").value("history").toList();
    ASSERT_EQ(history.size(), 2);
    EXPECT_EQ(history[1].toMap().value("tNote").toString(), "Try 2.4");
    EXPECT_EQ(history[1].toMap().value("xPerson").toString(), "3");
}

TEST(HSResults, dictionaryRepliesGiveAtMostOneRequest)
{
    const QByteArray created = "<?xml version=\"1.0\"?><results><xRequest>10007</xRequest>"
                               "<xRequestHistory>40012</xRequestHistory></results>";
    const HSResults open(created, false);
    EXPECT_EQ(open.results().toMap().value("xRequestHistory").toString(), "40012");
    EXPECT_EQ(open.requestID(), "10007");
    // A creation reply carries no "fOpen", which reads as closed.
    EXPECT_TRUE(open.requestIDs(false).isEmpty());
    EXPECT_EQ(open.requestIDs(true), QStringList{"10007"});
    EXPECT_TRUE(HSResults("<?xml version=\"1.0\"?><results/>", false).requestIDs(true).isEmpty());
}

TEST(HSResults, repliesThatAreNotXMLAreNullAndAnswerNothing)
{
    for (const QByteArray &data :
         {QByteArray(), QByteArray("<?xm"), QByteArray("<?xmL version=\"1.0\"?><results/>"),
          QByteArray("<html><body>Internal Server Error</body></html>"),
          QByteArray(" <?xml version=\"1.0\"?><results/>")}) {
        const HSResults results(data, true);
        EXPECT_TRUE(results.isNull()) << data.constData();
        EXPECT_EQ(results.requestID(), QString());
        EXPECT_TRUE(results.requestIDs(true).isEmpty());
        EXPECT_FALSE(results.requestIsOpenForID("10001"));
    }
    // A truncated reply keeps the requests read before the break.
    const HSResults truncated(requestList.left(requestList.indexOf("<request><xRequest>10003")),
                              true);
    EXPECT_FALSE(truncated.isNull());
    EXPECT_EQ(truncated.requestIDs(true), QStringList({"10001", "10002"}));
}

TEST(HSResults, readsTheSupportSiteCategoriesAndRequests)
{
    QKSupportSiteProcess site;
    ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();

    const HSResults categories(apiReply(site, {{"action", "categories"}}), true);
    const QVariantList list = categories.results().toList();
    ASSERT_EQ(list.size(), 8);
    EXPECT_EQ(list[3].toMap().value("sCategory").toString(), "Legacy 2.x Support");
    EXPECT_EQ(list[3].toMap().value("fDeleted").toString(), "1");
    EXPECT_EQ(list[5].toMap().value("fAllowPublicSubmit").toString(), "0");

    const HSResults requests(
        apiReply(site, {{"action", "list"}, {"sEmail", "alex.martin@example.com"}, {"fTrash", 0}}),
        true);
    EXPECT_EQ(requests.requestIDs(true).size(), 3);
    ASSERT_EQ(requests.requestIDs(false).size(), 1);
    EXPECT_TRUE(requests.requestIsOpenForID(requests.requestIDs(false).constFirst()));
}
