#pragma once

#include <QProcessEnvironment>
#include <QString>

/** The sandbox every test process runs in: its own HOME, config and temporary folders. */
#include <functional>

namespace QKTestEnvironment {

/** The temporary home folder of this test process. */
QString homePath();

/** Reads @p path relative to the tests' source folder ("QKBase/data/x.plist"). */
QString sourcePath(const QString &relativePath);

/** @p name inside the temporary home folder. */
QString homeFile(const QString &name);

/** The contents of @p path; empty when it cannot be read. */
QByteArray readAll(const QString &path);
/** Runs the event loop until @p done answers true or @p msecs have passed; what @p done
 *  answers last. */
bool waitFor(const std::function<bool()> &done, int msecs = 10000);

/** Writes @p data to @p path, creating its folder; false when that fails. */
bool writeAll(const QString &path, const QByteArray &data);

/** This process's environment for a child that is meant to die of a fatal signal: in a
 *  sanitized build the sanitizers leave such signals to the program's own handlers. */
QProcessEnvironment crashingChildEnvironment();

/** Stores through @p address, a null or unmapped one, for a real SIGSEGV; the undefined
 *  behaviour sanitizer's null check is kept out of the way. */
void writeThrough(int *address);

} // namespace QKTestEnvironment
