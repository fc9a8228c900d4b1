#pragma once

#include "QKUtilitiesGlobal.h"

#include <QString>

#include <atomic>
#include <functional>

class QByteArray;
class QObject;

/**
 * Collects the machine's configuration for a support request: the XML report of the
 * hardware lister lshw, run as "lshw -xml -sanitize" (serial numbers and network addresses
 * left out), or, where lshw is not installed or cannot be started, a built-in XML report of
 * the operating system, kernel, processor, memory and sound cards. The report is kept as
 * "system_profile.spx" and zipped into "system_profile.zip".
 *
 * createSystemProfile() is made for a worker thread: it touches no widget and blocks until
 * the report is complete or the user cancels. Progress goes out through a callback on that
 * thread (progressOnMainThread() forwards it to the main thread); the user's Cancel comes in
 * through an atomic flag that the progress panel sets.
 *
 * lshw runs detached from this process, its output going into a pipe that the profiler
 * reads: on Cancel the profiler closes its end and leaves lshw alone, neither waiting for it
 * nor terminating it, as the original system profiler was left. lshw then finishes on its
 * own, or ends at its next write into the closed pipe, and the system reaps it, so no zombie
 * process is left behind.
 */
class QKUTILITIES_EXPORT QKSystemProfiler
{
public:
    /** Called on the collecting thread after every chunk of the report was added. */
    using ProgressCallback = std::function<void()>;

    /** A profiler that runs lshw when it is installed (lshwPath()). */
    QKSystemProfiler();

    /** The program run for the report; empty when the built-in report is used. */
    QString program() const { return m_program; }
    /** Runs @p program with lshw's arguments instead; an empty path, or one that cannot be
     *  started, gives the built-in report. */
    void setProgram(const QString &program) { m_program = program; }

    /** lshw found on PATH, else in /usr/bin or /usr/sbin; empty when it is not installed. */
    static QString lshwPath();

    /**
     * Collects the report, writes it to "system_profile.spx" in @p folder (created when
     * missing; normally the application's temporary folder, found on the main thread) and
     * zips it into "system_profile.zip" there.
     *
     * Reads the report as it arrives: it stops at its end or when @p cancelRequested is
     * set; otherwise it adds the chunk read and calls @p progress. A Cancel therefore takes
     * effect before the next chunk is added. The report collected so far is written and
     * zipped also after a Cancel; @p cancelled (when given) tells whether that happened.
     * @p progress and @p cancelRequested may be null.
     *
     * Returns the path of the archive; empty when the report could not be written or the
     * archive was not produced (logged as warnings).
     */
    QString createSystemProfile(const QString &folder, const ProgressCallback &progress,
                                const std::atomic<bool> *cancelRequested,
                                bool *cancelled = nullptr) const;

    /**
     * The built-in report: an XML document with the operating system's release information
     * ("etc/os-release"), the running kernel (uname, without the host name), the processor
     * model and count ("proc/cpuinfo"), the memory ("proc/meminfo") and the sound cards with
     * their PCM devices ("proc/asound/cards", "proc/asound/card<n>/pcm*<p|c>/info"). The files
     * are read under @p rootPath (a container's root, say); the parts whose files are missing
     * or unreadable are left empty.
     */
    static QByteArray builtInReport(const QString &rootPath = QStringLiteral("/"));

    /** A progress callback that queues @p update to @p receiver's thread (the main thread for
     *  the help desk) without waiting. @p receiver must outlive the collection. */
    static ProgressCallback progressOnMainThread(QObject *receiver, std::function<void()> update);

private:
    QString m_program;
};
