#pragma once

#include "QKUtilitiesGlobal.h"

#include <QStringList>

/**
 * Leaves a crash log when the application dies of a fatal signal (SIGSEGV, SIGBUS, SIGILL,
 * SIGFPE or SIGABRT), where the help desk's support requests collect them.
 *
 * The log is "<application name>_<date>.crash" in "~/Library/Logs/CrashReporter/" (in
 * $XDG_STATE_HOME as it was at installation), the date being the crash time in local time as
 * "yyyy-MM-dd-HHmmss" ("Sound Lab_2026-11-21-235959.crash"), so that names sort by time.
 * The local time uses the UTC offset in force at installation: the handler cannot read the
 * time zone database. A second crash in the same second is appended to the same file.
 *
 * It holds, line by line: the process's name, executable path, version
 * (CFBundleShortVersionString and, in parentheses, CFBundleVersion), process and thread id,
 * the date and time, the signal's number and name and its code, the fault address for a
 * fault or the sending process for a signal sent by kill() or abort(); then under
 * "Backtrace:" the crashed thread's stack from the point where the signal struck, one frame
 * per line as backtrace_symbols_fd() gives it ("module(function+0xoffset)[0xaddress]", the
 * function left out where the module does not export it); then under "Memory map:" a copy of
 * /proc/self/maps, which places every address in its module.
 *
 * The handler runs on an alternate signal stack, so a stack overflow of the thread that
 * installed the reporter is caught as well; an overflow on another thread, which has no
 * alternate stack, ends without a log. The handler uses only async-signal-safe calls: the
 * file name's prefix and the report's header are prepared at installation and backtrace() is
 * warmed up there, because its first call loads the unwinder. The file is opened only when
 * a crash happens, so a run that ends well leaves nothing behind to be sent.
 *
 * After writing the log the handler puts back the signal actions that were installed before
 * it (the host's own handlers, or the default action) and lets the signal reach them: a
 * fault happens again on return from the handler and meets the previous action with its
 * genuine details; a signal that was sent (abort(), kill()) is raised again. Without a host
 * handler the process therefore dies of the original signal, and a core dump handler such
 * as systemd-coredump still sees it. Only the first fatal signal of a process is logged.
 * Signals that were ignored at installation stay ignored.
 */
class QKUTILITIES_EXPORT QKCrashReporter
{
public:
    /**
     * Installs the handler for this process, taking the application's name from the
     * QKApplication (else its bundle, else Qt's application name) and creating the folder.
     * Call it after the host installed its own handlers for these signals: those installed
     * later replace this one. Later calls do nothing. False when the handler could not be
     * installed (logged).
     */
    static bool install();

    /** "~/Library/Logs/CrashReporter" conformed, where install() writes the logs. */
    static QString crashReporterFolder();

    /**
     * Every crash log of the application named @p applicationName: the entries of the
     * per-user folder "~/Library/Logs/CrashReporter/", then of the system folder
     * "/Library/Logs/CrashReporter/", in listing order, whose name begins with
     * @p applicationName (case-sensitive, so "Foo Pro_..." counts for "Foo"; a "/" in the name
     * stands as "-", as in the names install() writes). No date filter,
     * no sorting and no limit. A missing or unreadable folder adds nothing; empty when
     * nothing matches.
     */
    static QStringList crashLogPaths(const QString &applicationName);
};
