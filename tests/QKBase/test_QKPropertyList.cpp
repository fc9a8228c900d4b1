#include "QKPropertyList.h"
#include "QKTestEnvironment.h"
#include "QKTestPrinters.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPoint>
#include <QProcess>
#include <QRandomGenerator>
#include <QTimeZone>
#include <QUrl>
#include <QtEndian>

#include <gtest/gtest.h>

#include <clocale>
#include <csignal>
#include <limits>

#include <sys/resource.h>

using Format = QKPropertyList::Format;

namespace {

using QKTestEnvironment::homeFile;
using QKTestEnvironment::readAll;
using QKTestEnvironment::writeAll;

const QDateTime referenceDate(QDate(2001, 1, 1), QTime(0, 0), QTimeZone::utc());

QDateTime utc(int year, int month, int day, int hour, int minute, int second, int msec = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second, msec), QTimeZone::utc());
}

// A type-exact picture of a value, shared with the Python side below: integers as decimal
// text, reals as their IEEE bits, dates as milliseconds from 2001, data as hex.
QJsonValue canonical(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
        return QJsonArray{QStringLiteral("bool"), value.toBool()};
    case QMetaType::LongLong:
        return QJsonArray{QStringLiteral("int"), QString::number(value.toLongLong())};
    case QMetaType::Double: {
        uchar bits[8];
        qToBigEndian<double>(value.toDouble(), bits);
        return QJsonArray{
            QStringLiteral("real"),
            QString::fromLatin1(QByteArray(reinterpret_cast<char *>(bits), 8).toHex())};
    }
    case QMetaType::QString:
        return QJsonArray{QStringLiteral("string"), value.toString()};
    case QMetaType::QByteArray:
        return QJsonArray{QStringLiteral("data"), QString::fromLatin1(value.toByteArray().toHex())};
    case QMetaType::QDateTime:
        return QJsonArray{QStringLiteral("date"),
                          QString::number(referenceDate.msecsTo(value.toDateTime()))};
    case QMetaType::QVariantList: {
        QJsonArray items;
        for (const QVariant &item : value.toList())
            items.append(canonical(item));
        return QJsonArray{QStringLiteral("array"), items};
    }
    case QMetaType::QVariantMap: {
        QJsonObject items;
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            items.insert(it.key(), canonical(it.value()));
        return QJsonArray{QStringLiteral("dict"), items};
    }
    default:
        return QJsonArray{QStringLiteral("unexpected"), QString::fromLatin1(value.typeName())};
    }
}

const char *pythonCanonical = R"(
import datetime, json, plistlib, struct, sys
reference = datetime.datetime(2001, 1, 1)
def canonical(v):
    if isinstance(v, bool): return ['bool', v]
    if isinstance(v, int): return ['int', str(v)]
    if isinstance(v, float): return ['real', struct.pack('>d', v).hex()]
    if isinstance(v, str): return ['string', v]
    if isinstance(v, bytes): return ['data', v.hex()]
    if isinstance(v, datetime.datetime):
        return ['date', str(round((v - reference) / datetime.timedelta(milliseconds=1)))]
    if isinstance(v, list): return ['array', [canonical(x) for x in v]]
    if isinstance(v, dict): return ['dict', {k: canonical(x) for k, x in v.items()}]
    return ['unexpected', type(v).__name__]
)";

// Python writes a tree of its own choosing and prints what plistlib reads back from it.
const char *pythonWriter = R"(
D = datetime.datetime
value = {
    'text': 'Gr\u00fc\u00dfe \u65e5\u672c\u8a9e \U0001F3B9 <tag> & "quoted" \'single\' ]]>',
    'ascii': 'plain', 'empty': '',
    'integers': [0, 1, -1, 127, 128, 255, 256, -128, -129, 65535, 65536, -32769,
                 2**31, -2**31 - 1, 2**32, 2**63 - 1, -2**63],
    'reals': [0.0, 0.1, -2.5e-300, 1e300, 1 / 3, -7.25],
    'booleans': [True, False],
    'dates': [D(2024, 2, 29, 13, 45, 30, 123000), D(1969, 7, 20, 20, 17, 40, 250000),
              D(2001, 1, 1), D(2000, 12, 31, 23, 59, 59, 500000), D(2001, 1, 1, 0, 0, 0, 750000),
              D(1850, 3, 4, 5, 6, 7), D(2200, 1, 1)],
    'data': b'\x00\x01\xff\x00tail\x00', 'no data': b'',
    'nested': {'list': [{}, [], {'k': [1, {'deep': True}]}]},
    'keys': {'\u00fcn\u00efcode key': 1, '<tag>&amp;': 2},
}
fmt = plistlib.FMT_BINARY if sys.argv[2] == 'binary' else plistlib.FMT_XML
with open(sys.argv[1], 'wb') as f:
    plistlib.dump(value, f, fmt=fmt)
