#include "QKBundle.h"
#include "QKPropertyList.h"
#include "QKTestEnvironment.h"
#include "QKTestSupport.h"

#include <QDir>
#include <QFile>

using QKTestEnvironment::homeFile;
using QKTestEnvironment::writeAll;

TEST(QKBundle, mainAndLibraryBundlesReadTheirOwnInfoPlists)
{
    const QKBundle *bundle = QKBundle::mainBundle();
    EXPECT_EQ(bundle->objectForInfoDictionaryKey(u"CFBundleSignature"_s), "TSTH");
    EXPECT_FALSE(bundle->objectForInfoDictionaryKey(u"NoSuchKey"_s).isValid());
    EXPECT_EQ(bundle->pathForResource(u"Info"_s, u"plist"_s), u":/Info.plist"_s);
    const QKBundle *library = QKBundle::libraryBundle();
    EXPECT_EQ(library->objectForInfoDictionaryKey(u"CFBundleName"_s), "QKUtilities");
}

TEST(QKBundle, resourcesAndInfoComeFromTheFirstRootThatHasThem)
{
    const QString first = homeFile(u"first"_s), second = homeFile(u"second"_s);
    ASSERT_TRUE(QDir().mkpath(first + u"/manual.pdf"_s));
    ASSERT_TRUE(writeAll(first + u"/shortcuts.xml"_s, "first"));
    ASSERT_TRUE(writeAll(second + u"/shortcuts.xml"_s, "second"));
    ASSERT_TRUE(writeAll(second + u"/manual.pdf"_s, "%PDF"));
    ASSERT_TRUE(writeAll(second + u"/README"_s, "plain"));
    const QKBundle bundle({first, second});
    EXPECT_EQ(bundle.pathForResource(u"shortcuts"_s, u"xml"_s), first + u"/shortcuts.xml"_s);
    EXPECT_EQ(QKBundle({second, first}).dataForResource(u"shortcuts"_s, u"xml"_s), "second");
    // A folder that happens to carry the name is not the resource.
    EXPECT_EQ(bundle.dataForResource(u"manual"_s, u"pdf"_s), "%PDF");
    EXPECT_EQ(bundle.pathForResource(u"README"_s, QString()), second + u"/README"_s);
    EXPECT_TRUE(bundle.dataForResource(u"legal"_s, u"pdf"_s).isEmpty());
    EXPECT_TRUE(bundle.pathForResource(u"shortcuts"_s, u"txt"_s).isEmpty());
    EXPECT_TRUE(QKBundle({}).pathForResource(u"shortcuts"_s, u"xml"_s).isEmpty());

    EXPECT_TRUE(bundle.infoDictionary().isEmpty());
    ASSERT_TRUE(QKPropertyList::writeFile(QVariantMap{{u"CFBundleName"_s, u"Folder Host"_s}},
                                          second + u"/Info.plist"_s));
    EXPECT_EQ(QKBundle({first, second}).objectForInfoDictionaryKey(u"CFBundleName"_s),
              "Folder Host");
    // The Qt resource root wins over a folder, as it does for the host.
    EXPECT_EQ(QKBundle({u":/"_s, second}).objectForInfoDictionaryKey(u"CFBundleName"_s),
              "Test Host");
    // A corrupt Info.plist in the first root gives an empty dictionary.
    ASSERT_TRUE(writeAll(first + u"/Info.plist"_s, "<plist><dict><key>CFBundleName</key>"));
    EXPECT_TRUE(QKBundle({first, second}).infoDictionary().isEmpty());
}
