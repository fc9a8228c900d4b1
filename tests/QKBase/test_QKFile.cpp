#include "QKFile.h"
#include "QKTestEnvironment.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTimeZone>

#include <gtest/gtest.h>

namespace {

QString home()
{
    return QKTestEnvironment::homePath();
}

QByteArray contentsOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

TEST(QKFile, conformPathExpandsOnlyTheUsersTilde)
{
    EXPECT_EQ(QKFile::conformPath(QStringLiteral("~")), home());
    EXPECT_EQ(QKFile::conformPath(QStringLiteral("~/")), home());
    EXPECT_EQ(QKFile::conformPath(QStringLiteral("~/Library//Logs/./Velmora/")),
              home() + QStringLiteral("/Library/Logs/Velmora"));
    EXPECT_EQ(QKFile::conformPath(QStringLiteral("~other/x")), QStringLiteral("~other/x"));
    EXPECT_EQ(QKFile::conformPath(QStringLiteral("/tmp/~/x")), QStringLiteral("/tmp/~/x"));
    EXPECT_EQ(QKFile::conformPath(QStringLiteral("relative/~")), QStringLiteral("relative/~"));
    EXPECT_EQ(QKFile::conformPath(QString()), QString());
}

TEST(QKFile, createsFoldersAndFilesAndListsHiddenEntries)
{
    QString error;
    ASSERT_TRUE(QKFile::createDirectoryAtPath(QStringLiteral("~/a/b/c"), &error))
        << error.toStdString();
    EXPECT_TRUE(QKFile::createDirectoryAtPath(QStringLiteral("~/a/b/c")));
    EXPECT_TRUE(QFileInfo(home() + QStringLiteral("/a/b/c")).isDir());

    ASSERT_TRUE(QKFile::createFileAtPath(QStringLiteral("~/a/.hidden"), "secret", &error))
        << error.toStdString();
    ASSERT_TRUE(QKFile::createFileAtPath(QStringLiteral("~/a/visible"), "old"));
    ASSERT_TRUE(QKFile::createFileAtPath(QStringLiteral("~/a/visible"), "new"));
    EXPECT_EQ(contentsOf(home() + QStringLiteral("/a/.hidden")), QByteArray("secret"));
    EXPECT_EQ(contentsOf(home() + QStringLiteral("/a/visible")), QByteArray("new"));
    ASSERT_TRUE(
        QFile::link(QStringLiteral("/nonexistent"), home() + QStringLiteral("/a/dangling")));

    EXPECT_EQ(QKFile::contentsOfDirectoryAtPath(QStringLiteral("~/a"), &error),
              (QStringList{QStringLiteral(".hidden"), QStringLiteral("b"),
                           QStringLiteral("dangling"), QStringLiteral("visible")}));
    EXPECT_TRUE(QKFile::existsAtPath(QStringLiteral("~/a/visible")));
    EXPECT_FALSE(QKFile::existsAtPath(QStringLiteral("~/a/dangling")));
    EXPECT_TRUE(QKFile::isDirectoryAtPath(QStringLiteral("~/a/b")));
    EXPECT_FALSE(QKFile::isDirectoryAtPath(QStringLiteral("~/a/visible")));
    EXPECT_TRUE(QKFile::contentsOfDirectoryAtPath(QStringLiteral("~/a/b/c")).isEmpty());
}

TEST(QKFile, failuresAnswerEmptyWithTheReason)
{
    ASSERT_TRUE(QKFile::createFileAtPath(QStringLiteral("~/plain"), "x"));

    QString error;
    EXPECT_TRUE(QKFile::contentsOfDirectoryAtPath(QStringLiteral("~/missing"), &error).isEmpty());
    EXPECT_TRUE(error.contains(home() + QStringLiteral("/missing"))) << error.toStdString();
    error.clear();
    EXPECT_TRUE(QKFile::contentsOfDirectoryAtPath(QStringLiteral("~/plain"), &error).isEmpty());
    EXPECT_TRUE(error.contains(QStringLiteral("not a folder"))) << error.toStdString();

    error.clear();
    EXPECT_FALSE(QKFile::createDirectoryAtPath(QStringLiteral("~/plain/sub/folder"), &error));
    EXPECT_TRUE(error.contains(home() + QStringLiteral("/plain"))) << error.toStdString();
    error.clear();
    EXPECT_FALSE(QKFile::createDirectoryAtPath(QStringLiteral("~/plain"), &error));
    EXPECT_FALSE(error.isEmpty());

    error.clear();
    EXPECT_FALSE(QKFile::createFileAtPath(QStringLiteral("~/missing/file"), "x", &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_FALSE(QKFile::existsAtPath(QStringLiteral("~/missing")));

    error.clear();
    EXPECT_FALSE(QKFile::removeItemAtPath(QStringLiteral("~/missing"), &error));
    EXPECT_FALSE(error.isEmpty());
    error.clear();
    EXPECT_FALSE(QKFile::emptyDirectoryAtPath(QStringLiteral("~/plain"), &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_TRUE(QFileInfo(home() + QStringLiteral("/plain")).isFile());
    EXPECT_FALSE(QKFile::modificationDateOfItemAtPath(QStringLiteral("~/missing")).isValid());
}

TEST(QKFile, removesWholeTreesButNeverFollowsLinksOut)
{
    const QString outside = home() + QStringLiteral("/outside");
    ASSERT_TRUE(QKFile::createDirectoryAtPath(outside));
    ASSERT_TRUE(QKFile::createFileAtPath(outside + QStringLiteral("/keep"), "keep"));
    ASSERT_TRUE(QKFile::createDirectoryAtPath(QStringLiteral("~/tree/deep/deeper")));
    ASSERT_TRUE(QKFile::createFileAtPath(QStringLiteral("~/tree/deep/deeper/.x"), "x"));
    ASSERT_TRUE(QFile::link(outside, home() + QStringLiteral("/tree/deep/link")));

    QString error;
    EXPECT_TRUE(QKFile::removeItemAtPath(QStringLiteral("~/tree"), &error)) << error.toStdString();
    EXPECT_FALSE(QFileInfo::exists(home() + QStringLiteral("/tree")));
    EXPECT_EQ(contentsOf(outside + QStringLiteral("/keep")), QByteArray("keep"));

    ASSERT_TRUE(QFile::link(outside, home() + QStringLiteral("/alias")));
    EXPECT_TRUE(QKFile::removeItemAtPath(QStringLiteral("~/alias")));
    EXPECT_FALSE(QFileInfo(home() + QStringLiteral("/alias")).isSymLink());
    EXPECT_TRUE(QKFile::existsAtPath(outside + QStringLiteral("/keep")));
}

TEST(QKFile, emptyingKeepsTheFolderItself)
{
    ASSERT_TRUE(QKFile::createDirectoryAtPath(QStringLiteral("~/tmp/sub/inner")));
    ASSERT_TRUE(QKFile::createFileAtPath(QStringLiteral("~/tmp/.launched"), ""));
    ASSERT_TRUE(QKFile::createFileAtPath(QStringLiteral("~/tmp/sub/inner/file"), "data"));
    ASSERT_TRUE(QKFile::createFileAtPath(QStringLiteral("~/tmp/top"), "data"));

    QString error;
    EXPECT_TRUE(QKFile::emptyDirectoryAtPath(QStringLiteral("~/tmp"), &error))
        << error.toStdString();
    EXPECT_TRUE(QKFile::isDirectoryAtPath(QStringLiteral("~/tmp")));
    EXPECT_TRUE(QKFile::contentsOfDirectoryAtPath(QStringLiteral("~/tmp")).isEmpty());
    EXPECT_TRUE(QKFile::emptyDirectoryAtPath(QStringLiteral("~/tmp")));
}

TEST(QKFile, modificationDateIsTheFilesOwn)
{
    ASSERT_TRUE(QKFile::createFileAtPath(QStringLiteral("~/dated"), "x"));
    const QDateTime when(QDate(2009, 3, 14), QTime(15, 9, 26), QTimeZone::utc());
    QFile file(home() + QStringLiteral("/dated"));
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    ASSERT_TRUE(file.setFileTime(when, QFileDevice::FileModificationTime));
    file.close();

    EXPECT_EQ(QKFile::modificationDateOfItemAtPath(QStringLiteral("~/dated")), when);
}
