#pragma once

#include <QByteArray>
#include <QSet>
#include <QString>

/**
 * Keeps a plug-in's code loaded when the plug-in left threads running. Plug-ins may start
 * worker or timer threads and never stop them; unloading the library under such a thread
 * takes the host down a moment later. Made before the plug-in is loaded, it notes the
 * process's threads; keepLoadedIfThreadsStarted(), called before the library is closed,
 * marks the library never to be unloaded when a thread has appeared since. Such a plug-in
 * keeps the code it had, should its file change later in the same run.
 */
class QKPluginThreads
{
public:
    QKPluginThreads();

    void keepLoadedIfThreadsStarted(const QByteArray &libraryPath) const;

private:
    QSet<QString> m_before;
};
