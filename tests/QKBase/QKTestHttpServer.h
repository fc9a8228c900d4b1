#pragma once

#include <QEventLoop>
#include <QMap>
#include <QMutex>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QUrl>

#include <functional>
#include <future>
#include <memory>

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
        QByteArray method, path;
        QMap<QByteArray, QByteArray> headers; // by lower-case name
        QByteArray body = {};

        /** The value of header @p name (compared without case); empty when absent. */
        QByteArray header(const QByteArray &name) const { return headers.value(name.toLower()); }
    };

    struct Response
    {
        int status = 200;
        QByteArray body = {};
        Headers headers = {};
    };
    /** Statuses that close the connection without an answer, never answer, or send a head
     *  and the start of a body (the response's body) and then nothing. */
    static constexpr int Drop = -1, Hang = -2, Stall = -3;

    using Handler = std::function<Response(const Request &)>;

    explicit QKTestHttpServer(Handler handler) : m_handler(std::move(handler))
    {
        std::promise<quint16> listening;
        m_thread.reset(QThread::create([this, &listening] {
            QTcpServer server;
            server.listen(QHostAddress::LocalHost, 0);
            QObject::connect(&server, &QTcpServer::newConnection, &server, [this, &server] {
                while (QTcpSocket *socket = server.nextPendingConnection()) {
                    QObject::connect(socket, &QTcpSocket::disconnected, socket,
                                     &QObject::deleteLater);
                    QObject::connect(socket, &QTcpSocket::readyRead, socket,
                                     [this, socket, buffer = QByteArray()]() mutable {
                                         buffer += socket->readAll();
                                         answer(socket, buffer);
                                     });
                }
            });
            listening.set_value(server.serverPort());
            // Runs until the destructor quits the thread (even if it does so before this).
            QEventLoop().exec();
        }));
        m_thread->start();
        m_port = listening.get_future().get();
    }
    ~QKTestHttpServer()
    {
        m_thread->quit();
        m_thread->wait();
    }

    /** The address of @p path on this server. */
    QUrl url(const QString &path = QStringLiteral("/")) const
    {
        return QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(m_port).arg(path));
    }
    /** Every complete request received so far, in arrival order. */
    QList<Request> requests() const
    {
        QMutexLocker locker(&m_mutex);
        return m_requests;
    }

private:
    // Answers every complete request at the front of @p buffer.
    void answer(QTcpSocket *socket, QByteArray &buffer)
    {
        for (qsizetype headEnd; (headEnd = buffer.indexOf("\r\n\r\n")) >= 0;) {
            Request request;
            const QList<QByteArray> lines = buffer.left(headEnd).split('\n');
            const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
            request.method = requestLine.value(0);
            request.path = requestLine.value(1);
            for (const QByteArray &line : lines.mid(1)) {
                if (const qsizetype colon = line.indexOf(':'); colon > 0)
                    request.headers.insert(line.left(colon).toLower(),
                                           line.mid(colon + 1).trimmed());
            }
            const qsizetype length = request.header("Content-Length").toLongLong();
            if (buffer.size() < headEnd + 4 + length)
                return;
            request.body = buffer.mid(headEnd + 4, length);
            buffer.remove(0, headEnd + 4 + length);
            {
                QMutexLocker locker(&m_mutex);
                m_requests.append(request);
            }
            const Response response = m_handler(request);
            if (response.status == Drop)
                socket->abort();
            if (response.status == Stall)
                socket->write("HTTP/1.1 200 Status\r\nContent-Length: " +
                              QByteArray::number(response.body.size() + 1) + "\r\n\r\n" +
                              response.body);
            if (response.status < 0)
                return;
            // Clients read the status code, not the phrase after it.
            QByteArray head =
                "HTTP/1.1 " + QByteArray::number(response.status) +
                " Status\r\nContent-Length: " + QByteArray::number(response.body.size());
            for (const auto &[name, value] : response.headers)
                head += "\r\n" + name + ": " + value;
            socket->write(head + "\r\n\r\n" + response.body);
        }
    }

    Handler m_handler;
    std::unique_ptr<QThread> m_thread;
    quint16 m_port = 0;
    mutable QMutex m_mutex;
    QList<Request> m_requests;
};
