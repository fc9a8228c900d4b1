#pragma once

#include <QByteArray>
#include <QList>
#include <QMutex>
#include <QThread>
#include <QUrl>

#include <functional>
#include <memory>

class QTcpSocket;

/**
 * A tiny HTTP/1.1 responder on 127.0.0.1 that answers from a thread of its own, so the
 * code under test may block any other thread while it waits. Every request is recorded
 * byte for byte; a handler (called on the server's thread) decides the answer.
 */
class QKTestHttpServer
{
public:
    using Headers = QList<std::pair<QByteArray, QByteArray>>;

    struct Request
    {
        QByteArray method;
        QByteArray path;
        Headers headers;
        QByteArray body;

        /** The value of header @p name (compared without case); empty when absent. */
        QByteArray header(const QByteArray &name) const;
    };

    struct Response
    {
        /** Drop closes the connection without an answer; Hang never answers. */
        enum class Action { Answer, Drop, Hang };

        int status = 200;
        QByteArray body;
        Headers headers;
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
    // Answers every complete request at the front of @p buffer.
    void answer(QTcpSocket *socket, QByteArray &buffer);

    Handler m_handler;
    std::unique_ptr<QThread> m_thread;
    quint16 m_port = 0;
    mutable QMutex m_mutex;
    QList<Request> m_requests;
};
