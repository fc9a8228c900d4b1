#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QProcess>
#include <QString>

#include <utility>

/** Helpers shared by the diagnostics tests. */
namespace DiagnosticsTest {

/** The entries of a zip archive, in archive order, read with Python's zipfile module;
 *  empty when the archive cannot be read. */
QList<std::pair<QString, QByteArray>> zipEntries(const QString &archivePath);

/** The application log written so far. */
QByteArray debugLog();

/** Writes an executable shell script. */
bool writeScript(const QString &path, const QByteArray &body);

/** One element of an XML document: its name, attributes and own text. */
struct XmlElement
{
    QString name;
    QMap<QString, QString> attributes;
    QString text;
};

/** Every element of @p xml in document order; @p wellFormed tells whether it parsed. */
QList<XmlElement> xmlElements(const QByteArray &xml, bool *wellFormed);

/** How a child run of this test program ended. */
struct ChildRun
{
    QProcess::ExitStatus exitStatus = QProcess::NormalExit;
    int exitCode = -1; // the signal number after a crash
    qint64 pid = 0;
    QByteArray output;
};

/** Runs this test program again as a child that installs the crash reporter and then
 *  crashes as @p mode says (see CrashChild.cpp), with this test's HOME. */
ChildRun runCrashChild(const QString &mode, const QString &markerPath = QString());

} // namespace DiagnosticsTest
