#include "QKBundle.h"
#include "QKPropertyList.h"
#include "QKTestEnvironment.h"
#include "QKTestPrinters.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

namespace {

// Two resource folders under the test's HOME with overlapping contents.
class QKBundleFolders : public ::testing::Test
{
protected:
    void SetUp() override
    {
        first = QKTestEnvironment::homePath() + QStringLiteral("/first");
        second = QKTestEnvironment::homePath() + QStringLiteral("/second");
        ASSERT_TRUE(QDir().mkpath(first + QStringLiteral("/manual.pdf")));
        ASSERT_TRUE(QDir().mkpath(second));
        write(first + QStringLiteral("/shortcuts.xml"), "first");
        write(second + QStringLiteral("/shortcuts.xml"), "second");
        write(second + QStringLiteral("/manual.pdf"), "%PDF");
        write(second + QStringLiteral("/README"), "plain");
    }

    static void write(const QString &path, const QByteArray &data)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(data);
    }

    QString first;
    QString second;
};

} // namespace

TEST(QKBundle, mainBundleReadsTheHostsInfoPlist)
{
    const QKBundle *bundle = QKBundle::mainBundle();
    EXPECT_EQ(bundle->resourceRoots().value(0), QStringLiteral(":/"));
    EXPECT_EQ(bundle->objectForInfoDictionaryKey(QStringLiteral("CFBundleName")).toString(),
              QStringLiteral("Test Host"));
    EXPECT_EQ(
        bundle->objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString")).toString(),
        QStringLiteral("2.5b1"));
    EXPECT_EQ(bundle->objectForInfoDictionaryKey(QStringLiteral("CFBundleSignature")).toString(),
              QStringLiteral("TSTH"));
    EXPECT_FALSE(bundle->objectForInfoDictionaryKey(QStringLiteral("NoSuchKey")).isValid());
    EXPECT_EQ(bundle->pathForResource(QStringLiteral("Info"), QStringLiteral("plist")),
              QStringLiteral(":/Info.plist"));
}

TEST_F(QKBundleFolders, resourcesComeFromTheFirstRootThatHasThem)
{
    const QKBundle bundle({first, second});
    EXPECT_EQ(bundle.pathForResource(QStringLiteral("shortcuts"), QStringLiteral("xml")),
              first + QStringLiteral("/shortcuts.xml"));
    EXPECT_EQ(bundle.dataForResource(QStringLiteral("shortcuts"), QStringLiteral("xml")),
              QByteArray("first"));
    // A folder that happens to carry the name is not the resource.
    EXPECT_EQ(bundle.dataForResource(QStringLiteral("manual"), QStringLiteral("pdf")),
              QByteArray("%PDF"));
    EXPECT_EQ(bundle.pathForResource(QStringLiteral("README"), QString()),
              second + QStringLiteral("/README"));

    const QKBundle reversed({second, first});
    EXPECT_EQ(reversed.dataForResource(QStringLiteral("shortcuts"), QStringLiteral("xml")),
              QByteArray("second"));
}

TEST_F(QKBundleFolders, missingResourceGivesNothing)
{
    const QKBundle bundle({first, second});
    EXPECT_TRUE(bundle.pathForResource(QStringLiteral("legal"), QStringLiteral("pdf")).isEmpty());
    EXPECT_TRUE(bundle.dataForResource(QStringLiteral("legal"), QStringLiteral("pdf")).isEmpty());
    EXPECT_TRUE(bundle.pathForResource(QString(), QStringLiteral("xml")).isEmpty());
    EXPECT_TRUE(
        bundle.pathForResource(QStringLiteral("shortcuts"), QStringLiteral("txt")).isEmpty());
    EXPECT_TRUE(
        QKBundle({}).pathForResource(QStringLiteral("shortcuts"), QStringLiteral("xml")).isEmpty());
}

TEST_F(QKBundleFolders, infoDictionaryFollowsTheRootOrder)
{
    ASSERT_TRUE(QKPropertyList::writeFile(
        QVariantMap{{QStringLiteral("CFBundleName"), QStringLiteral("Folder Host")}},
        second + QStringLiteral("/Info.plist"), QKPropertyList::Format::Binary));
    EXPECT_EQ(QKBundle({first, second}).objectForInfoDictionaryKey(QStringLiteral("CFBundleName")),
              QVariant(QStringLiteral("Folder Host")));
    // The Qt resource root wins over a folder, as it does for the host.
    EXPECT_EQ(QKBundle({QStringLiteral(":/"), second})
                  .objectForInfoDictionaryKey(QStringLiteral("CFBundleName")),
              QVariant(QStringLiteral("Test Host")));
}

TEST_F(QKBundleFolders, corruptOrMissingInfoPlistGivesAnEmptyDictionary)
{
    write(first + QStringLiteral("/Info.plist"), "<plist><dict><key>CFBundleName</key>");
    EXPECT_TRUE(QKBundle({first, second}).infoDictionary().isEmpty());
    EXPECT_TRUE(QKBundle({second}).infoDictionary().isEmpty());
}
