#include "QKFile.h"
#include "QKTestEnvironment.h"
#include "QKTestSupport.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QTimeZone>

#include <functional>

using QKTestEnvironment::homeFile;
using QKTestEnvironment::readAll;

TEST(QKFile, conformPathExpandsOnlyTheUsersTilde)
{
    const std::pair<QString, QString> cases[] = {
        {u"~"_s, QKTestEnvironment::homePath()},
        {u"~/"_s, QKTestEnvironment::homePath()},
        {u"~/Library//Velmora/./x/"_s, homeFile(u"Library/Velmora/x"_s)},
        {u"~other/x"_s, u"~other/x"_s},
        {u"/tmp/~/x"_s, u"/tmp/~/x"_s},
        {u"relative/~"_s, u"relative/~"_s},
        {u"/Library/Logs/CrashReporter"_s, u"/Library/Logs/CrashReporter"_s},
        {QString(), QString()},
    };
    for (const auto &[path, conformed] : cases)
        EXPECT_EQ(QKFile::conformPath(path), conformed) << path.toStdString();
}

TEST(QKFile, conformPathPutsLibraryFoldersWhereTheXdgVariablesSay)
{
    const char *const variables[] = {"XDG_DATA_HOME", "XDG_STATE_HOME", "XDG_CACHE_HOME",
                                     "XDG_CONFIG_HOME"};
    const QString paths[] = {u"~/Library/Application Support/Velmora/au_db.plist"_s,
                             u"~/Library//Logs/./Velmora/"_s, u"~/Library/Caches"_s,
                             u"~/Library/Preferences/Velmora/../x.plist"_s};
    const QString defaults[] = {homeFile(u".local/share/Velmora/au_db.plist"_s),
                                homeFile(u".local/state/Velmora"_s), homeFile(u".cache"_s),
                                homeFile(u".config/x.plist"_s)};
    const QString moved[] = {u"/data/Velmora/au_db.plist"_s, u"/state/Velmora"_s, u"/cache"_s,
                             u"/config/x.plist"_s};
    // Unset, empty and relative values all mean the default under HOME.
    for (const char *value : {static_cast<const char *>(nullptr), "", "relative/folder"}) {
        for (const char *variable : variables) {
            if (value)
                qputenv(variable, value);
            else
                qunsetenv(variable);
        }
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(QKFile::conformPath(paths[i]), defaults[i]) << (value ? value : "unset");
    }
    qputenv("XDG_DATA_HOME", "/data");
    qputenv("XDG_STATE_HOME", "/state");
    qputenv("XDG_CACHE_HOME", "/cache/");
    qputenv("XDG_CONFIG_HOME", "/config");
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(QKFile::conformPath(paths[i]), moved[i]) << paths[i].toStdString();
    // Only whole folder names match.
    EXPECT_EQ(QKFile::conformPath(u"~/Library/Logsheet"_s), homeFile(u"Library/Logsheet"_s));
    EXPECT_EQ(QKFile::conformPath(u"~/Library/Application Support"_s), u"/data"_s);
}

TEST(QKFile, createsFoldersAndFilesAndListsHiddenEntries)
{
    QString error;
    ASSERT_TRUE(QKFile::createDirectoryAtPath(u"~/a/b/c"_s, &error)) << error.toStdString();
    EXPECT_TRUE(QKFile::createDirectoryAtPath(u"~/a/b/c"_s));
    EXPECT_TRUE(QFileInfo(homeFile(u"a/b/c"_s)).isDir());

    ASSERT_TRUE(QKFile::createFileAtPath(u"~/a/.hidden"_s, "secret", &error))
        << error.toStdString();
    ASSERT_TRUE(QKFile::createFileAtPath(u"~/a/visible"_s, "old"));
    ASSERT_TRUE(QKFile::createFileAtPath(u"~/a/visible"_s, "new"));
    EXPECT_EQ(readAll(homeFile(u"a/.hidden"_s)), "secret");
    EXPECT_EQ(readAll(homeFile(u"a/visible"_s)), "new");
    ASSERT_TRUE(QFile::link(u"/nonexistent"_s, homeFile(u"a/dangling"_s)));

    EXPECT_EQ(QKFile::contentsOfDirectoryAtPath(u"~/a"_s, &error),
              QStringList({u".hidden"_s, u"b"_s, u"dangling"_s, u"visible"_s}));
    EXPECT_TRUE(QKFile::existsAtPath(u"~/a/visible"_s));
    EXPECT_FALSE(QKFile::existsAtPath(u"~/a/dangling"_s));
    EXPECT_TRUE(QKFile::isDirectoryAtPath(u"~/a/b"_s));
    EXPECT_FALSE(QKFile::isDirectoryAtPath(u"~/a/visible"_s));
    EXPECT_TRUE(QKFile::contentsOfDirectoryAtPath(u"~/a/b/c"_s).isEmpty());

    const QDateTime when(QDate(2009, 3, 14), QTime(15, 9, 26), QTimeZone::utc());
    QFile file(homeFile(u"a/visible"_s));
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    ASSERT_TRUE(file.setFileTime(when, QFileDevice::FileModificationTime));
    file.close();
    EXPECT_EQ(QKFile::modificationDateOfItemAtPath(u"~/a/visible"_s), when);
}

