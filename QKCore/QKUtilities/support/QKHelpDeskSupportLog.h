#pragma once

#include <QKApplicationLog.h>

#include <source_location>

/**
 * The support pane's log lines: domain "HDSupport", the pane as sender, and the calling
 * method and source line as context, taken where these are called.
 */
namespace QKHelpDeskSupportLog {

inline void info(const QObject *sender, const QString &message,
                 std::source_location location = std::source_location::current())
{
    QKApplicationLog::sharedLog()->info(
        QKApplicationLogContext(QStringLiteral("HDSupport"), sender, location), message);
}

inline void warning(const QObject *sender, const QString &message,
                    std::source_location location = std::source_location::current())
{
    QKApplicationLog::sharedLog()->warning(
        QKApplicationLogContext(QStringLiteral("HDSupport"), sender, location), message);
}

} // namespace QKHelpDeskSupportLog
