#pragma once

// Shared by the QKBase tests: a capture of Qt's messages.

#include "QKTestPrinters.h"

#include <QMutex>

#include <gtest/gtest.h>

/** Collects Qt's messages, from any thread, while it lives. */
class MessageCapture
{
public:
    MessageCapture() { s_previous = qInstallMessageHandler(&MessageCapture::handle); }
    ~MessageCapture()
    {
        qInstallMessageHandler(s_previous);
        s_messages.clear();
    }
    /** The messages so far; with @p category only that category's warnings. */
    QStringList messages(const char *category = nullptr) const
    {
        QMutexLocker locker(&s_mutex);
        QStringList texts;
        for (const auto &[warning, from, text] : std::as_const(s_messages)) {
            if (!category || (warning && from == category))
                texts << text;
        }
        return texts;
    }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text)
    {
        QMutexLocker locker(&s_mutex);
        s_messages.append({type == QtWarningMsg, context.category, text});
    }
    static inline QMutex s_mutex;
    static inline QList<std::tuple<bool, QByteArray, QString>> s_messages;
    static inline QtMessageHandler s_previous = nullptr;
};
