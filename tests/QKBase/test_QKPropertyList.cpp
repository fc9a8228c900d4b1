#include "QKPropertyList.h"
#include "QKTestEnvironment.h"
#include "QKTestSupport.h"

#include <QDateTime>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPoint>
#include <QProcess>
#include <QRandomGenerator>
#include <QTimeZone>
#include <QtEndian>

#include <bit>
#include <clocale>
#include <csignal>

#include <sys/resource.h>

using Format = QKPropertyList::Format;
using QKTestEnvironment::homeFile;
using QKTestEnvironment::readAll;

namespace {

QDateTime utc(int year, int month, int day, int hour, int minute, int second, int msec = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second, msec), QTimeZone::utc());
}

// A type-exact picture of a value, the same as data/plist_tool.py gives: integers as
// decimal text, reals as their IEEE bits, dates as milliseconds from 2001, data as hex.
QJsonValue canonical(const QVariant &value)
{
    const auto pair = [](const char *type, const QJsonValue &v) {
        return QJsonArray{QString::fromLatin1(type), v};
    };
    switch (value.typeId()) {
    case QMetaType::Bool:
        return pair("bool", value.toBool());
    case QMetaType::LongLong:
        return pair("int", QString::number(value.toLongLong()));
    case QMetaType::Double:
        return pair(
            "real",
            QString::number(std::bit_cast<quint64>(value.toDouble()), 16).rightJustified(16, u'0'));
    case QMetaType::QString:
        return pair("string", value.toString());
    case QMetaType::QByteArray:
        return pair("data", QString::fromLatin1(value.toByteArray().toHex()));
    case QMetaType::QDateTime:
        return pair("date", QString::number(utc(2001, 1, 1, 0, 0, 0).msecsTo(value.toDateTime())));
    case QMetaType::QVariantList: {
        QJsonArray items;
        for (const QVariant &item : value.toList())
            items.append(canonical(item));
        return pair("array", items);
    }
    case QMetaType::QVariantMap: {
        QJsonObject items;
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            items.insert(it.key(), canonical(it.value()));
        return pair("dict", items);
    }
    default:
        return pair("unexpected", QString::fromLatin1(value.typeName()));
    }
}

std::string json(const QVariant &value)
{
    return QJsonDocument(canonical(value).toArray()).toJson(QJsonDocument::Compact).toStdString();
}

// Runs data/plist_tool.py and returns the canonical JSON of what plistlib read.
std::string plistlib(const QStringList &arguments)
{
    QProcess python;
    python.start(u"python3"_s,
                 QStringList{QKTestEnvironment::sourcePath(u"QKBase/data/plist_tool.py"_s)} +
                     arguments);
    EXPECT_TRUE(python.waitForFinished(60000));
    EXPECT_EQ(python.exitCode(), 0) << python.readAllStandardError().toStdString();
    const QJsonDocument answer = QJsonDocument::fromJson(python.readAllStandardOutput());
    EXPECT_FALSE(answer.isNull());
    return answer.toJson(QJsonDocument::Compact).toStdString();
}

// A big-endian 4-byte object reference.
QByteArray ref(quint32 index)
{
    QByteArray bytes(4, '\0');
    qToBigEndian(index, bytes.data());
    return bytes;
}

// A binary property list of @p objects, references 4 bytes wide, the first object the root.
QByteArray binary(const QList<QByteArray> &objects)
{
    QByteArray data("bplist00");
    QByteArray table;
    for (const QByteArray &object : objects) {
        table += ref(quint32(data.size()));
        data += object;
    }
    QByteArray trailer(32, '\0');
    trailer[6] = trailer[7] = 4;
    qToBigEndian(quint64(objects.size()), trailer.data() + 8);
    qToBigEndian(quint64(data.size()), trailer.data() + 24);
    return data + table + trailer;
}

class PropertyListFormats : public ::testing::TestWithParam<Format>
{
protected:
    // Has plistlib write its tree of every type, with the values that tend to break
    // encoders, in this format to theirs; answers what plistlib reads back.
    std::string writeTheirs() const
    {
        return plistlib(
            {u"write"_s, theirs, GetParam() == Format::Binary ? u"binary"_s : u"xml"_s});
    }
    const QString theirs = homeFile(u"theirs.plist"_s);
};

} // namespace