with open(sys.argv[1], 'rb') as f:
    print(json.dumps(canonical(plistlib.load(f))))
)";

const char *pythonReader = R"(
with open(sys.argv[1], 'rb') as f:
    print(json.dumps(canonical(plistlib.load(f))))
)";

// Runs a Python script over the plist helpers above and returns its JSON answer.
QJsonValue runPython(const char *script, const QStringList &arguments)
{
    QProcess python;
    python.start(QStringLiteral("python3"),
                 QStringList{QStringLiteral("-c"),
                             QString::fromUtf8(pythonCanonical) + QString::fromUtf8(script)} +
                     arguments);
    EXPECT_TRUE(python.waitForFinished(60000));
    EXPECT_EQ(python.exitCode(), 0) << python.readAllStandardError().toStdString();
    QJsonParseError error;
    const QJsonDocument answer = QJsonDocument::fromJson(python.readAllStandardOutput(), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << error.errorString().toStdString();
    return answer.array();
}

std::string json(const QJsonValue &value)
{
    return QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact).toStdString();
}

// Every type, with the values that tend to break encoders. Dates are whole seconds so that
// the tree survives XML too.
QVariantMap sampleTree()
{
    QVariantList integers;
    for (qint64 n : {qint64(0), qint64(1), qint64(-1), qint64(255), qint64(256), qint64(-129),
                     qint64(65536), qint64(1) << 31, qint64(1) << 32, qint64(-5000000000),
                     std::numeric_limits<qint64>::max(), std::numeric_limits<qint64>::min()})
        integers << QVariant::fromValue(n);
    return {
        {QStringLiteral("text"), QStringLiteral("Grüße 日本語 🎹")},
        {QStringLiteral("markup"), QStringLiteral("<a href=\"x\">&amp; 'q' ]]></a>")},
        {QStringLiteral("empty"), QString()},
        {QStringLiteral("integers"), integers},
        {QStringLiteral("reals"), QVariantList{0.1, -2.5e-300, 1e300, 1.0 / 3, -7.25, 0.0}},
        {QStringLiteral("yes"), true},
        {QStringLiteral("no"), false},
        {QStringLiteral("dates"),
         QVariantList{utc(2024, 2, 29, 13, 45, 30), utc(1969, 7, 20, 20, 17, 40),
                      utc(2000, 12, 31, 23, 59, 59), referenceDate, utc(1850, 3, 4, 5, 6, 7),
                      utc(2200, 1, 1, 0, 0, 0)}},
        {QStringLiteral("data"), QByteArray("\0\x01\xff\0tail\0", 9)},
        {QStringLiteral("no data"), QByteArray()},
        {QStringLiteral("nested"),
         QVariantMap{
             {QStringLiteral("list"), QVariantList{QVariantMap(), QVariantList(),
                                                   QVariantMap{{QStringLiteral("ünïcode & <key>"),
                                                                QVariantList{qint64(1), true}}}}}}},
    };
}

class PropertyListFormats : public ::testing::TestWithParam<Format>
{
protected:
    QString formatName() const
    {
        return GetParam() == Format::Binary ? QStringLiteral("binary") : QStringLiteral("xml");
    }
};

} // namespace

TEST_P(PropertyListFormats, roundTripKeepsEveryTypeAndValue)
{
    const QVariantMap tree = sampleTree();
    QString error;
    const QByteArray data = QKPropertyList::toData(tree, GetParam(), &error);
    ASSERT_FALSE(data.isEmpty()) << error.toStdString();
    EXPECT_EQ(data.startsWith("bplist00"), GetParam() == Format::Binary);
    const QVariant back = QKPropertyList::fromData(data, &error);
    EXPECT_EQ(json(canonical(back)), json(canonical(tree)));
}

TEST_P(PropertyListFormats, writtenFilesReadTheSameInPlistlib)
{
    const QVariantMap tree = sampleTree();
    const QString path = homeFile(QStringLiteral("ours.plist"));
    QString error;
    ASSERT_TRUE(QKPropertyList::writeFile(tree, path, GetParam(), true, &error))
        << error.toStdString();
    EXPECT_EQ(json(runPython(pythonReader, {path})), json(canonical(tree)));
}

