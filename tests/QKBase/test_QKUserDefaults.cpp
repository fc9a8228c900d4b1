#include "QKPropertyList.h"
#include "QKTestEnvironment.h"
#include "QKTestPrinters.h"
#include "QKUserDefaults.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QPoint>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

using QKTestEnvironment::homeFile;
using QKTestEnvironment::readAll;
using QKTestEnvironment::writeAll;

// Collects the warnings one logging category writes while it is alive.
class WarningCollector
{
public:
    explicit WarningCollector(const char *category)
    {
        s_category = category;
        s_messages.clear();
        m_previous = qInstallMessageHandler(
            [](QtMsgType type, const QMessageLogContext &context, const QString &message) {
                if (type == QtWarningMsg && qstrcmp(context.category, s_category) == 0)
                    s_messages << message;
            });
    }
    ~WarningCollector() { qInstallMessageHandler(m_previous); }
    QStringList messages() const { return s_messages; }

private:
    static inline const char *s_category = nullptr;
    static inline QStringList s_messages;
    QtMessageHandler m_previous;
};

} // namespace

TEST(QKUserDefaults, persistentValuesOverrideRegisteredOnes)
{
    QKUserDefaults defaults(homeFile(QStringLiteral("defaults.plist")));
    defaults.registerDefaults({{QStringLiteral("Width"), 640}, {QStringLiteral("Mode"), "basic"}});
    defaults.setObject(800, QStringLiteral("Width"));

    EXPECT_EQ(defaults.integerForKey(QStringLiteral("Width")), 800);
    EXPECT_EQ(defaults.stringForKey(QStringLiteral("Mode")), QStringLiteral("basic"));
    EXPECT_TRUE(defaults.hasKey(QStringLiteral("Mode")));
    EXPECT_FALSE(defaults.hasKey(QStringLiteral("Missing")));
    EXPECT_FALSE(defaults.objectForKey(QStringLiteral("Missing")).isValid());
    // Registered values are never written.
    const QVariantMap stored = QKPropertyList::readFile(defaults.filePath()).toMap();
    EXPECT_EQ(stored.keys(), QStringList{QStringLiteral("Width")});
    EXPECT_EQ(defaults.persistentDomain().keys(), QStringList{QStringLiteral("Width")});

    defaults.removeObjectForKey(QStringLiteral("Width"));
    EXPECT_EQ(defaults.integerForKey(QStringLiteral("Width")), 640);
    EXPECT_TRUE(QKPropertyList::readFile(defaults.filePath()).toMap().isEmpty());
    defaults.setObject(QVariant(), QStringLiteral("Mode"));
    EXPECT_EQ(defaults.stringForKey(QStringLiteral("Mode")), QStringLiteral("basic"));
}

TEST(QKUserDefaults, typedGettersGiveEmptyValuesForOtherTypes)
{
    QKUserDefaults defaults(homeFile(QStringLiteral("defaults.plist")));
    defaults.setObject(QVariantMap{{QStringLiteral("a"), 1}}, QStringLiteral("dict"));
    defaults.setObject(QVariantList{1, 2}, QStringLiteral("list"));
    defaults.setObject(QStringLiteral("hello"), QStringLiteral("text"));
    defaults.setObject(QByteArray("\0\1", 2), QStringLiteral("data"));
    defaults.setDouble(3.7, QStringLiteral("real"));
    defaults.setDouble(-3.7, QStringLiteral("negative"));
    defaults.setInteger(42, QStringLiteral("int"));
    defaults.setObject(QStringLiteral("3.7"), QStringLiteral("realText"));
    defaults.setObject(QStringLiteral("YES"), QStringLiteral("yesText"));
    defaults.setObject(QStringLiteral("no"), QStringLiteral("noText"));

    EXPECT_EQ(defaults.stringForKey(QStringLiteral("dict")), QString());
    EXPECT_EQ(defaults.stringForKey(QStringLiteral("int")), QStringLiteral("42"));
    EXPECT_EQ(defaults.dataForKey(QStringLiteral("text")), QByteArray());
    EXPECT_EQ(defaults.dataForKey(QStringLiteral("data")), QByteArray("\0\1", 2));
    EXPECT_TRUE(defaults.arrayForKey(QStringLiteral("dict")).isEmpty());
    EXPECT_TRUE(defaults.dictionaryForKey(QStringLiteral("list")).isEmpty());
    EXPECT_EQ(defaults.arrayForKey(QStringLiteral("list")).size(), 2);
    EXPECT_EQ(defaults.dictionaryForKey(QStringLiteral("dict")).size(), 1);

    EXPECT_EQ(defaults.integerForKey(QStringLiteral("real")), 3);
    EXPECT_EQ(defaults.integerForKey(QStringLiteral("negative")), -3);
    EXPECT_EQ(defaults.integerForKey(QStringLiteral("realText")), 3);
    EXPECT_EQ(defaults.integerForKey(QStringLiteral("text")), 0);
    EXPECT_EQ(defaults.integerForKey(QStringLiteral("dict")), 0);
    EXPECT_EQ(defaults.integerForKey(QStringLiteral("missing")), 0);
    EXPECT_DOUBLE_EQ(defaults.doubleForKey(QStringLiteral("realText")), 3.7);
    EXPECT_DOUBLE_EQ(defaults.doubleForKey(QStringLiteral("list")), 0);

    EXPECT_TRUE(defaults.boolForKey(QStringLiteral("yesText")));
    EXPECT_TRUE(defaults.boolForKey(QStringLiteral("int")));
    EXPECT_FALSE(defaults.boolForKey(QStringLiteral("noText")));
    EXPECT_FALSE(defaults.boolForKey(QStringLiteral("text")));
    EXPECT_FALSE(defaults.boolForKey(QStringLiteral("dict")));
    EXPECT_FALSE(defaults.boolForKey(QStringLiteral("missing")));
}

