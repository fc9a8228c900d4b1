#pragma once

#include "QKBaseGlobal.h"

#include <QList>
#include <QString>

#include <memory>
#include <source_location>

class QObject;

/**
 * Where a log entry comes from: its domain, the sender, and the source location of the
 * call (taken automatically at the call site).
 */
class QKBASE_EXPORT QKApplicationLogContext
{
public:
    QKApplicationLogContext(const QString &domain = QString(), const QObject *sender = nullptr,
                            std::source_location location = std::source_location::current());

    QString domain() const { return m_domain; }
    QString file() const { return m_file; }
    int line() const { return m_line; }
    QString function() const { return m_function; }
    /** The sender's class and object name, empty without a sender. */
    QString sender() const { return m_sender; }

private:
    QString m_domain;
    QString m_file;
    int m_line = 0;
    QString m_function;
    QString m_sender;
};

/** A per-domain rule: while active, entries of its domain are written at its own threshold. */
class QKBASE_EXPORT QKApplicationLogRule
{
public:
    QKApplicationLogRule(const QString &domain, uint threshold, bool active = true);

    bool active() const { return m_active; }
    void setActive(bool active) { m_active = active; }
    QString domain() const { return m_domain; }
    uint threshold() const { return m_threshold; }
    void setThreshold(uint threshold) { m_threshold = threshold; }

private:
    QString m_domain;
    uint m_threshold;
    bool m_active;
};

/**
 * The application's debug log, shared by the whole process and safe to call from any
 * thread. Entries below their domain's threshold are dropped; the rest go, one line each,
 * to "~/Library/Logs/Velmora/<application name>.log". The active flag, the default threshold
 * and the rules are kept in the user defaults.
 *
 * Levels rise with severity: an entry is written when its level is at least the threshold.
 */
class QKBASE_EXPORT QKApplicationLog
{
public:
    enum Level : uint { Debug = 0, Info = 1, Notice = 2, Warning = 3, Error = 4 };

    static QKApplicationLog *sharedLog();
    /** Forgets the shared log so that the next sharedLog() reads its settings afresh. */
    static void resetSharedLog();

    ~QKApplicationLog();

    /** Writes @p message at @p level when the log is active and the level passes the
     *  threshold that applies to the context's domain. A null context uses the default. */
    void log(uint level, const QKApplicationLogContext *context, const QString &message);
    void info(const QKApplicationLogContext &context, const QString &message);
    void warning(const QKApplicationLogContext &context, const QString &message);

    /** The path of the log file; the file exists once something was written. */
    QString logFilePath() const;
    /** Shows the log file to the user (the default viewer). */
    void openLogFile() const;

    bool _active() const;
    void _setActive(bool active);
    uint _defaultThreshold() const;
    /** A null @p domain sets the default threshold; otherwise sets (or adds) that
     *  domain's rule. */
    void _setThreshold(uint threshold, const QString &domain = QString());
    /** The rules in the order they were added; the pointers stay valid until removed. */
    QList<QKApplicationLogRule *> _rules() const;
    void _removeRule(QKApplicationLogRule *rule);
    /** Stores the active flag, default threshold and rules in the user defaults. */
    void _updateDefaults();

private:
    QKApplicationLog();
    struct Private;
    std::unique_ptr<Private> d;
};
