#include "QKTestSupport.h"
#include "QKXMLParser.h"

namespace {

QVariant parse(QKXMLParser::RootClass rootClass, const QByteArray &data, QString *error = nullptr)
{
    auto parser = QKXMLParser::parser();
    parser->setDictionaryElements({u"request"_s, u"history_events"_s, u"category"_s});
    parser->setArrayElements({u"history"_s});
    parser->setIgnoredElements({u"results"_s});
    parser->setRootClass(rootClass);
    return parser->objectForData(data, error);
}

constexpr auto Array = QKXMLParser::RootClass::Array;
constexpr auto Dictionary = QKXMLParser::RootClass::Dictionary;

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
    QString error = u"stale"_s;
    const QVariant root = parse(Array, data, &error);
    EXPECT_TRUE(error.isEmpty());
    ASSERT_EQ(root.typeId(), QMetaType::QVariantList);
    const QVariantList categories = root.toList();
    ASSERT_EQ(categories.size(), 2);
    EXPECT_EQ(categories[0].toMap(), (QVariantMap{{"xCategory", "3"},
                                                  {"sCategory", "Bug Report"},
                                                  {"fAllowPublicSubmit", "1"},
                                                  {"fDeleted", "0"}}));
    EXPECT_EQ(categories[1].toMap().value("sCategory"), u"Zoë Ångström"_s);
}

TEST(QKXMLParser, requestListNestsHistoryEvents)
{
    const QVariantList requests = parse(Array, requestList).toList();
    ASSERT_EQ(requests.size(), 2);
    const QVariantMap open = requests[0].toMap();
    expectTexts(open, {{"xRequest", u"12400"_s}, {"fOpen", u"1"_s}});
    EXPECT_EQ(open.value("sPhone"), QVariant(QString()));
    ASSERT_EQ(open.value("history").typeId(), QMetaType::QVariantList);
    const QVariantList history = open.value("history").toList();
    ASSERT_EQ(history.size(), 2);
    expectTexts(history[0].toMap(),
                {{"tNote", u"It crashes <b>on start</b>.\nSecond line & more"_s},
                 {"xPerson", u"0"_s},
                 {"dtGMTChange", u"1230768000"_s}});
    expectTexts(history[1].toMap(), {{"tNote", u"Fixed in 2.5 & later"_s}, {"fPublic", u"0"_s}});
    EXPECT_EQ(requests[1].toMap().value("fOpen"), "0");
    EXPECT_EQ(requests[1].toMap().value("history"), QVariant(QVariantList()));
}

TEST(QKXMLParser, dictionaryRootsAndRepeatedOrUnlistedElements)
{
    const QVariant created = parse(Dictionary, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                               "<results>\n  <xRequest>12402</xRequest>\n"
                                               "  <xRequestHistory>88001</xRequestHistory>\n"
                                               "</results>\n");
    ASSERT_EQ(created.typeId(), QMetaType::QVariantMap);
    EXPECT_EQ(created.toMap(), (QVariantMap{{"xRequest", "12402"}, {"xRequestHistory", "88001"}}));

    // Repeated names keep the last value.
    const QByteArray repeated = "<results><request><xRequest>1</xRequest><xRequest>2</xRequest>"
                                "</request><request><xRequest>3</xRequest></request></results>";
    EXPECT_EQ(parse(Dictionary, repeated).toMap().value("request").toMap().value("xRequest"), "3");
    const QVariantList list = parse(Array, repeated).toList();
    ASSERT_EQ(list.size(), 2);
    EXPECT_EQ(list[0].toMap().value("xRequest"), "2");

    // Unlisted elements become leaves, or dictionaries when they have children.
    const QVariantList mixed =
        parse(Array, "<results><note>plain</note><request><xRequest>4</xRequest>"
                     "<customer>ignored text<sName>Zoë</sName><results><sEmail>z@x"
                     "</sEmail></results></customer></request></results>")
            .toList();
    ASSERT_EQ(mixed.size(), 2);
    EXPECT_EQ(mixed[0], "plain");
    EXPECT_EQ(mixed[1].toMap().value("customer").toMap(),
              (QVariantMap{{"sName", u"Zoë"_s}, {"sEmail", "z@x"}}));
}

TEST(QKXMLParser, everyTruncationKeepsTheClosedTopLevelValues)
{
    const QVariantList complete = parse(Array, requestList).toList();
    const qsizetype firstRequestEnd = requestList.indexOf("</request>") + 10;
    for (qsizetype length = 0; length < requestList.size(); ++length) {
        SCOPED_TRACE(length);
        QString error;
        const QVariant root = parse(Array, requestList.left(length), &error);
        ASSERT_EQ(root.typeId(), QMetaType::QVariantList);
        const QVariantList partial = root.toList();
        ASSERT_LE(partial.size(), complete.size());
        EXPECT_EQ(partial, complete.mid(0, partial.size()));
        EXPECT_EQ(partial.size() >= 1, length >= firstRequestEnd);
        // Only the final newline may be missing without breaking the document.
        EXPECT_EQ(error.isEmpty(), length == requestList.size() - 1);
    }
}

TEST(QKXMLParser, malformedDataGivesEmptyRootAndError)
{
    const QList<QByteArray> samples = {
        QByteArray(),
        QByteArray("<!DOCTYPE html><html><body><p>Server error<br></body></html>"),
        QByteArray("\xff\xfe\x00<\x00r\x00", 7),
        QByteArray("<results><xRequest>1</xRequestHistory></results>"),
        QByteArray("<results><xRequest>1</xRequest></results><results/>"),
    };
    for (const QByteArray &sample : samples) {
        SCOPED_TRACE(sample.toStdString());
        QString error;
        EXPECT_EQ(parse(Dictionary, sample, &error).typeId(), QMetaType::QVariantMap);
        EXPECT_TRUE(error.contains(u"line"_s)) << error.toStdString();
    }
    // A second document after the first is an error, but the first one's values remain.
    EXPECT_EQ(parse(Dictionary, samples.last()).toMap().value("xRequest"), "1");
}
