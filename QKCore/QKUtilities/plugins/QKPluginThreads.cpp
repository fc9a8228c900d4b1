#include "QKPluginThreads.h"

#include <QDir>

#include <dlfcn.h>

namespace {

QSet<QString> threadIds()
{
    const QStringList ids =
        QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    return QSet<QString>(ids.cbegin(), ids.cend());
}

} // namespace

QKPluginThreads::QKPluginThreads() : m_before(threadIds()) {}

void QKPluginThreads::keepLoadedIfThreadsStarted(const QByteArray &libraryPath) const
{
    if (m_before.contains(threadIds()))
        return;
    // Opening the loaded library again with RTLD_NODELETE marks it; the handle is not needed.
    if (void *library = dlopen(libraryPath.constData(), RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE))
        dlclose(library);
}
