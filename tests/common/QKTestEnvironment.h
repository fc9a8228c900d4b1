#pragma once

#include <QString>

/** The sandbox every test process runs in: its own HOME, config and temporary folders. */
namespace QKTestEnvironment {

/** The temporary home folder of this test process. */
QString homePath();

/** Reads @p path relative to the tests' source folder ("QKBase/data/x.plist"). */
QString sourcePath(const QString &relativePath);

} // namespace QKTestEnvironment
