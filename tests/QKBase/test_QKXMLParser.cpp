#include "QKXMLParser.h"

#include <gtest/gtest.h>

namespace {

std::unique_ptr<QKXMLParser> helpDeskParser(QKXMLParser::RootClass rootClass)
{
    auto parser = QKXMLParser::parser();
    parser->setDictionaryElements(
        {QStringLiteral("request"), QStringLiteral("history_events"), QStringLiteral("category")});
    parser->setArrayElements({QStringLiteral("history")});
    parser->setIgnoredElements({QStringLiteral("results")});
    parser->setRootClass(rootClass);
    return parser;
}

const QByteArray requestList = R"(<?xml version="1.0" encoding="UTF-8"?>
<results>
  <request>
    <xRequest>12400</xRequest>
    <fOpen>1</fOpen>
    <sPhone/>
    <history>
      <history_events>
        <fPublic>1</fPublic>
        <tNote><![CDATA[It crashes <b>on start</b>.
Second line & more]]></tNote>
        <xPerson>0</xPerson>
        <dtGMTChange>1230768000</dtGMTChange>
      </history_events>
      <history_events>
        <fPublic>0</fPublic>
        <tNote>Fixed in 2.5 &amp; later</tNote>
        <xPerson>7</xPerson>
        <dtGMTChange>1230854400</dtGMTChange>
      </history_events>
    </history>
  </request>
  <request>
    <xRequest>12401</xRequest>
    <fOpen>0</fOpen>
    <history/>
  </request>
</results>
)";

} // namespace

TEST(QKXMLParser, categoryListBecomesArrayOfDictionaries)
{
    const QByteArray data = "<?xml version=\"1.0\"?><results>"
                            "<category><xCategory>3</xCategory><sCategory>Bug Report</sCategory>"
                            "<fAllowPublicSubmit>1</fAllowPublicSubmit><fDeleted>0</fDeleted>"
                            "</category><category><xCategory>5</xCategory>"
                            "<sCategory>Zoë Ångström</sCategory></category></results>";
    QString error = QStringLiteral("stale");
    const QVariant root =
        helpDeskParser(QKXMLParser::RootClass::Array)->objectForData(data, &error);

    EXPECT_TRUE(error.isEmpty());
    ASSERT_EQ(root.typeId(), QMetaType::QVariantList);
    const QVariantList categories = root.toList();
    ASSERT_EQ(categories.size(), 2);
    const QVariantMap first = categories[0].toMap();
    EXPECT_EQ(first.value("xCategory"), QVariant(QStringLiteral("3")));
    EXPECT_EQ(first.value("sCategory").toString().toStdString(), "Bug Report");
    EXPECT_EQ(first.value("fAllowPublicSubmit").toString().toStdString(), "1");
    EXPECT_EQ(first.value("fDeleted").toString().toStdString(), "0");
    EXPECT_EQ(categories[1].toMap().value("sCategory").toString().toStdString(), "Zoë Ångström");
}

TEST(QKXMLParser, requestListNestsHistoryEvents)
{
    const QVariantList requests =
        helpDeskParser(QKXMLParser::RootClass::Array)->objectForData(requestList).toList();
    ASSERT_EQ(requests.size(), 2);

    const QVariantMap open = requests[0].toMap();
    EXPECT_EQ(open.value("xRequest").toString().toStdString(), "12400");
    EXPECT_EQ(open.value("fOpen").toString().toStdString(), "1");
    EXPECT_EQ(open.value("sPhone"), QVariant(QString()));
    ASSERT_EQ(open.value("history").typeId(), QMetaType::QVariantList);
    const QVariantList history = open.value("history").toList();
    ASSERT_EQ(history.size(), 2);
    const QVariantMap customerNote = history[0].toMap();
    EXPECT_EQ(customerNote.value("tNote").toString().toStdString(),
              "It crashes <b>on start</b>.\nSecond line & more");
    EXPECT_EQ(customerNote.value("xPerson").toString().toStdString(), "0");
    EXPECT_EQ(customerNote.value("dtGMTChange").toString().toStdString(), "1230768000");
    EXPECT_EQ(history[1].toMap().value("tNote").toString().toStdString(), "Fixed in 2.5 & later");
    EXPECT_EQ(history[1].toMap().value("fPublic").toString().toStdString(), "0");

    const QVariantMap closed = requests[1].toMap();
    EXPECT_EQ(closed.value("fOpen").toString().toStdString(), "0");
    EXPECT_EQ(closed.value("history"), QVariant(QVariantList()));
}