TEST(QKUserDefaults, valuesSurviveARestartInTheApplicationsFile)
{
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    const QString expectedPath =
        QKTestEnvironment::homePath() + QStringLiteral("/.config/Velmora/Test Host.plist");
    EXPECT_EQ(defaults->filePath(), expectedPath);

    const QDateTime date(QDate(2024, 2, 29), QTime(13, 45, 30), QTimeZone::utc());
    defaults->setBool(true, QStringLiteral("Flag"));
    defaults->setInteger((qint64(1) << 62) + 1, QStringLiteral("Big"));
    defaults->setDouble(0.1, QStringLiteral("Ratio"));
    defaults->setObject(date, QStringLiteral("When"));
    defaults->setObject(QStringLiteral("Grüße"), QStringLiteral("Name"));
    defaults->setObject(NSStringFromRect(QRectF(613, 97, 375, 259)), QStringLiteral("Frame"));

    QKUserDefaults::resetStandardUserDefaults();
    defaults = QKUserDefaults::standardUserDefaults();
    EXPECT_TRUE(defaults->boolForKey(QStringLiteral("Flag")));
    EXPECT_EQ(defaults->integerForKey(QStringLiteral("Big")), (qint64(1) << 62) + 1);
    EXPECT_EQ(defaults->doubleForKey(QStringLiteral("Ratio")), 0.1);
    EXPECT_EQ(defaults->objectForKey(QStringLiteral("When")).toDateTime(), date);
    EXPECT_EQ(defaults->stringForKey(QStringLiteral("Name")), QStringLiteral("Grüße"));
    EXPECT_EQ(NSRectFromString(defaults->stringForKey(QStringLiteral("Frame"))),
              QRectF(613, 97, 375, 259));
    EXPECT_TRUE(readAll(expectedPath).startsWith("<?xml"));
}

TEST(QKUserDefaults, corruptFileIsIgnoredAndKeptUntilASettingChanges)
{
    const QString path = homeFile(QStringLiteral("config/corrupt.plist"));
    const QByteArray garbage("bplist00 this is not what it claims to be");
    ASSERT_TRUE(writeAll(path, garbage));

    WarningCollector warnings("qk.defaults");
    QKUserDefaults defaults(path);
    ASSERT_EQ(warnings.messages().size(), 1);
    EXPECT_TRUE(warnings.messages().constFirst().contains(path));
    EXPECT_TRUE(defaults.persistentDomain().isEmpty());

    defaults.registerDefaults({{QStringLiteral("Registered"), true}});
    defaults.removeObjectForKey(QStringLiteral("Absent"));
    EXPECT_TRUE(defaults.boolForKey(QStringLiteral("Registered")));
    EXPECT_EQ(readAll(path), garbage);

    defaults.setObject(7, QStringLiteral("Fresh"));
    EXPECT_EQ(QKPropertyList::readFile(path).toMap(),
              QVariantMap({{QStringLiteral("Fresh"), qint64(7)}}));
}

