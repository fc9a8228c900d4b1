#include "DiagnosticsTestSupport.h"

#include "QKZipArchiver.h"

#include <QFileInfo>
#include <QRandomGenerator>

using namespace DiagnosticsTest;
using QKTestEnvironment::homeFile;

namespace {

QString write(const QString &name, const QByteArray &contents)
{
    EXPECT_TRUE(QKTestEnvironment::writeAll(homeFile(name), contents)) << name.toStdString();
    return homeFile(name);
}

} // namespace

TEST(QKZipArchiver, zipsEveryPathInOrderUnderItsOwnNameOrLogsWhyThereIsNoArchive)
{
    const QString second = write("b/second.log", "second");
    const QString first = write("a/first.txt", "first");
    write("a/inner/third.crash", "third");
    const QString archive = homeFile("attachments.zip");
    ASSERT_TRUE(QKZipArchiver::zipPaths({second, homeFile("gone.txt"), first, homeFile("a/inner")},
                                        archive));
    // Folders are taken whole; no entry keeps its folder.
    EXPECT_EQ(
        zipEntries(archive),
        Entries({{"second.log", "second"}, {"first.txt", "first"}, {"third.crash", "third"}}));

    // A leftover archive is replaced, not added to.
    ASSERT_TRUE(QKZipArchiver::zipPaths({first}, archive));
    EXPECT_EQ(zipEntries(archive), Entries({{"first.txt", "first"}}));

    // With nothing left to archive there is no archive, not the previous one.
    EXPECT_FALSE(QKZipArchiver::zipPaths({homeFile("gone.txt")}, archive));
    EXPECT_FALSE(QFileInfo::exists(archive));

    // A plain file stands where the archive's folder should be.
    const QString blocked = second + "/debug_log.zip";
    EXPECT_FALSE(QKZipArchiver::zipPaths({first}, blocked));
    EXPECT_FALSE(QFileInfo::exists(blocked));
    EXPECT_TRUE(debugLog().contains("/usr/bin/zip did not produce " + blocked.toUtf8()))
        << debugLog().toStdString();
}

TEST(QKZipArchiver, deflatesWhatShrinksStoresWhatDoesNotAndIgnoresTheUsersZipOptions)
{
    QByteArray log;
    while (log.size() < 200 * 1024)
        log += "2026-11-22 10:00:00 Debug1 HDSupport: sending the debug log\n";
    QByteArray noise(256 * 1024, Qt::Uninitialized);
    QRandomGenerator(7).fillRange(reinterpret_cast<quint32 *>(noise.data()),
                                  noise.size() / sizeof(quint32));
    // The first entry's compression method, from its local header: 0 stored, 8 deflated.
    const auto firstMethod = [](const QString &archive) {
        const QByteArray bytes = QKTestEnvironment::readAll(archive);
        return bytes.startsWith("PK\x03\x04") ? uchar(bytes[8]) | uchar(bytes[9]) << 8 : -1;
    };
    // A user's own default would store everything.
    qputenv("ZIPOPT", "-0");
    const QString logArchive = homeFile("debug_log.zip");
    const QString noiseArchive = homeFile("attachments.zip");
    const bool zippedLog = QKZipArchiver::zipPaths({write("session.log", log)}, logArchive);
    const bool zippedNoise = QKZipArchiver::zipPaths({write("take1.raw", noise)}, noiseArchive);
    qunsetenv("ZIPOPT");
    ASSERT_TRUE(zippedLog && zippedNoise);

    EXPECT_EQ(firstMethod(logArchive), 8);
    EXPECT_EQ(firstMethod(noiseArchive), 0);
    EXPECT_EQ(zipEntries(logArchive), Entries({{"session.log", log}}));
    EXPECT_EQ(zipEntries(noiseArchive), Entries({{"take1.raw", noise}}));
}