TEST_P(PropertyListFormats, readsWhatPlistlibWrites)
{
    const QString path = homeFile(QStringLiteral("theirs.plist"));
    const QJsonValue expected = runPython(pythonWriter, {path, formatName()});
    ASSERT_TRUE(expected.isArray());
    QString error;
    const QVariant value = QKPropertyList::readFile(path, &error);
    ASSERT_TRUE(value.isValid()) << error.toStdString();
    EXPECT_EQ(json(canonical(value)), json(expected));
}

TEST_P(PropertyListFormats, refusesValuesWithoutAPropertyListType)
{
    const QVariantMap nested{{QStringLiteral("where"), QPoint(3, 4)}};
    for (const QVariant &value : {QVariant(QPoint(1, 2)), QVariant(nested),
                                  QVariant(QVariantList{qint64(1), QVariant()}), QVariant()}) {
        QString error;
        EXPECT_TRUE(QKPropertyList::toData(value, GetParam(), &error).isEmpty());
        EXPECT_FALSE(error.isEmpty());
    }
    QString error;
    QKPropertyList::toData(nested, GetParam(), &error);
    EXPECT_TRUE(error.contains(QLatin1String("QPoint"))) << error.toStdString();
}

TEST_P(PropertyListFormats, truncatedDataIsRejected)
{
    const QVariantMap tree = sampleTree();
    const QByteArray data = QKPropertyList::toData(tree, GetParam());
    ASSERT_GT(data.size(), 200);
    for (qsizetype length = 0; length < data.size(); ++length) {
        QString error;
        const QVariant value = QKPropertyList::fromData(data.left(length), &error);
        // libplist forgives a missing "</plist>"; nothing may be lost though.
        if (value.isValid()) {
            EXPECT_EQ(json(canonical(value)), json(canonical(tree))) << "length " << length;
        } else {
            EXPECT_FALSE(error.isEmpty()) << "length " << length;
        }
        if (GetParam() == Format::Binary || length < data.lastIndexOf("</dict>")) {
            EXPECT_FALSE(value.isValid()) << "length " << length;
        }
    }
}

