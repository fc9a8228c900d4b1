#include "QKPropertyList.h"
#include "QKTestEnvironment.h"
#include "QKTestSupport.h"
#include "QKUserDefaults.h"

#include <QDir>
#include <QFile>
#include <QPoint>

#include <thread>
#include <vector>

using QKTestEnvironment::homeFile;

namespace {

QVariantMap onDisk(const QKUserDefaults &defaults)
{
    return QKPropertyList::readFile(defaults.filePath()).toMap();
}

} // namespace

TEST(QKUserDefaults, persistentValuesOverrideRegisteredOnes)
{
    QKUserDefaults defaults(homeFile(u"defaults.plist"_s));
    defaults.registerDefaults({{u"Width"_s, 640}, {u"Mode"_s, "basic"}});
    defaults.setObject(800, u"Width"_s);
    EXPECT_EQ(defaults.integerForKey(u"Width"_s), 800);
    EXPECT_TRUE(defaults.hasKey(u"Mode"_s));
    EXPECT_FALSE(defaults.hasKey(u"Missing"_s));
    // Registered values are never written.
    EXPECT_EQ(onDisk(defaults), QVariantMap({{u"Width"_s, qint64(800)}}));
    EXPECT_EQ(defaults.persistentDomain().keys(), QStringList{u"Width"_s});

    defaults.removeObjectForKey(u"Width"_s);
    EXPECT_EQ(defaults.integerForKey(u"Width"_s), 640);
    EXPECT_TRUE(onDisk(defaults).isEmpty());
    defaults.setObject(QVariant(), u"Mode"_s);
    EXPECT_EQ(defaults.stringForKey(u"Mode"_s), u"basic"_s);
}

TEST(QKUserDefaults, typedGettersGiveEmptyValuesForOtherTypes)
{
    QKUserDefaults defaults(homeFile(u"defaults.plist"_s));
    const QVariantMap stored{{u"dict"_s, QVariantMap{{u"a"_s, 1}}},
                             {u"list"_s, QVariantList{1, 2}},
                             {u"text"_s, u"hello"_s},
                             {u"real"_s, 3.7},
                             {u"negative"_s, -3.7},
                             {u"int"_s, 42},
                             {u"realText"_s, u"3.7"_s},
                             {u"yesText"_s, u"YES"_s},
                             {u"noText"_s, u"no"_s}};
    for (auto it = stored.cbegin(); it != stored.cend(); ++it)
        defaults.setObject(it.value(), it.key());

    EXPECT_EQ(defaults.stringForKey(u"dict"_s), QString());
    EXPECT_EQ(defaults.stringForKey(u"int"_s), u"42"_s);
    EXPECT_EQ(defaults.dataForKey(u"text"_s), QByteArray());
    EXPECT_TRUE(defaults.arrayForKey(u"dict"_s).isEmpty());
    EXPECT_TRUE(defaults.dictionaryForKey(u"list"_s).isEmpty());
    EXPECT_DOUBLE_EQ(defaults.doubleForKey(u"realText"_s), 3.7);
    EXPECT_DOUBLE_EQ(defaults.doubleForKey(u"list"_s), 0);
    const std::pair<const char *, qint64> integers[] = {
        {"real", 3}, {"negative", -3}, {"realText", 3}, {"text", 0}, {"dict", 0}, {"missing", 0}};
    for (const auto &[key, value] : integers)
        EXPECT_EQ(defaults.integerForKey(QString::fromLatin1(key)), value) << key;
    const std::pair<const char *, bool> booleans[] = {{"yesText", true}, {"int", true},
                                                      {"noText", false}, {"text", false},
                                                      {"dict", false},   {"missing", false}};
    for (const auto &[key, value] : booleans)
        EXPECT_EQ(defaults.boolForKey(QString::fromLatin1(key)), value) << key;
}

TEST(QKUserDefaults, theApplicationsValuesLiveInAnXmlListInItsConfigFolder)
{
    QKUserDefaults::standardUserDefaults()->setDouble(0.1, u"Ratio"_s);
    const QString path = homeFile(u".config/Velmora/Test Host.plist"_s);
    EXPECT_TRUE(QKTestEnvironment::readAll(path).startsWith("<?xml"));
    QKUserDefaults::resetStandardUserDefaults();
    EXPECT_EQ(QKUserDefaults::standardUserDefaults()->doubleForKey(u"Ratio"_s), 0.1);

    // A relative XDG_CONFIG_HOME is ignored; an absolute one moves the file.
    qputenv("XDG_CONFIG_HOME", "relative");
    QKUserDefaults::resetStandardUserDefaults();
    EXPECT_EQ(QKUserDefaults::standardUserDefaults()->filePath(), path);
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(homeFile(u"elsewhere"_s)));
    QKUserDefaults::resetStandardUserDefaults();
    EXPECT_EQ(QKUserDefaults::standardUserDefaults()->filePath(),
              homeFile(u"elsewhere/Velmora/Test Host.plist"_s));
}

