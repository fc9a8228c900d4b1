#pragma once

#include "QKBaseGlobal.h"

#include <QList>
#include <QString>

#include <atomic>
#include <memory>
#include <source_location>

class QObject;

/**
 * Where a log entry comes from: its domain, the sender, and the source location of the
 * call, taken at the call site through the default argument.
 */
class QKBASE_EXPORT QKApplicationLogContext
{
public:
    QKApplicationLogContext(const QString &domain = QString(), const QObject *sender = nullptr,
                            std::source_location location = std::source_location::current());

    QString domain() const { return m_domain; }
    /** The base name of the source file ("QKHelpDeskSupport.cpp"). */
    QString file() const { return m_file; }
    int line() const { return m_line; }
    /** The function as the compiler names it ("void QKHelpDeskSupport::submit(QObject*)"). */
    QString function() const { return m_function; }
    /** The sender's class name, followed by its object name in parentheses when it has one;
     *  empty without a sender. */
    QString sender() const { return m_sender; }

private:
    QString m_domain;
    QString m_file;
    int m_line = 0;
    QString m_function;
    QString m_sender;
};

/**
 * A per-domain rule: while active, entries of exactly its domain are written at its own
 * threshold instead of the default one. Changes made through the setters take effect at
 * once but are stored only by QKApplicationLog::_updateDefaults().
 */
class QKBASE_EXPORT QKApplicationLogRule
{
public:
    QKApplicationLogRule(const QString &domain, uint threshold, bool active = true);

    bool active() const { return m_active.load(std::memory_order_relaxed); }
    void setActive(bool active) { m_active.store(active, std::memory_order_relaxed); }
    QString domain() const { return m_domain; }
    uint threshold() const { return m_threshold.load(std::memory_order_relaxed); }
    void setThreshold(uint threshold) { m_threshold.store(threshold, std::memory_order_relaxed); }

private:
    const QString m_domain;
    // Edited on the main thread while other threads are logging.
    std::atomic<uint> m_threshold;
    std::atomic<bool> m_active;
};

/**
 * The application's debug log, shared by the whole process and safe to call from any
 * thread.
 *
 * Levels rise with severity. An entry is written when the log is active and its level is
 * at least the threshold that applies: that of an active rule for exactly the entry's
 * domain, otherwise the default threshold (Warning unless changed).
 *
 * Entries go to "~/Library/Logs/Velmora/<application name>.log", one line each, fields
 * separated by a tab:
 *
 *     date-time  level  domain  file:line  function  sender  message
 *
 * The date-time is ISO 8601 with milliseconds and UTC offset ("2024-05-01T14:03:07.125+02:00");
 * the level is its name ("Warning", or "Level 7" above Error); fields the context does not
 * give are empty. Further lines of a multi-line message follow as continuation lines that
 * start with a tab, so a line that does not start with a tab always begins an entry.
 *
 * When the log file cannot be written, entries go to stderr instead and the reason is
 * reported once. With the environment variable QK_LOG_TO_STDERR set, written warnings and
 * errors are also copied to stderr.
 *
 * Settings live in the user defaults:
 * - "QKApplicationLog Active": boolean, default true;
 * - "QKApplicationLog Default Threshold": integer level, default Warning (3);
 * - "QKApplicationLog Rules": array of dictionaries {"domain": string, "threshold": integer,
 *   "active": boolean}, in the order the rules were added.
 * Values of the wrong type are ignored in favour of the defaults; malformed rules are skipped.
 */
class QKBASE_EXPORT QKApplicationLog
{
public:
    enum Level : uint { Debug = 0, Info = 1, Notice = 2, Warning = 3, Error = 4 };

    /** The log of this process, created with the stored settings on first use. */
    static QKApplicationLog *sharedLog();
    /** Forgets the shared log so that the next sharedLog() reads its settings afresh.
     *  Pointers to the old log and its rules become invalid. */
    static void resetSharedLog();
    /** The name of @p level: "Debug", "Info", "Notice", "Warning", "Error", or "Level n". */
    static QString levelName(uint level);

    ~QKApplicationLog();
    QKApplicationLog(const QKApplicationLog &) = delete;
    QKApplicationLog &operator=(const QKApplicationLog &) = delete;

    /** Writes @p message at @p level when the log is active and the level passes the
     *  threshold that applies to the context's domain. A null context has no domain and
     *  no source location, so the default threshold applies. */
    void log(uint level, const QKApplicationLogContext *context, const QString &message);
    void info(const QKApplicationLogContext &context, const QString &message);
    void warning(const QKApplicationLogContext &context, const QString &message);

    /** The path of the log file; the file exists once something was written. */
    QString logFilePath() const;
    /** Shows the log file in the user's default viewer, creating an empty one first when
     *  nothing was logged yet. False when it could not be shown. */
    bool openLogFile() const;

    bool _active() const;
    /** Switches the log on or off and stores the flag. */
    void _setActive(bool active);
    uint _defaultThreshold() const;
    /** An empty @p domain sets the default threshold; otherwise sets that domain's rule,
     *  adding an active one when there is none. Stores the change. */
    void _setThreshold(uint threshold, const QString &domain = QString());
    /** The rules in the order they were added; the pointers stay valid until removed. */
    QList<QKApplicationLogRule *> _rules() const;
    /** Removes and deletes @p rule and stores the rules; unknown rules are ignored. */
    void _removeRule(QKApplicationLogRule *rule);
    /** Stores the active flag, the default threshold and the rules as they are now, edits
     *  made through the rules' setters included. */
    void _updateDefaults();

private:
    QKApplicationLog();
    void store(bool active, bool threshold, bool rules) const;

    struct Private;
    std::unique_ptr<Private> d;
};