TEST(QKXMLParser, createReplyFillsDictionaryRoot)
{
    const QByteArray data = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<results>\n"
                            "  <xRequest>12402</xRequest>\n"
                            "  <xRequestHistory>88001</xRequestHistory>\n</results>\n";
    const QVariant root = helpDeskParser(QKXMLParser::RootClass::Dictionary)->objectForData(data);
    ASSERT_EQ(root.typeId(), QMetaType::QVariantMap);
    EXPECT_EQ(root.toMap(), (QVariantMap{{"xRequest", "12402"}, {"xRequestHistory", "88001"}}));
}

TEST(QKXMLParser, repeatedNamesKeepTheLastValue)
{
    const QByteArray data = "<results><request><xRequest>1</xRequest><xRequest>2</xRequest>"
                            "</request><request><xRequest>3</xRequest></request></results>";
    const QVariantMap root =
        helpDeskParser(QKXMLParser::RootClass::Dictionary)->objectForData(data).toMap();
    EXPECT_EQ(root.value("request").toMap().value("xRequest").toString().toStdString(), "3");

    const QVariantList list =
        helpDeskParser(QKXMLParser::RootClass::Array)->objectForData(data).toList();
    ASSERT_EQ(list.size(), 2);
    EXPECT_EQ(list[0].toMap().value("xRequest").toString().toStdString(), "2");
}

TEST(QKXMLParser, unlistedElementsBecomeLeavesOrDictionaries)
{
    const QByteArray data = "<results><note>plain</note><request><xRequest>4</xRequest>"
                            "<customer>ignored text<sName>Zoë</sName><results><sEmail>z@x"
                            "</sEmail></results></customer></request></results>";
    const QVariantList list =
        helpDeskParser(QKXMLParser::RootClass::Array)->objectForData(data).toList();
    ASSERT_EQ(list.size(), 2);
    EXPECT_EQ(list[0], QVariant(QStringLiteral("plain")));
    const QVariantMap customer = list[1].toMap().value("customer").toMap();
    EXPECT_EQ(customer, (QVariantMap{{"sName", QStringLiteral("Zoë")}, {"sEmail", "z@x"}}));
}

TEST(QKXMLParser, everyTruncationKeepsTheClosedTopLevelValues)
{
    const auto parser = helpDeskParser(QKXMLParser::RootClass::Array);
    const QVariantList complete = parser->objectForData(requestList).toList();
    const qsizetype firstRequestEnd = requestList.indexOf("</request>") + 10;

    for (qsizetype length = 0; length < requestList.size(); ++length) {
        QString error;
        const QVariant root = parser->objectForData(requestList.left(length), &error);
        ASSERT_EQ(root.typeId(), QMetaType::QVariantList) << length;
        const QVariantList partial = root.toList();
        ASSERT_LE(partial.size(), complete.size());
        for (qsizetype i = 0; i < partial.size(); ++i)
            EXPECT_EQ(partial[i], complete[i]) << "prefix of " << length << " bytes";
        EXPECT_EQ(partial.size() >= 1, length >= firstRequestEnd) << length;
        // Only the final newline may be missing without breaking the document.
        if (length < requestList.size() - 1) {
            EXPECT_FALSE(error.isEmpty()) << length;
        }
    }
}

TEST(QKXMLParser, malformedDataGivesEmptyRootAndError)
{
    const auto parser = helpDeskParser(QKXMLParser::RootClass::Dictionary);
    const QList<QByteArray> samples = {
        QByteArray(),
        QByteArray("<!DOCTYPE html><html><body><p>Server error<br></body></html>"),
        QByteArray("\xff\xfe\x00<\x00r\x00", 7),
        QByteArray("<results><xRequest>1</xRequestHistory></results>"),
        QByteArray("<results><xRequest>1</xRequest></results><results/>"),
    };
    for (const QByteArray &sample : samples) {
        QString error;
        const QVariant root = parser->objectForData(sample, &error);
        EXPECT_EQ(root.typeId(), QMetaType::QVariantMap) << sample.toStdString();
        EXPECT_FALSE(error.isEmpty()) << sample.toStdString();
        EXPECT_TRUE(error.contains(QStringLiteral("line"))) << error.toStdString();
    }
    // A second document after the first is an error, but the first one's values remain.
    EXPECT_EQ(
        parser->objectForData(samples.last()).toMap().value("xRequest").toString().toStdString(),
        "1");
}
