#include "QKTestSupport.h"
#include "QKXMLParser.h"

namespace {

// The help desk API's configuration.
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
    <sFirstName>Zoë Ångström</sFirstName>
    <sPhone/>
    <history>
      <history_events>
        <fPublic>1</fPublic>
        <tNote><![CDATA[It crashes <b>on start</b>.
Second line & more]]></tNote>
        <xPerson>0</xPerson>
      </history_events>
      <history_events>
        <fPublic>0</fPublic>
        <tNote>Fixed in 2.5 &amp; later</tNote>
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

TEST(QKXMLParser, requestListBecomesArrayOfDictionariesWithNestedHistory)
{
    QString error = u"stale"_s;
    const QVariant root = parse(Array, requestList, &error);
    EXPECT_TRUE(error.isEmpty());
    const QVariantList history{
        QVariantMap{{"fPublic", "1"},
                    {"tNote", "It crashes <b>on start</b>.\nSecond line & more"},
                    {"xPerson", "0"}},
        QVariantMap{{"fPublic", "0"}, {"tNote", "Fixed in 2.5 & later"}}};
    EXPECT_EQ(root, QVariant(QVariantList{QVariantMap{{"xRequest", "12400"},
                                                      {"sFirstName", u"Zoë Ångström"_s},
                                                      {"sPhone", QString()},
                                                      {"history", history}},
                                          QVariantMap{{"xRequest", "12401"},
                                                      {"fOpen", "0"},
                                                      {"history", QVariantList()}}}));
}

TEST(QKXMLParser, repeatedNamesKeepTheLastValueAndUnlistedElementsNest)
{
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
