#include "HSResults.h"
#include "HelpDeskTestSupport.h"

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
    // Histories are read where the follow-up pane shows them.
    EXPECT_EQ(results.requestForID("10001").value("history").toList().size(), 2);
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
