#pragma once

#include <QByteArray>
#include <QList>
#include <QUrl>

#include <functional>
#include <memory>
#include <utility>

/**
 * A tiny HTTP/1.1 responder on 127.0.0.1 that answers from a thread of its own, so the
 * code under test may block any other thread while it waits. Every request is recorded
 * byte for byte; a handler (called on the server's thread) decides the answer.
 */
class QKTestHttpServer
{
public:
    struct Request
    {
        QByteArray method;
        QByteArray path;
        /** Header lines as sent, names as written. */
        QList<std::pair<QByteArray, QByteArray>> headers;
        QByteArray body;

        /** The value of header @p name (compared without case); empty when absent. */
        QByteArray header(const QByteArray &name) const;
    };

    struct Response
    {
        enum class Action { Answer, Drop, Hang };

        int status = 200;
        QByteArray body;
        QList<std::pair<QByteArray, QByteArray>> headers;
        /** Drop closes the connection without an answer; Hang never answers. */
        Action action = Action::Answer;
    };

    using Handler = std::function<Response(const Request &)>;

    explicit QKTestHttpServer(Handler handler);
    ~QKTestHttpServer();

    /** The address of @p path on this server. */
    QUrl url(const QString &path = QStringLiteral("/")) const;
    /** Every complete request received so far, in arrival order. */
    QList<Request> requests() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};