TEST_P(PropertyListFormats, readsAndWritesWhatPlistlibDoes)
{
    const std::string expected = writeTheirs();
    QString error;
    const QVariant tree = QKPropertyList::readFile(theirs, &error);
    ASSERT_EQ(json(tree), expected) << error.toStdString();

    const QString ours = homeFile(u"ours.plist"_s);
    ASSERT_TRUE(QKPropertyList::writeFile(tree, ours, GetParam(), true, &error))
        << error.toStdString();
    EXPECT_EQ(readAll(ours).startsWith("bplist00"), GetParam() == Format::Binary);
    EXPECT_EQ(plistlib({u"read"_s, ours}), expected);
    EXPECT_EQ(json(QKPropertyList::readFile(ours)), expected);
}

TEST_P(PropertyListFormats, refusesValuesWithoutAPropertyListType)
{
    const QVariantMap nested{{u"where"_s, QPoint(3, 4)}};
    for (const QVariant &value :
         {QVariant(QPoint(1, 2)), QVariant(nested), QVariant(QVariantList{qint64(1), QVariant()}),
          QVariant(), QVariant(QDateTime())}) {
        SCOPED_TRACE(value.typeName() ? value.typeName() : "invalid");
        QString error;
        EXPECT_TRUE(QKPropertyList::toData(value, GetParam(), &error).isEmpty());
        EXPECT_FALSE(error.isEmpty());
    }
    QString error;
    QKPropertyList::toData(nested, GetParam(), &error);
    EXPECT_TRUE(error.contains(u"QPoint"_s)) << error.toStdString();
}

TEST_P(PropertyListFormats, truncatedOrCorruptedDataGivesAnError)
{
    writeTheirs();
    const QVariant tree = QKPropertyList::readFile(theirs);
    const QByteArray data = QKPropertyList::toData(tree, GetParam());
    ASSERT_GT(data.size(), 200);
    for (qsizetype length = 0; length < data.size(); ++length) {
        SCOPED_TRACE(length);
        QString error;
        const QVariant value = QKPropertyList::fromData(data.left(length), &error);
        // Only the line break after "</plist>" may go missing.
        const bool forgivable =
            GetParam() == Format::Xml && length >= data.lastIndexOf("</plist>") + 8;
        EXPECT_TRUE(value.isValid() ? forgivable && json(value) == json(tree) : !error.isEmpty());
    }

    QRandomGenerator random(20240229);
    for (int round = 0; round < 3000; ++round) {
        QByteArray damaged = data;
        for (int flips = 1 + random.bounded(4); flips > 0; --flips)
            damaged[random.bounded(damaged.size())] = char(random.bounded(256));
        QString error;
        const QVariant value = QKPropertyList::fromData(damaged, &error);
        EXPECT_TRUE(value.isValid() || !error.isEmpty()) << "round " << round;
    }
}

INSTANTIATE_TEST_SUITE_P(QKPropertyList, PropertyListFormats,
                         ::testing::Values(Format::Xml, Format::Binary), [](const auto &info) {
                             return info.param == Format::Binary ? "Binary" : "Xml";
                         });

TEST(QKPropertyList, xmlDatesKeepWholeSecondsAndOtherZonesReadBackInUtc)
{
    // Binary lists keep milliseconds, which plistlib's own tree checks.
    const QVariantList dates{utc(2024, 2, 29, 13, 45, 30, 123), utc(1999, 12, 31, 23, 59, 59, 1),
                             utc(2000, 12, 31, 23, 59, 59, 500), utc(2001, 1, 1, 0, 0, 0, 750),
                             utc(1901, 6, 1, 12, 0, 0, 250)};
    QVariantList whole;
    for (const QVariant &date : dates)
        whole << date.toDateTime().addMSecs(-date.toDateTime().time().msec());
    const QString path = homeFile(u"dates.plist"_s);
    ASSERT_TRUE(QKPropertyList::writeFile(dates, path, Format::Xml));
    EXPECT_EQ(json(QKPropertyList::readFile(path)), json(whole));
    EXPECT_EQ(plistlib({u"read"_s, path}), json(whole));

    const QDateTime local(QDate(2023, 7, 14), QTime(9, 30), QTimeZone("Asia/Kathmandu"));
    for (Format format : {Format::Xml, Format::Binary}) {
        const QDateTime back =
            QKPropertyList::fromData(QKPropertyList::toData(local, format)).toDateTime();
        EXPECT_EQ(back.toMSecsSinceEpoch(), local.toMSecsSinceEpoch());
        EXPECT_EQ(back.offsetFromUtc(), 0);
    }
}

