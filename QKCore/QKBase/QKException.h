#pragma once

#include "QKBaseGlobal.h"

#include <QString>
#include <QVariantMap>

#include <exception>
#include <memory>

/**
 * An application error raised inside an event handler. It carries a name, a reason, user
 * information and the stack trace taken where it was made, so a report can say where the
 * problem started, not only where it was caught.
 *
 * Making an exception only records the return addresses; they are turned into text the first
 * time stackTrace() is asked for, so throwing stays cheap. Copies share that text.
 *
 * A stack trace has one line per frame, innermost first, made of the frame number, the
 * module (file name of the executable or shared library), the return address and where it
 * points:
 *
 *     2   libQKBase.so      0x00007f3a1c2b4e10 QKApplication::notify(QObject*, QEvent*) + 112
 *     3   tst_QKBase        0x000055e1d0a4b2c7 sendTestEvent(QObject*) (test_QKApplication.cpp:41)
 *     9   libc.so.6         0x00007f3a1b84624a libc.so.6 + 0x2724a
 *
 * - "function + offset" (decimal bytes into the function) when the module exports the
 *   function's symbol;
 * - "function" alone when only the module's debug information names it;
 * - "module + 0xoffset" (hexadecimal, counted from the module's start as addr2line and
 *   objdump count) when nothing names it, for example a hidden symbol in a stripped build.
 * " (file:line)" follows when debug information gives the source line of the call. Debug
 * information is read with addr2line (binutils) when it is installed, once per module.
 */
class QKBASE_EXPORT QKException : public std::exception
{
public:
    explicit QKException(const QString &reason, const QVariantMap &userInfo = {},
                         const QString &name = QStringLiteral("QKException"));

    QString name() const { return m_name; }
    QString reason() const { return m_reason; }
    QVariantMap userInfo() const { return m_userInfo; }
    /** The call stack where the exception was made, starting at the function that made it,
     *  in the format above; empty when the stack could not be read. */
    QString stackTrace() const;

    const char *what() const noexcept override { return m_what.constData(); }

    /** The current call stack in the same format, starting at the caller, without its
     *  innermost @p skipFrames frames. */
    static QString currentStackTrace(int skipFrames = 0);

private:
    struct Trace;

    QString m_name;
    QString m_reason;
    QVariantMap m_userInfo;
    std::shared_ptr<Trace> m_trace;
    QByteArray m_what;
};
