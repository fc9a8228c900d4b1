#include "QKBundle.h"
#include "QKPropertyList.h"
#include "QKTestEnvironment.h"
#include "QKTestSupport.h"

#include <QDir>
#include <QFile>

using QKTestEnvironment::homeFile;
using QKTestEnvironment::writeAll;

namespace {

// Two resource folders under the test's HOME with overlapping contents.
class QKBundleFolders : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(QDir().mkpath(first + u"/manual.pdf"_s));
        ASSERT_TRUE(writeAll(first + u"/shortcuts.xml"_s, "first"));
        ASSERT_TRUE(writeAll(second + u"/shortcuts.xml"_s, "second"));
        ASSERT_TRUE(writeAll(second + u"/manual.pdf"_s, "%PDF"));
        ASSERT_TRUE(writeAll(second + u"/README"_s, "plain"));
    }

    const QString first = homeFile(u"first"_s);
    const QString second = homeFile(u"second"_s);
};

} // namespace

TEST(QKBundle, mainAndLibraryBundlesReadTheirOwnInfoPlists)
{
    const QKBundle *bundle = QKBundle::mainBundle();
    EXPECT_EQ(bundle->resourceRoots().value(0), u":/"_s);
    const std::pair<const char *, const char *> keys[] = {{"CFBundleName", "Test Host"},
                                                          {"CFBundleShortVersionString", "2.5b1"},
                                                          {"CFBundleSignature", "TSTH"}};
    for (const auto &[key, value] : keys)
        EXPECT_EQ(bundle->objectForInfoDictionaryKey(QString::fromLatin1(key)), value) << key;
    EXPECT_FALSE(bundle->objectForInfoDictionaryKey(u"NoSuchKey"_s).isValid());
    EXPECT_EQ(bundle->pathForResource(u"Info"_s, u"plist"_s), u":/Info.plist"_s);

    const QKBundle *library = QKBundle::libraryBundle();
    EXPECT_EQ(library->objectForInfoDictionaryKey(u"CFBundleName"_s), "QKUtilities");
    EXPECT_FALSE(library->pathForResource(u"Info"_s, u"plist"_s).isEmpty());
    EXPECT_NE(library->infoDictionary(), bundle->infoDictionary());
}

TEST_F(QKBundleFolders, resourcesComeFromTheFirstRootThatHasThem)
{
    const QKBundle bundle({first, second});
    EXPECT_EQ(bundle.pathForResource(u"shortcuts"_s, u"xml"_s), first + u"/shortcuts.xml"_s);
    EXPECT_EQ(bundle.dataForResource(u"shortcuts"_s, u"xml"_s), "first");
    // A folder that happens to carry the name is not the resource.
    EXPECT_EQ(bundle.dataForResource(u"manual"_s, u"pdf"_s), "%PDF");
    EXPECT_EQ(bundle.pathForResource(u"README"_s, QString()), second + u"/README"_s);
    EXPECT_EQ(QKBundle({second, first}).dataForResource(u"shortcuts"_s, u"xml"_s), "second");

    // Missing resources give nothing.
    EXPECT_TRUE(bundle.pathForResource(u"legal"_s, u"pdf"_s).isEmpty());
    EXPECT_TRUE(bundle.dataForResource(u"legal"_s, u"pdf"_s).isEmpty());
    EXPECT_TRUE(bundle.pathForResource(QString(), u"xml"_s).isEmpty());
    EXPECT_TRUE(bundle.pathForResource(u"shortcuts"_s, u"txt"_s).isEmpty());
    EXPECT_TRUE(QKBundle({}).pathForResource(u"shortcuts"_s, u"xml"_s).isEmpty());
}

TEST_F(QKBundleFolders, infoDictionaryFollowsTheRootOrderAndCorruptionGivesNone)
{
    ASSERT_TRUE(QKPropertyList::writeFile(QVariantMap{{u"CFBundleName"_s, u"Folder Host"_s}},
                                          second + u"/Info.plist"_s,
                                          QKPropertyList::Format::Binary));
    EXPECT_EQ(QKBundle({first, second}).objectForInfoDictionaryKey(u"CFBundleName"_s),
              "Folder Host");
    // The Qt resource root wins over a folder, as it does for the host.
    EXPECT_EQ(QKBundle({u":/"_s, second}).objectForInfoDictionaryKey(u"CFBundleName"_s),
              "Test Host");

    ASSERT_TRUE(QFile::remove(second + u"/Info.plist"_s));
    EXPECT_TRUE(QKBundle({second}).infoDictionary().isEmpty());
    ASSERT_TRUE(writeAll(first + u"/Info.plist"_s, "<plist><dict><key>CFBundleName</key>"));
    EXPECT_TRUE(QKBundle({first, second}).infoDictionary().isEmpty());
}