TEST(QKPropertyList, acceptsConvertibleQtTypes)
{
    const QVariantHash hash{{u"int"_s, 7},          {u"uint"_s, 4000000000u},
                            {u"float"_s, 1.5f},     {u"strings"_s, QStringList{u"a"_s}},
                            {u"null"_s, QString()}, {u"url"_s, QUrl(u"https://example.org/"_s)}};
    const QVariantMap expected{{u"int"_s, qint64(7)}, {u"uint"_s, qint64(4000000000)},
                               {u"float"_s, 1.5},     {u"strings"_s, QVariantList{u"a"_s}},
                               {u"null"_s, u""_s},    {u"url"_s, u"https://example.org/"_s}};
    EXPECT_EQ(json(QKPropertyList::fromData(QKPropertyList::toData(hash, Format::Binary))),
              json(expected));
}

TEST(QKPropertyList, xmlRealsIgnoreTheUsersNumberFormat)
{
    // Build a comma-decimal locale of our own; the machine may have none installed.
    const QString locales = homeFile(u"locales"_s);
    ASSERT_TRUE(QDir().mkpath(locales));
    ASSERT_EQ(QProcess::execute(u"localedef"_s, {u"-i"_s, u"de_DE"_s, u"-f"_s, u"UTF-8"_s,
                                                 locales + u"/de_DE.UTF-8"_s}),
              0);
    setenv("LOCPATH", QFile::encodeName(locales).constData(), 1);
    ASSERT_NE(setlocale(LC_NUMERIC, "de_DE.UTF-8"), nullptr);
    const QByteArray data = QKPropertyList::toData(QVariantList{2.25, -0.5}, Format::Xml);
    const QVariant back = QKPropertyList::fromData(data);
    setlocale(LC_NUMERIC, "C");
    EXPECT_TRUE(data.contains("<real>2.25</real>")) << data.toStdString();
    EXPECT_EQ(back, QVariant(QVariantList{2.25, -0.5}));
}

TEST(QKPropertyList, garbageHostileAndMissingInputGiveAnError)
{
    // A binary array that contains itself, and XML nested far deeper than any real file.
    QByteArray cycle("bplist00\xa1\x00\x08", 11);
    QByteArray trailer(32, '\0');
    trailer[6] = trailer[7] = trailer[15] = 1;
    trailer[31] = 10;
    const QByteArray inputs[] = {QByteArray(),
                                 "bplist00",
                                 "<plist>",
                                 "<?xml version=\"1.0\"?><plist><dict><key>a</key>",
                                 "{\"json\": true}",
                                 QByteArray(64, '\0'),
                                 cycle + trailer,
                                 "<plist>" + QByteArray("<array>").repeated(100000) +
                                     QByteArray("</array>").repeated(100000) + "</plist>"};
    for (const QByteArray &input : inputs) {
        SCOPED_TRACE(input.left(80).toHex().toStdString());
        QString error;
        EXPECT_FALSE(QKPropertyList::fromData(input, &error).isValid());
        EXPECT_FALSE(error.isEmpty());
    }

    QString error;
    EXPECT_FALSE(QKPropertyList::readFile(homeFile(u"none.plist"_s), &error).isValid());
    EXPECT_FALSE(error.isEmpty());

    QVariant tower = QVariantList();
    for (int i = 0; i < 1000; ++i)
        tower = QVariantList{tower};
    error.clear();
    EXPECT_TRUE(QKPropertyList::toData(tower, Format::Binary, &error).isEmpty());
    EXPECT_FALSE(error.isEmpty());
}

TEST(QKPropertyList, binaryStringsKeepNulAndXmlRefusesWhatItCannotCarry)
{
    const QString text = u"a\0b\u00e9"_s;
    const QVariantMap tree{{u"\u00e9\0b"_s, text}, {u"ascii"_s, u"x\0y"_s}};
    ASSERT_EQ(text.size(), 4);
    const QString ours = homeFile(u"ours.plist"_s);
    ASSERT_TRUE(QKPropertyList::writeFile(tree, ours, Format::Binary));
    EXPECT_EQ(json(QKPropertyList::readFile(ours)), json(tree));
    EXPECT_EQ(plistlib({u"read"_s, ours}), json(tree));

    const QString theirs = homeFile(u"theirs.plist"_s);
    EXPECT_EQ(json(QKPropertyList::readFile(theirs)), plistlib({u"write-nul"_s, theirs}));

    // XML cannot hold these even as references: refused, not altered.
    for (const QString &bad : {text, u"bell\a"_s, QString(QChar(0xffff)), QString(QChar(0xd800))}) {
        QString error;
        EXPECT_TRUE(QKPropertyList::toData(QVariantList{bad}, Format::Xml, &error).isEmpty());
        EXPECT_FALSE(error.isEmpty());
    }
    QString error;
    const QByteArray raw("<plist><dict><key>k</key><string>c\0d</string></dict></plist>", 60);
    EXPECT_FALSE(QKPropertyList::fromData(raw, &error).isValid());
    EXPECT_FALSE(error.isEmpty());
}