TEST(QKFile, failuresAnswerEmptyWithTheReason)
{
    ASSERT_TRUE(QKFile::createFileAtPath(u"~/plain"_s, "x"));
    // Each call must fail with a reason that holds the text beside it.
    using Failure = std::function<bool(QString *)>;
    const std::pair<Failure, QString> failures[] = {
        {[](QString *e) { return QKFile::contentsOfDirectoryAtPath(u"~/missing"_s, e).isEmpty(); },
         homeFile(u"missing"_s)},
        {[](QString *e) { return QKFile::contentsOfDirectoryAtPath(u"~/plain"_s, e).isEmpty(); },
         u"not a folder"_s},
        {[](QString *e) { return !QKFile::createDirectoryAtPath(u"~/plain/sub/folder"_s, e); },
         homeFile(u"plain"_s)},
        {[](QString *e) { return !QKFile::createDirectoryAtPath(u"~/plain"_s, e); }, {}},
        {[](QString *e) { return !QKFile::createFileAtPath(u"~/missing/file"_s, "x", e); }, {}},
        {[](QString *e) { return !QKFile::removeItemAtPath(u"~/missing"_s, e); }, {}},
        {[](QString *e) { return !QKFile::emptyDirectoryAtPath(u"~/plain"_s, e); }, {}},
    };
    for (qsizetype i = 0; i < std::ssize(failures); ++i) {
        QString error;
        EXPECT_TRUE(failures[i].first(&error)) << "failure " << i;
        EXPECT_FALSE(error.isEmpty()) << "failure " << i;
        EXPECT_TRUE(error.contains(failures[i].second)) << error.toStdString();
    }
    EXPECT_FALSE(QKFile::existsAtPath(u"~/missing"_s));
    EXPECT_TRUE(QFileInfo(homeFile(u"plain"_s)).isFile());
    EXPECT_FALSE(QKFile::modificationDateOfItemAtPath(u"~/missing"_s).isValid());
}

TEST(QKFile, removesWholeTreesButNeverFollowsLinksOut)
{
    const QString outside = homeFile(u"outside"_s);
    ASSERT_TRUE(QKFile::createDirectoryAtPath(outside));
    ASSERT_TRUE(QKFile::createFileAtPath(outside + u"/keep"_s, "keep"));
    ASSERT_TRUE(QKFile::createDirectoryAtPath(u"~/tree/deep/deeper"_s));
    ASSERT_TRUE(QKFile::createFileAtPath(u"~/tree/deep/deeper/.x"_s, "x"));
    ASSERT_TRUE(QFile::link(outside, homeFile(u"tree/deep/link"_s)));
    QString error;
    EXPECT_TRUE(QKFile::removeItemAtPath(u"~/tree"_s, &error)) << error.toStdString();
    EXPECT_FALSE(QFileInfo::exists(homeFile(u"tree"_s)));
    EXPECT_EQ(readAll(outside + u"/keep"_s), "keep");

    ASSERT_TRUE(QFile::link(outside, homeFile(u"alias"_s)));
    EXPECT_TRUE(QKFile::removeItemAtPath(u"~/alias"_s));
    EXPECT_FALSE(QFileInfo(homeFile(u"alias"_s)).isSymLink());
    EXPECT_TRUE(QKFile::existsAtPath(outside + u"/keep"_s));
}
