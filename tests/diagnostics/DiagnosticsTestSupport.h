#pragma once

// Helpers shared by the diagnostics tests.

#include "QKApplicationLog.h"
#include "QKTestEnvironment.h"
#include "QKTestPrinters.h"

#include <QProcess>

#include <gtest/gtest.h>

namespace DiagnosticsTest {

using Entries = QList<std::pair<QString, QByteArray>>;

/** The entries of a zip archive, in archive order, read with Python's zipfile module;
 *  empty when the archive cannot be read. */
inline Entries zipEntries(const QString &archivePath)
{
    QProcess python;
    python.start(u"python3"_s,
                 {u"-c"_s,
                  QString::fromLatin1("import base64, sys, zipfile\n"
                                      "with zipfile.ZipFile(sys.argv[1]) as archive:\n"
                                      "    for entry in archive.infolist():\n"
                                      "        print(entry.filename + '\\t' + "
                                      "base64.b64encode(archive.read(entry)).decode())\n"),
                  archivePath});
    if (!python.waitForFinished(30000) || python.exitCode() != 0)
        return {};
    Entries entries;
    for (const QByteArray &line : python.readAllStandardOutput().split('\n')) {
        const qsizetype tab = line.indexOf('\t');
        if (tab > 0)
            entries.append(
                {QString::fromUtf8(line.left(tab)), QByteArray::fromBase64(line.mid(tab + 1))});
    }
    return entries;
}

/** The application log written so far. */
inline QByteArray debugLog()
{
    return QKTestEnvironment::readAll(QKApplicationLog::sharedLog()->logFilePath());
}

} // namespace DiagnosticsTest
