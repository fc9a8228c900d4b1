#include "RequestGate.h"

#include "RequestFraming.h"

#include <QDateTime>
#include <QPointer>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <cstdio>

#include <unistd.h>

namespace {

/**
 * How long a refused connection goes on draining what the client still sends before it is
 * closed: closing with unread data resets the connection, and the client would lose the
 * refusal.
 */
constexpr int lingerMilliseconds = 1000;

/** "METHOD target" of a request line, printable whatever the client sent. */
QByteArray logTarget(const QByteArray &requestLine)
{
    QByteArray target = requestLine.split(' ').mid(0, 2).join(' ').left(200);
    std::replace_if(
        target.begin(), target.end(), [](char c) { return c < 0x20 || c > 0x7e; }, '?');
    return target;
}

/**
 * Watches one connection for the gate. Its reader is connected before the HTTP server's,
 * so it sees new bytes before the HTTP server reads them; what the HTTP server leaves
 * unread is noted after the HTTP server's reader and not followed twice.
 */
class ConnectionWatch : public QObject
{
public:
    ConnectionWatch(QTcpSocket *socket, QObject *httpServer, qint64 bodyLimit)
        : QObject(socket), m_socket(socket), m_httpServer(httpServer), m_framing(bodyLimit),
          m_bodyLimit(bodyLimit)
    {}

    void readBeforeServer();
    void readAfterServer() { m_followed = m_socket->bytesAvailable(); }

private:
    void refuse(RequestFraming::Verdict verdict);

    QTcpSocket *const m_socket;
    const QPointer<QObject> m_httpServer;
    RequestFraming m_framing;
    const qint64 m_bodyLimit;
    /** Unread bytes at the start of the socket's buffer that the framing has followed. */
    qint64 m_followed = 0;
    bool m_refused = false;
};

void ConnectionWatch::readBeforeServer()
{
    if (m_refused) {
        m_socket->skip(m_socket->bytesAvailable());
        return;
    }
    const QByteArray available = m_socket->peek(m_socket->bytesAvailable());
    const qsizetype followed = qsizetype(std::min<qint64>(m_followed, available.size()));
    const RequestFraming::Verdict verdict =
        m_framing.feed(QByteArrayView(available).sliced(followed));
    m_followed = available.size();
    if (verdict != RequestFraming::Verdict::Pass)
        refuse(verdict);
}

void ConnectionWatch::refuse(RequestFraming::Verdict verdict)
{
    m_refused = true;
    // The HTTP server reads nothing more from this connection; what it holds of the refused
    // request goes with the socket. The read transaction it keeps open would otherwise hold
    // every byte drained from here on.
    if (m_httpServer)
        disconnect(m_socket, &QTcpSocket::readyRead, m_httpServer, nullptr);
    if (m_socket->isTransactionStarted())
        m_socket->commitTransaction();
    m_socket->skip(m_socket->bytesAvailable());

    const bool tooLarge = verdict == RequestFraming::Verdict::TooLarge;
    const QByteArray status = tooLarge ? "413 Payload Too Large" : "400 Bad Request";
    const QByteArray message = tooLarge ? "The request body is over the limit of " +
                                              QByteArray::number(m_bodyLimit) + " bytes.\n"
                                        : QByteArray("The request cannot be read.\n");
    m_socket->write("HTTP/1.1 " + status +
                    "\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: " +
                    QByteArray::number(message.size()) + "\r\nConnection: close\r\n\r\n" + message);
    QTimer::singleShot(lingerMilliseconds, m_socket,
                       [socket = m_socket] { socket->disconnectFromHost(); });

    const QByteArray size = m_framing.bodySize() < 0
                                ? QByteArray("no length")
                                : QByteArray::number(m_framing.bodySize()) + " bytes";
    std::fprintf(stderr, "%s %s -> %d (refused: %s, body %s, limit %lld)\n",
                 qPrintable(QDateTime::currentDateTime().toString(Qt::ISODate)),
                 logTarget(m_framing.requestLine()).constData(), tooLarge ? 413 : 400,
                 tooLarge ? "body too large" : "cannot be framed", size.constData(),
                 static_cast<long long>(m_bodyLimit));
    std::fflush(stderr);
}

} // namespace

RequestGate::RequestGate(qint64 bodyLimit, QObject *parent)
    : QTcpServer(parent), m_bodyLimit(bodyLimit)
{}

void RequestGate::incomingConnection(qintptr descriptor)
{
    auto *socket = new QTcpSocket(this);
    if (!socket->setSocketDescriptor(descriptor)) {
        std::fprintf(stderr, "cannot take a connection: %s\n", qPrintable(socket->errorString()));
        delete socket;
        ::close(int(descriptor));
        return;
    }
    auto *watch = new ConnectionWatch(socket, parent(), m_bodyLimit);
    connect(socket, &QTcpSocket::readyRead, watch, &ConnectionWatch::readBeforeServer);
    // The HTTP server connects its reader while the connection is being added.
    addPendingConnection(socket);
    connect(socket, &QTcpSocket::readyRead, watch, &ConnectionWatch::readAfterServer);
}