TEST(QKPropertyList, carriageReturnsAndNegativeZeroRoundTrip)
{
    const QVariantMap tree{{u"line\rend"_s, u"a\rb\r\nc\n"_s},
                           {u"zero"_s, -0.0},
                           {u"infinite"_s, QVariantList{qInf(), -qInf()}}};
    for (Format format : {Format::Xml, Format::Binary}) {
        const QString path = homeFile(u"cr.plist"_s);
        ASSERT_TRUE(QKPropertyList::writeFile(tree, path, format));
        if (format == Format::Xml) {
            EXPECT_TRUE(readAll(path).contains("a&#13;b&#13;\nc")) << readAll(path).toStdString();
        }
        EXPECT_EQ(json(QKPropertyList::readFile(path)), json(tree));
        EXPECT_EQ(plistlib({u"read"_s, path}), json(tree));
    }
}

TEST(QKPropertyList, invalidValuesMakeTheFileCorrupt)
{
    const auto xml = [](const char *value) {
        return QByteArray("<plist><array>") + value + "</array></plist>";
    };
    for (const char *bad :
         {"<integer>99999999999999999999999</integer>", "<integer>-9223372036854775809</integer>",
          "<integer></integer>", "<integer>12abc</integer>", "<integer>--1</integer>",
          "<integer>1 2</integer>", "<real>one</real>", "<date>not a date</date>",
          "<date>2024-02-30T00:00:00Z</date>", "<date>2024-02-29T13:45:30</date>",
          "<data>not*base64</data>", "<data>QUJD=</data>", "<true>yes</true>",
          "<string>a<b/></string>", "<string>&unknown;</string>", "<color>red</color>"}) {
        SCOPED_TRACE(bad);
        QString error;
        EXPECT_FALSE(QKPropertyList::fromData(xml(bad), &error).isValid());
        EXPECT_FALSE(error.isEmpty());
    }
    const QVariantList good{qint64(-1),
                            qint64(-1),
                            std::numeric_limits<qint64>::min(),
                            qint64(255),
                            utc(2024, 2, 29, 13, 45, 30, 120),
                            QByteArray("ABC")};
    EXPECT_EQ(json(QKPropertyList::fromData(xml("<integer>18446744073709551615</integer>"
                                                "<integer> -1 </integer>"
                                                "<integer>-9223372036854775808</integer>"
                                                "<integer>0xff</integer>"
                                                "<date>2024-02-29T13:45:30.12Z</date>"
                                                "<data>\n\tQUJD\n</data>"))),
              json(good));

    // A 128-bit integer beyond 64 bits, a date of NaN seconds.
    for (const QByteArray &object :
         {QByteArray("\x14\x00\x00\x00\x00\x00\x00\x00\x01\x00\x00\x00\x00\x00\x00\x00\x00", 17),
          QByteArray("\x33\x7f\xf8\x00\x00\x00\x00\x00\x00", 9)}) {
        QString error;
        EXPECT_FALSE(QKPropertyList::fromData(binary({object}), &error).isValid());
        EXPECT_FALSE(error.isEmpty());
    }
}

TEST(QKPropertyList, xmlReadsAsAnyXmlReaderWould)
{
    const QByteArray xml("\xef\xbb\xbf<?xml version='1.0'?>\r\n<!-- note -->\n"
                         "<!DOCTYPE plist PUBLIC \"-//x//EN\" \"a>b.dtd\">\n"
                         "<plist version=\"1.0\" x = 'y'><dict>\r\n<key>a<!-- c --></key>"
                         "<string>1\r\n2\r3<![CDATA[<&]]>&#x41;&#66;&quot;&apos;</string>"
                         "<key/><string/><key>e</key><array/></dict></plist>\n");
    const QVariantMap expected{
        {u"a"_s, u"1\n2\n3<&AB\"'"_s}, {u""_s, u""_s}, {u"e"_s, QVariantList()}};
    QString error;
    EXPECT_EQ(json(QKPropertyList::fromData(xml, &error)), json(expected)) << error.toStdString();

    for (const char *bad :
         {"<plist><string>a</strin></plist>", "<plist><dict></array></plist>",
          "<plist><string>a</string></plist><plist/>", "<plist><string>a</string><true/></plist>",
          "<plist><string>&#1;</string></plist>", "<plist><string>\xff</string></plist>",
          "<plist><dict><string>no key</string></dict></plist>", "<plist/>", "<dict/>",
          "<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><string>&a;</string></plist>",
          "<plist a=b><true/></plist>", "<plist><string><![CDATA[x</string></plist>"}) {
        SCOPED_TRACE(bad);
        EXPECT_FALSE(QKPropertyList::fromData(bad, &error).isValid());
        EXPECT_TRUE(error.contains(u"line 1, column"_s)) << error.toStdString();
    }
}

