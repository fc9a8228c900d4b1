#pragma once

#include "QKBaseGlobal.h"

#include <QString>
#include <QVariantMap>

#include <exception>

/**
 * An application error raised inside an event handler. It carries a name, a reason, user
 * information and the stack trace taken where it was made, so a report can say where the
 * problem started, not only where it was caught.
 */
class QKBASE_EXPORT QKException : public std::exception
{
public:
    explicit QKException(const QString &reason, const QVariantMap &userInfo = {},
                         const QString &name = QStringLiteral("QKException"));

    QString name() const { return m_name; }
    QString reason() const { return m_reason; }
    QVariantMap userInfo() const { return m_userInfo; }
    /** One symbolised frame per line, innermost first. */
    QString stackTrace() const { return m_stackTrace; }

    const char *what() const noexcept override { return m_what.constData(); }

    /** The current call stack, one symbolised frame per line, skipping @p skipFrames. */
    static QString currentStackTrace(int skipFrames = 0);

private:
    QString m_name;
    QString m_reason;
    QVariantMap m_userInfo;
    QString m_stackTrace;
    QByteArray m_what;
};
