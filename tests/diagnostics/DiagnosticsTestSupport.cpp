#include "DiagnosticsTestSupport.h"

#include "QKApplicationLog.h"
#include "QKTestEnvironment.h"

#include <QCoreApplication>
#include <QFile>
#include <QStandardPaths>
#include <QXmlStreamReader>

namespace DiagnosticsTest {

QList<std::pair<QString, QByteArray>> zipEntries(const QString &archivePath)
{
    static const QString script = QStringLiteral(
        "import base64, sys, zipfile\n"
        "with zipfile.ZipFile(sys.argv[1]) as archive:\n"
        "    for entry in archive.infolist():\n"
        "        print(entry.filename + '\\t' + base64.b64encode(archive.read(entry)).decode())\n");
    QProcess python;
    python.start(QStandardPaths::findExecutable(QStringLiteral("python3")),
                 {QStringLiteral("-c"), script, archivePath});
    if (!python.waitForFinished(30000) || python.exitCode() != 0)
        return {};
    QList<std::pair<QString, QByteArray>> entries;
    for (const QByteArray &line : python.readAllStandardOutput().split('\n')) {
        const qsizetype tab = line.indexOf('\t');
        if (tab > 0)
            entries.append(
                {QString::fromUtf8(line.left(tab)), QByteArray::fromBase64(line.mid(tab + 1))});
    }
    return entries;
}

QByteArray debugLog()
{
    return QKTestEnvironment::readAll(QKApplicationLog::sharedLog()->logFilePath());
}

bool writeScript(const QString &path, const QByteArray &body)
{
    return QKTestEnvironment::writeAll(path, "#!/bin/sh\n" + body) &&
           QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

QList<XmlElement> xmlElements(const QByteArray &xml, bool *wellFormed)
{
    QList<XmlElement> elements;
    QList<qsizetype> open;
    QXmlStreamReader reader(xml);
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isStartElement()) {
            XmlElement element{reader.name().toString(), {}, {}};
            for (const QXmlStreamAttribute &attribute : reader.attributes())
                element.attributes.insert(attribute.name().toString(),
                                          attribute.value().toString());
            open.append(elements.size());
            elements.append(element);
        } else if (reader.isEndElement()) {
            open.removeLast();
        } else if (reader.isCharacters() && !open.isEmpty()) {
            elements[open.last()].text += reader.text().toString().trimmed();
        }
    }
    *wellFormed = !reader.hasError();
    return elements;
}

ChildRun runCrashChild(const QString &mode, const QString &markerPath)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QK_CRASH_CHILD"), mode);
    environment.insert(QStringLiteral("QK_CRASH_CHILD_HOME"), QKTestEnvironment::homePath());
    environment.insert(QStringLiteral("QK_CRASH_CHILD_MARKER"), markerPath);
    QProcess child;
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::MergedChannels);
    // The child crashes while the test environment is set up, before any test runs; the
    // filter only has to leave one test to run so that the set-up happens at all.
    child.start(QCoreApplication::applicationFilePath(),
                {QStringLiteral("--gtest_filter=QKCrashReporter.*")});
    ChildRun run;
    if (!child.waitForStarted(30000))
        return run;
    run.pid = child.processId();
    child.waitForFinished(60000);
    run.exitStatus = child.exitStatus();
    run.exitCode = child.exitCode();
    run.output = child.readAll();
    return run;
}

} // namespace DiagnosticsTest