TEST(QKPropertyList, deepSharedAndLoopingBinaryGraphsAreRefused)
{
    // Each array holds the next: 100,000 deep, as a chain, through every object twice
    // (2^64 values when expanded), and back to the start.
    const auto chain = [](int length, int refs, bool loop) {
        QList<QByteArray> objects;
        for (int i = 0; i < length; ++i)
            objects << QByteArray(1, char(0xa0 + refs)) + ref(i + 1).repeated(refs);
        objects << (loop ? QByteArray("\xa1") + ref(0) : QByteArray("\xa0"));
        return binary(objects);
    };
    for (const QByteArray &data : {chain(100000, 1, false), chain(64, 2, false),
                                   chain(100000, 1, true), binary({"\xa1" + ref(7)})}) {
        QString error;
        EXPECT_FALSE(QKPropertyList::fromData(data, &error).isValid());
        EXPECT_FALSE(error.isEmpty());
    }
    // Sharing within the limits is fine.
    EXPECT_EQ(QKPropertyList::fromData(chain(511, 1, false)).toList().size(), 1);
    EXPECT_EQ(QKPropertyList::fromData(chain(8, 2, false)).toList().size(), 2);
    EXPECT_FALSE(QKPropertyList::fromData(chain(512, 1, false)).isValid());
}

TEST(QKPropertyList, deepXmlIsRefusedAndStringsFullOfEntitiesRead)
{
    const auto nest = [](int depth) {
        return "<plist>" + QByteArray("<dict><key>k</key>").repeated(depth) + "<true/>" +
               QByteArray("</dict>").repeated(depth) + "</plist>";
    };
    EXPECT_TRUE(QKPropertyList::fromData(nest(512)).isValid());
    for (int depth : {513, 1000000}) {
        QString error;
        EXPECT_FALSE(QKPropertyList::fromData(nest(depth), &error).isValid());
        EXPECT_TRUE(error.contains(u"deep"_s)) << error.toStdString();
    }

    const QString lessThan(200000, u'<');
    EXPECT_EQ(QKPropertyList::fromData("<plist><string>" + QByteArray("&lt;").repeated(200000) +
                                       "</string></plist>"),
              QVariant(lessThan));
    const QVariantMap tree{{u"text"_s, u"<&>"_s.repeated(300000)}};
    EXPECT_EQ(QKPropertyList::fromData(QKPropertyList::toData(tree)), QVariant(tree));
}

TEST(QKPropertyList, failedWritesLeaveTheDiskAsItWas)
{
    // A file where the folder belongs: nothing is created, atomically or not.
    const QString blocker = homeFile(u"blocker"_s);
    ASSERT_TRUE(QKTestEnvironment::writeAll(blocker, "not a folder"));
    for (bool atomically : {true, false}) {
        QString error;
        EXPECT_FALSE(QKPropertyList::writeFile(QVariantMap{{u"a"_s, 1}}, blocker + u"/x.plist"_s,
                                               Format::Xml, atomically, &error));
        EXPECT_FALSE(error.isEmpty());
    }
    EXPECT_EQ(readAll(blocker), "not a folder");
    ASSERT_TRUE(QFile::remove(blocker));

    const QString path = homeFile(u"settings.plist"_s);
    ASSERT_TRUE(QKPropertyList::writeFile(QVariantMap{{u"old"_s, true}}, path));
    const QByteArray before = readAll(path);
    // Nothing that cannot be encoded reaches the disk.
    for (bool atomically : {true, false})
        EXPECT_FALSE(QKPropertyList::writeFile(QPoint(1, 1), path, Format::Xml, atomically));
    EXPECT_EQ(readAll(path), before);

    // Root ignores permissions but not the file size limit: let the write itself fail.
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit original{};
    getrlimit(RLIMIT_FSIZE, &original);
    rlimit limit = original;
    limit.rlim_cur = 4096;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    QString error;
    const bool written =
        QKPropertyList::writeFile(QVariantList(2000, u"entry"_s), path, Format::Xml, true, &error);
    setrlimit(RLIMIT_FSIZE, &original);
    EXPECT_FALSE(written);
    EXPECT_FALSE(error.isEmpty());
    EXPECT_EQ(readAll(path), before);
    EXPECT_EQ(QDir(QKTestEnvironment::homePath()).entryList(QDir::Files),
              QStringList{u"settings.plist"_s});
}