TEST(QKUserDefaults, fileWhoseRootIsNotADictionaryIsIgnored)
{
    const QString path = homeFile(QStringLiteral("array.plist"));
    ASSERT_TRUE(QKPropertyList::writeFile(QVariantList{1, 2}, path));
    WarningCollector warnings("qk.defaults");
    QKUserDefaults defaults(path);
    EXPECT_EQ(warnings.messages().size(), 1);
    EXPECT_TRUE(defaults.persistentDomain().isEmpty());
}

TEST(QKUserDefaults, valueAFileCannotHoldIsRefusedWithoutBlockingLaterSaves)
{
    QKUserDefaults defaults(homeFile(QStringLiteral("defaults.plist")));
    WarningCollector warnings("qk.defaults");
    defaults.setObject(QPoint(4, 5), QStringLiteral("Point"));
    defaults.setObject(QVariantList{1, QVariant()}, QStringLiteral("Holey"));
    EXPECT_EQ(warnings.messages().size(), 2);
    EXPECT_FALSE(defaults.hasKey(QStringLiteral("Point")));

    defaults.setObject(QStringLiteral("kept"), QStringLiteral("Later"));
    EXPECT_EQ(QKPropertyList::readFile(defaults.filePath()).toMap(),
              QVariantMap({{QStringLiteral("Later"), QStringLiteral("kept")}}));
}

TEST(QKUserDefaults, unwritableFolderFailsQuietly)
{
    const QString blocker = homeFile(QStringLiteral("blocker"));
    ASSERT_TRUE(writeAll(blocker, "a file, not a folder"));
    QKUserDefaults defaults(blocker + QStringLiteral("/defaults.plist"));
    WarningCollector warnings("qk.defaults");
    defaults.setObject(1, QStringLiteral("Key"));
    EXPECT_EQ(defaults.integerForKey(QStringLiteral("Key")), 1);
    EXPECT_FALSE(defaults.synchronize());
    EXPECT_EQ(warnings.messages().size(), 2);
}

TEST(QKUserDefaults, concurrentSettersLoseNoKey)
{
    const QString path = homeFile(QStringLiteral("shared.plist"));
    QKUserDefaults defaults(path);
    constexpr int threadCount = 6;
    constexpr int keysPerThread = 40;
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([&defaults, t] {
            for (int k = 0; k < keysPerThread; ++k)
                defaults.setInteger(t * 1000 + k, QStringLiteral("key %1.%2").arg(t).arg(k));
        });
    }
    for (std::thread &thread : threads)
        thread.join();

    EXPECT_EQ(defaults.persistentDomain().size(), threadCount * keysPerThread);
    const QVariantMap onDisk = QKUserDefaults(path).persistentDomain();
    ASSERT_EQ(onDisk.size(), threadCount * keysPerThread);
    for (int t = 0; t < threadCount; ++t) {
        for (int k = 0; k < keysPerThread; ++k)
            EXPECT_EQ(onDisk.value(QStringLiteral("key %1.%2").arg(t).arg(k)).toLongLong(),
                      t * 1000 + k);
    }
}

TEST(QKUserDefaults, rectanglesRoundTripThroughText)
{
    EXPECT_EQ(NSRectFromString(QStringLiteral("{{613, 97}, {375, 259}}")),
              QRectF(613, 97, 375, 259));
    EXPECT_EQ(NSStringFromRect(QRectF(613, 97, 375, 259)),
              QStringLiteral("{{613, 97}, {375, 259}}"));
    EXPECT_EQ(NSStringFromRect(QRectF(-12.5, -0.25, 100.125, 0.1)),
              QStringLiteral("{{-12.5, -0.25}, {100.125, 0.1}}"));
    for (const QRectF &rect : {QRectF(-12.5, -0.25, 100.125, 0.1), QRectF(1e-7, -3e12, 1.0 / 3, 2),
                               QRectF(-1920, -1080, 0, 0)})
        EXPECT_EQ(NSRectFromString(NSStringFromRect(rect)), rect);
    EXPECT_EQ(NSRectFromString(QStringLiteral("{{-5.5,+2},{.5, 1e2}}")), QRectF(-5.5, 2, 0.5, 100));
}

TEST(QKUserDefaults, unreadableRectangleTextGivesTheZeroRectangle)
{
    for (const QString &text : {QString(), QStringLiteral("garbage"),
                                QStringLiteral("{{x, y}, {w, h}}"), QStringLiteral("{{}, {}}")}) {
        const QRectF rect = NSRectFromString(text);
        EXPECT_TRUE(rect.isNull()) << text.toStdString();
        EXPECT_EQ(rect.topLeft(), QPointF());
    }
}