TEST_P(PropertyListFormats, corruptedBytesNeverCrash)
{
    const QByteArray data = QKPropertyList::toData(sampleTree(), GetParam());
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

void PrintTo(Format format, std::ostream *out)
{
    *out << (format == Format::Binary ? "Binary" : "Xml");
}

INSTANTIATE_TEST_SUITE_P(QKPropertyList, PropertyListFormats,
                         ::testing::Values(Format::Xml, Format::Binary), [](const auto &info) {
                             return info.param == Format::Binary ? "Binary" : "Xml";
                         });

TEST(QKPropertyList, binaryKeepsMillisecondsAroundTheReferenceDate)
{
    const QVariantList dates{utc(2024, 2, 29, 13, 45, 30, 123),  utc(1999, 12, 31, 23, 59, 59, 1),
                             utc(2000, 12, 31, 23, 59, 58, 500), utc(2000, 12, 31, 23, 59, 59, 500),
                             utc(2001, 1, 1, 0, 0, 0, 750),      utc(1901, 6, 1, 12, 0, 0, 250),
                             utc(2100, 6, 1, 12, 0, 0, 999)};
    const QString path = homeFile(QStringLiteral("dates.plist"));
    ASSERT_TRUE(QKPropertyList::writeFile(dates, path, Format::Binary));
    EXPECT_EQ(json(canonical(QKPropertyList::readFile(path))), json(canonical(dates)));
    EXPECT_EQ(json(runPython(pythonReader, {path})), json(canonical(dates)));
}

TEST(QKPropertyList, xmlRoundsDatesDownToWholeSeconds)
{
    const QVariantList dates{utc(2024, 2, 29, 13, 45, 30, 999), utc(2000, 12, 31, 23, 59, 58, 500),
                             utc(2000, 12, 31, 23, 59, 59, 500)};
    const QVariantList expected{utc(2024, 2, 29, 13, 45, 30), utc(2000, 12, 31, 23, 59, 58),
                                utc(2000, 12, 31, 23, 59, 59)};
    const QString path = homeFile(QStringLiteral("dates.plist"));
    ASSERT_TRUE(QKPropertyList::writeFile(dates, path, Format::Xml));
    EXPECT_EQ(json(canonical(QKPropertyList::readFile(path))), json(canonical(expected)));
    EXPECT_EQ(json(runPython(pythonReader, {path})), json(canonical(expected)));
}

TEST(QKPropertyList, datesInOtherTimeZonesAreStoredAsTheSameInstant)
{
    const QDateTime local(QDate(2023, 7, 14), QTime(9, 30),
                          QTimeZone(QByteArrayLiteral("Asia/Kathmandu")));
    for (Format format : {Format::Xml, Format::Binary}) {
        const QVariant back = QKPropertyList::fromData(QKPropertyList::toData(local, format));
        EXPECT_EQ(back.toDateTime().toMSecsSinceEpoch(), local.toMSecsSinceEpoch());
        EXPECT_EQ(back.toDateTime().offsetFromUtc(), 0);
    }
}

TEST(QKPropertyList, acceptsConvertibleQtTypes)
{
    const QVariantHash hash{{QStringLiteral("int"), 7},
                            {QStringLiteral("uint"), 4000000000u},
                            {QStringLiteral("float"), 1.5f},
                            {QStringLiteral("strings"), QStringList{QStringLiteral("a")}},
                            {QStringLiteral("url"), QUrl(QStringLiteral("https://example.org/"))}};
    const QVariant back = QKPropertyList::fromData(QKPropertyList::toData(hash, Format::Binary));
    const QVariantMap expected{{QStringLiteral("int"), qint64(7)},
                               {QStringLiteral("uint"), qint64(4000000000)},
                               {QStringLiteral("float"), 1.5},
                               {QStringLiteral("strings"), QVariantList{QStringLiteral("a")}},
                               {QStringLiteral("url"), QStringLiteral("https://example.org/")}};
    EXPECT_EQ(json(canonical(back)), json(canonical(expected)));
}

TEST(QKPropertyList, refusesDatesNoPropertyListCanHold)
{
    QString error;
    EXPECT_TRUE(QKPropertyList::toData(QDateTime(), Format::Xml, &error).isEmpty());
    EXPECT_FALSE(error.isEmpty());
}

TEST(QKPropertyList, xmlRealsIgnoreTheUsersNumberFormat)
{
    // Build a comma-decimal locale of our own; the machine may have none installed.
    const QString locales = homeFile(QStringLiteral("locales"));
    ASSERT_TRUE(QDir().mkpath(locales));
    ASSERT_EQ(
        QProcess::execute(QStringLiteral("localedef"),
                          {QStringLiteral("-i"), QStringLiteral("de_DE"), QStringLiteral("-f"),
                           QStringLiteral("UTF-8"), locales + QStringLiteral("/de_DE.UTF-8")}),
        0);
    setenv("LOCPATH", QFile::encodeName(locales).constData(), 1);
    ASSERT_NE(setlocale(LC_NUMERIC, "de_DE.UTF-8"), nullptr);
    const QByteArray data = QKPropertyList::toData(QVariantList{2.25, -0.5}, Format::Xml);
    const QVariant back = QKPropertyList::fromData(data);
    setlocale(LC_NUMERIC, "C");
    EXPECT_TRUE(data.contains("<real>2.25</real>")) << data.toStdString();
    EXPECT_EQ(back, QVariant(QVariantList{2.25, -0.5}));
}

TEST(QKPropertyList, garbageAndEmptyInputGiveAnError)
{
    QRandomGenerator random(7);
    QList<QByteArray> inputs{QByteArray(),
                             QByteArray("bplist00"),
                             QByteArray("<plist>"),
                             QByteArray("<?xml version=\"1.0\"?><plist><dict><key>a</key>"),
                             QByteArray("{\"json\": true}"),
                             QByteArray(64, '\0')};
    for (int i = 0; i < 500; ++i) {
        QByteArray bytes(1 + random.bounded(600), Qt::Uninitialized);
        for (char &byte : bytes)
            byte = char(random.bounded(256));
        // Half of them claim to be binary, so the binary parser meets garbage too.
        inputs << (i % 2 ? QByteArray("bplist00") + bytes : bytes);
    }
    for (const QByteArray &input : inputs) {
        QString error;
        EXPECT_FALSE(QKPropertyList::fromData(input, &error).isValid())
            << input.toHex().toStdString();
        EXPECT_FALSE(error.isEmpty());
    }
}

TEST(QKPropertyList, stringsHoldingNulDoNotAbort)
{
    // U+0000 in a UTF-16 key makes libplist assert; in XML it arrives as a raw byte.
    const QString path = homeFile(QStringLiteral("nul.plist"));
    const QJsonValue written = runPython(R"(
value = {'\u00e9\x00b': 'v'}
with open(sys.argv[1], 'wb') as f:
    plistlib.dump(value, f, fmt=plistlib.FMT_BINARY)
print(json.dumps(canonical(value)))
)",
                                         {path});
    ASSERT_TRUE(written.isArray());
    QString error;
    EXPECT_FALSE(QKPropertyList::readFile(path, &error).isValid());
    EXPECT_FALSE(error.isEmpty());

    const QByteArray xml("<plist><dict><key>k</key><string>c\0d</string></dict></plist>", 60);
    const QVariant value = QKPropertyList::fromData(xml, &error);
    EXPECT_TRUE(value.toMap().value(QStringLiteral("k")).toString().startsWith(QLatin1Char('c')));
}