TEST(QKUserDefaults, unreadableFilesAreIgnoredAndKeptAsideWhenASettingChanges)
{
    const QString corrupt = homeFile(u"config/corrupt.plist"_s);
    const QByteArray garbage("bplist00 this is not what it claims to be");
    ASSERT_TRUE(QKTestEnvironment::writeAll(corrupt, garbage));
    const QString array = homeFile(u"array.plist"_s);
    ASSERT_TRUE(QKPropertyList::writeFile(QVariantList{1, 2}, array));

    for (const QString &path : {corrupt, array}) {
        MessageCapture capture;
        QKUserDefaults defaults(path);
        const QStringList warnings = capture.messages("qk.defaults");
        ASSERT_EQ(warnings.size(), 1) << path.toStdString();
        EXPECT_TRUE(warnings.first().contains(path));
        EXPECT_TRUE(defaults.persistentDomain().isEmpty());
    }

    QKUserDefaults defaults(corrupt);
    defaults.registerDefaults({{u"Registered"_s, true}});
    defaults.removeObjectForKey(u"Absent"_s);
    EXPECT_TRUE(defaults.boolForKey(u"Registered"_s));
    EXPECT_EQ(QKTestEnvironment::readAll(corrupt), garbage);
    const QString backup = corrupt + u".corrupt"_s;
    ASSERT_TRUE(QKTestEnvironment::writeAll(backup, "an older unreadable file"));
    defaults.setObject(7, u"Fresh"_s);
    EXPECT_EQ(onDisk(defaults), QVariantMap({{u"Fresh"_s, qint64(7)}}));
    EXPECT_EQ(QKTestEnvironment::readAll(backup), garbage);
    defaults.setObject(8, u"Later"_s);
    EXPECT_EQ(QKTestEnvironment::readAll(backup), garbage);

    // Where the copy cannot be made, the unreadable file stays as it is.
    QKUserDefaults blocked(array);
    ASSERT_TRUE(QDir().mkpath(array + u".corrupt/inside"_s));
    MessageCapture capture;
    blocked.setObject(1, u"Key"_s);
    EXPECT_EQ(QKPropertyList::readFile(array), QVariant(QVariantList{qint64(1), qint64(2)}));
    EXPECT_EQ(capture.messages("qk.defaults").size(), 1);
}

TEST(QKUserDefaults, unstorableValuesAndUnwritableFoldersFailQuietly)
{
    const QString blocker = homeFile(u"blocker"_s);
    ASSERT_TRUE(QKTestEnvironment::writeAll(blocker, "a file, not a folder"));
    QKUserDefaults blocked(blocker + u"/defaults.plist"_s);
    QKUserDefaults defaults(homeFile(u"defaults.plist"_s));
    MessageCapture capture;
    defaults.setObject(QPoint(4, 5), u"Point"_s);
    defaults.setObject(QVariantList{1, QVariant()}, u"Holey"_s);
    defaults.setObject(u"bell\a"_s, u"Bell"_s); // fine in binary, not in the XML file
    EXPECT_EQ(capture.messages("qk.defaults").size(), 3);
    EXPECT_FALSE(defaults.hasKey(u"Point"_s));
    // Later saves are not blocked.
    defaults.setObject(u"kept"_s, u"Later"_s);
    EXPECT_EQ(onDisk(defaults), QVariantMap({{u"Later"_s, u"kept"_s}}));

    blocked.setObject(1, u"Key"_s);
    EXPECT_EQ(blocked.integerForKey(u"Key"_s), 1);
    EXPECT_FALSE(blocked.synchronize());
    EXPECT_EQ(capture.messages("qk.defaults").size(), 5);
}

TEST(QKUserDefaults, concurrentSettersLoseNoKey)
{
    const QString path = homeFile(u"shared.plist"_s);
    QKUserDefaults defaults(path);
    constexpr int threadCount = 6, keysPerThread = 40;
    {
        std::vector<std::jthread> threads;
        for (int t = 0; t < threadCount; ++t) {
            threads.emplace_back([&defaults, t] {
                for (int k = 0; k < keysPerThread; ++k)
                    defaults.setInteger(t * 1000 + k, u"key %1"_s.arg(t * 1000 + k));
            });
        }
    }
    EXPECT_EQ(defaults.persistentDomain().size(), threadCount * keysPerThread);
    const QVariantMap stored = QKUserDefaults(path).persistentDomain();
    ASSERT_EQ(stored.size(), threadCount * keysPerThread);
    for (auto it = stored.cbegin(); it != stored.cend(); ++it)
        EXPECT_EQ(u"key %1"_s.arg(it.value().toLongLong()), it.key());
}

TEST(QKUserDefaults, rectanglesRoundTripThroughText)
{
    EXPECT_EQ(NSRectFromString(u"{{613, 97}, {375, 259}}"_s), QRectF(613, 97, 375, 259));
    EXPECT_EQ(NSStringFromRect(QRectF(-12.5, -0.25, 100.125, 0.1)),
              u"{{-12.5, -0.25}, {100.125, 0.1}}"_s);
    for (const QRectF &rect : {QRectF(-12.5, -0.25, 100.125, 0.1), QRectF(1e-7, -3e12, 1.0 / 3, 2),
                               QRectF(-1920, -1080, 0, 0)})
        EXPECT_EQ(NSRectFromString(NSStringFromRect(rect)), rect);
    EXPECT_EQ(NSRectFromString(u"{{-5.5,+2},{.5, 1e2}}"_s), QRectF(-5.5, 2, 0.5, 100));

    // Unreadable text gives the zero rectangle.
    for (const QString &text : {QString(), u"garbage"_s, u"{{x, y}, {w, h}}"_s, u"{{}, {}}"_s}) {
        const QRectF rect = NSRectFromString(text);
        EXPECT_TRUE(rect.isNull() && rect.topLeft().isNull()) << text.toStdString();
    }
}
