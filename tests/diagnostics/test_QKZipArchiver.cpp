#include "DiagnosticsTestSupport.h"

#include "QKTestEnvironment.h"
#include "QKZipArchiver.h"

#include <QDir>
#include <QFileInfo>
#include <QRandomGenerator>

#include <gtest/gtest.h>

using namespace DiagnosticsTest;
using Entries = QList<std::pair<QString, QByteArray>>;

namespace {

QString homeFile(const char *name)
{
    return QKTestEnvironment::homeFile(QString::fromUtf8(name));
}

} // namespace

TEST(QKZipArchiver, zipsEveryPathInOrderUnderItsOwnName)
{
    ASSERT_TRUE(QKTestEnvironment::writeAll(homeFile("b/second.log"), "second"));
    ASSERT_TRUE(QKTestEnvironment::writeAll(homeFile("a/first.txt"), "first"));
    ASSERT_TRUE(QKTestEnvironment::writeAll(homeFile("a/inner/third.crash"), "third"));
    const QString archive = homeFile("out/archive.zip");
    ASSERT_TRUE(QDir().mkpath(homeFile("out")));

    ASSERT_TRUE(QKZipArchiver::zipPaths(
        {homeFile("b/second.log"), homeFile("a/first.txt"), homeFile("a/inner")}, archive));
    // Folders are taken whole; no entry keeps its folder.
    EXPECT_EQ(zipEntries(archive), Entries({{QStringLiteral("second.log"), "second"},
                                            {QStringLiteral("first.txt"), "first"},
                                            {QStringLiteral("third.crash"), "third"}}));
}

TEST(QKZipArchiver, vanishedPathsAreSkippedAndALeftoverArchiveIsReplaced)
{
    ASSERT_TRUE(QKTestEnvironment::writeAll(homeFile("one.txt"), "1"));
    ASSERT_TRUE(QKTestEnvironment::writeAll(homeFile("three.txt"), "3"));
    const QString archive = homeFile("attachments.zip");
    ASSERT_TRUE(QKZipArchiver::zipPaths(
        {homeFile("one.txt"), homeFile("gone.txt"), homeFile("three.txt")}, archive));
    EXPECT_EQ(zipEntries(archive),
              Entries({{QStringLiteral("one.txt"), "1"}, {QStringLiteral("three.txt"), "3"}}));

    ASSERT_TRUE(QKZipArchiver::zipPaths({homeFile("three.txt")}, archive));
    EXPECT_EQ(zipEntries(archive), Entries({{QStringLiteral("three.txt"), "3"}}));

    // With nothing left to archive there is no archive, not the previous one.
    EXPECT_FALSE(QKZipArchiver::zipPaths({homeFile("gone.txt")}, archive));
    EXPECT_FALSE(QFileInfo::exists(archive));
}

TEST(QKZipArchiver, unwritableDestinationGivesNoArchiveAndALogEntry)
{
    ASSERT_TRUE(QKTestEnvironment::writeAll(homeFile("debug.log"), "entries"));
    // A plain file stands where the archive's folder should be.
    ASSERT_TRUE(QKTestEnvironment::writeAll(homeFile("blocked"), "a file"));
    const QString archive = homeFile("blocked/debug_log.zip");

    EXPECT_FALSE(QKZipArchiver::zipPaths({homeFile("debug.log")}, archive));
    EXPECT_FALSE(QFileInfo::exists(archive));
    const QByteArray log = debugLog();
    EXPECT_TRUE(log.contains("/usr/bin/zip did not produce " + archive.toUtf8()))
        << log.toStdString();
}

TEST(QKZipArchiver, deflatesWhatShrinksStoresWhatDoesNotAndIgnoresTheUsersZipOptions)
{
    QByteArray log;
    while (log.size() < 200 * 1024)
        log += "2026-11-22 10:00:00 Debug1 HDSupport: sending the debug log\n";
    QByteArray noise(256 * 1024, Qt::Uninitialized);
    QRandomGenerator(7).fillRange(reinterpret_cast<quint32 *>(noise.data()),
                                  noise.size() / sizeof(quint32));
    ASSERT_TRUE(QKTestEnvironment::writeAll(homeFile("session.log"), log));
    ASSERT_TRUE(QKTestEnvironment::writeAll(homeFile("take1.raw"), noise));
    // The first entry's compression method, from its local header: 0 stored, 8 deflated.
    const auto firstMethod = [](const QString &archive) {
        const QByteArray bytes = QKTestEnvironment::readAll(archive);
        return bytes.startsWith("PK\x03\x04") ? uchar(bytes[8]) | uchar(bytes[9]) << 8 : -1;
    };
    // A user's own default would store everything.
    qputenv("ZIPOPT", "-0");
    const QString logArchive = homeFile("debug_log.zip");
    const QString noiseArchive = homeFile("attachments.zip");
    const bool zippedLog = QKZipArchiver::zipPaths({homeFile("session.log")}, logArchive);
    const bool zippedNoise = QKZipArchiver::zipPaths({homeFile("take1.raw")}, noiseArchive);
    qunsetenv("ZIPOPT");
    ASSERT_TRUE(zippedLog && zippedNoise);

    EXPECT_EQ(firstMethod(logArchive), 8);
    EXPECT_EQ(firstMethod(noiseArchive), 0);
    EXPECT_EQ(zipEntries(logArchive), Entries({{QStringLiteral("session.log"), log}}));
    EXPECT_EQ(zipEntries(noiseArchive), Entries({{QStringLiteral("take1.raw"), noise}}));
}