TEST(QKPropertyList, hostileStructureIsRejected)
{
    // A binary array that contains itself, and XML nested far deeper than any real file.
    QByteArray cycle("bplist00\xa1\x00\x08", 11);
    QByteArray trailer(32, '\0');
    trailer[6] = 1;
    trailer[7] = 1;
    trailer[15] = 1;
    trailer[31] = 10;
    cycle += trailer;
    const QByteArray deep = "<plist>" + QByteArray("<array>").repeated(100000) +
                            QByteArray("</array>").repeated(100000) + "</plist>";
    for (const QByteArray &input : {cycle, deep}) {
        QString error;
        EXPECT_FALSE(QKPropertyList::fromData(input, &error).isValid());
        EXPECT_FALSE(error.isEmpty());
    }
    QVariant tower = QVariantList();
    for (int i = 0; i < 1000; ++i)
        tower = QVariantList{tower};
    QString error;
    EXPECT_TRUE(QKPropertyList::toData(tower, Format::Binary, &error).isEmpty());
    EXPECT_FALSE(error.isEmpty());
}

TEST(QKPropertyList, missingFileGivesAnError)
{
    QString error;
    EXPECT_FALSE(
        QKPropertyList::readFile(homeFile(QStringLiteral("none.plist")), &error).isValid());
    EXPECT_FALSE(error.isEmpty());
}

TEST(QKPropertyList, failedWriteIntoAFileAsFolderCreatesNothing)
{
    const QString blocker = homeFile(QStringLiteral("blocker"));
    ASSERT_TRUE(writeAll(blocker, "not a folder"));
    for (bool atomically : {true, false}) {
        QString error;
        EXPECT_FALSE(QKPropertyList::writeFile(sampleTree(), blocker + QStringLiteral("/x.plist"),
                                               Format::Xml, atomically, &error));
        EXPECT_FALSE(error.isEmpty());
    }
    EXPECT_EQ(readAll(blocker), QByteArray("not a folder"));
}

TEST(QKPropertyList, failedAtomicWriteLeavesTheOldFileIntact)
{
    const QString path = homeFile(QStringLiteral("settings.plist"));
    const QVariantMap old{{QStringLiteral("old"), true}};
    ASSERT_TRUE(QKPropertyList::writeFile(old, path));
    const QByteArray before = readAll(path);

    // Nothing that cannot be encoded reaches the disk, atomically or not.
    for (bool atomically : {true, false})
        EXPECT_FALSE(QKPropertyList::writeFile(QPoint(1, 1), path, Format::Xml, atomically));
    EXPECT_EQ(readAll(path), before);

    // Root ignores permissions but not the file size limit: let the write itself fail.
    QVariantList big;
    for (int i = 0; i < 2000; ++i)
        big << QStringLiteral("entry %1").arg(i);
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit original{};
    getrlimit(RLIMIT_FSIZE, &original);
    rlimit limit = original;
    limit.rlim_cur = 4096;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    QString error;
    const bool written = QKPropertyList::writeFile(big, path, Format::Xml, true, &error);
    setrlimit(RLIMIT_FSIZE, &original);

    EXPECT_FALSE(written);
    EXPECT_FALSE(error.isEmpty());
    EXPECT_EQ(readAll(path), before);
    EXPECT_EQ(QDir(QKTestEnvironment::homePath()).entryList(QDir::Files),
              QStringList{QStringLiteral("settings.plist")});
}
