#include "RequestGate.h"

#include "RequestFraming.h"

#include <QDateTime>
#include <QDir>
#include <QPointer>
#include <QTcpSocket>
#include <QTemporaryFile>
#include <QTimer>

#include <algorithm>
#include <cstdio>

#include <unistd.h>

struct SpoolRoute
{
    QByteArray path;
    qint64 threshold = 0;
    RequestGate::BodyHandler handler;
};

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

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200:
        return "OK";
    case 400:
        return "Bad Request";
    case 404:
        return "Not Found";
    case 413:
        return "Payload Too Large";
    default:
        return "Internal Server Error";
    }
}

void logLine(const QByteArray &requestLine, int status, const QByteArray &what)
{
    std::fprintf(stderr, "%s %s -> %d (%s)\n",
                 qPrintable(QDateTime::currentDateTime().toString(Qt::ISODate)),
                 logTarget(requestLine).constData(), status, what.constData());
    std::fflush(stderr);
}

/**
 * Watches one connection for the gate. Its reader is connected before the HTTP server's,
 * so it sees new bytes before the HTTP server reads them; what the HTTP server leaves
 * unread is noted after the HTTP server's reader and not followed twice. When it takes a
 * request over, the HTTP server reads nothing more from the connection.
 */
class ConnectionWatch : public QObject
{
public:
    ConnectionWatch(QTcpSocket *socket, QObject *httpServer, qint64 bodyLimit,
                    std::shared_ptr<const SpoolRoute> spoolRoute)
        : QObject(socket), m_socket(socket), m_httpServer(httpServer), m_framing(bodyLimit),
          m_bodyLimit(bodyLimit), m_spoolRoute(std::move(spoolRoute))
    {}

    void readBeforeServer();
    void readAfterServer() { m_followed = m_socket->bytesAvailable(); }

private:
    bool wantsSpool() const;
    void startSpool(qsizetype headSize);
    void spool();
    SiteReply answerSpooledBody();
    void refuse(RequestFraming::Verdict verdict);
    void detachFromServer();
    void reply(const SiteReply &answer, int lingerTime);

    QTcpSocket *const m_socket;
    const QPointer<QObject> m_httpServer;
    RequestFraming m_framing;
    const qint64 m_bodyLimit;
    const std::shared_ptr<const SpoolRoute> m_spoolRoute;
    /** Unread bytes at the start of the socket's buffer that the framing has followed. */
    qint64 m_followed = 0;
    /** The connection is answered; whatever else arrives is dropped. */
    bool m_closing = false;
    std::unique_ptr<QTemporaryFile> m_spool;
    qint64 m_spoolRemaining = 0;
};

void ConnectionWatch::readBeforeServer()
{
    if (m_closing) {
        m_socket->skip(m_socket->bytesAvailable());
        return;
    }
    if (m_spool) {
        spool();
        return;
    }
    const QByteArray available = m_socket->peek(m_socket->bytesAvailable());
    qsizetype followed = qsizetype(std::min<qint64>(m_followed, available.size()));
    // A request is taken over only when nothing before its head is left for the HTTP server.
    bool mayTakeOver = m_framing.isInHead() && followed == 0;
    while (followed < available.size() && m_framing.verdict() == RequestFraming::Verdict::Pass) {
        followed += m_framing.feed(QByteArrayView(available).sliced(followed));
        const bool takeOver = mayTakeOver && m_framing.isAtBodyStart() && wantsSpool();
        mayTakeOver = false;
        if (takeOver) {
            startSpool(followed);
            return;
        }
    }
    m_followed = available.size();
    if (m_framing.verdict() != RequestFraming::Verdict::Pass)
        refuse(m_framing.verdict());
}

bool ConnectionWatch::wantsSpool() const
{
    if (!m_spoolRoute || m_framing.isChunked() || m_framing.bodySize() < m_spoolRoute->threshold ||
        m_framing.verdict() != RequestFraming::Verdict::Pass)
        return false;
    const QList<QByteArray> request = m_framing.requestLine().split(' ');
    return request.value(0) == "POST" && request.value(1) == m_spoolRoute->path;
}

void ConnectionWatch::startSpool(qsizetype headSize)
{
    detachFromServer();
    m_socket->skip(headSize);
    m_spool = std::make_unique<QTemporaryFile>(QDir::tempPath() +
                                               QStringLiteral("/qk-support-site-XXXXXX"));
    if (!m_spool->open()) {
        logLine(m_framing.requestLine(), 500,
                "cannot spool the body: " + m_spool->errorString().toUtf8());
        m_spool.reset();
        reply(SiteReply::text(500, "The request body cannot be stored."), lingerMilliseconds);
        return;
    }
    m_spoolRemaining = m_framing.bodySize();
    // curl holds a large body back for a second unless the server asks for it.
    if (m_framing.header("expect").compare("100-continue", Qt::CaseInsensitive) == 0)
        m_socket->write("HTTP/1.1 100 Continue\r\n\r\n");
    spool();
}

void ConnectionWatch::spool()
{
    constexpr qint64 blockSize = 1024 * 1024;
    while (m_spoolRemaining > 0 && m_socket->bytesAvailable() > 0) {
        const QByteArray block = m_socket->read(std::min(m_spoolRemaining, blockSize));
        if (m_spool->write(block) != block.size()) {
            logLine(m_framing.requestLine(), 500,
                    "cannot spool the body: " + m_spool->errorString().toUtf8());
            m_spool.reset();
            reply(SiteReply::text(500, "The request body cannot be stored."), lingerMilliseconds);
            return;
        }
        m_spoolRemaining -= block.size();
    }
    if (m_spoolRemaining > 0)
        return;
    const SiteReply answer = answerSpooledBody();
    m_spool.reset(); // unmaps and removes the file
    logLine(m_framing.requestLine(), answer.status,
            QByteArray::number(answer.body.size()) + " bytes, body spooled");
    reply(answer, 0);
}

SiteReply ConnectionWatch::answerSpooledBody()
{
    const qint64 size = m_spool->size();
    const uchar *mapped = size > 0 ? m_spool->map(0, size) : nullptr;
    if (size > 0 && !mapped)
        return SiteReply::text(500, "The request body cannot be read back.");
    // The handler sees the file's pages, not a copy; it keeps no reference to them.
    const QByteArray body = QByteArray::fromRawData(reinterpret_cast<const char *>(mapped), size);
    return m_spoolRoute->handler(m_framing.header("content-type"), body);
}

void ConnectionWatch::refuse(RequestFraming::Verdict verdict)
{
    detachFromServer();
    m_socket->skip(m_socket->bytesAvailable());
    const bool tooLarge = verdict == RequestFraming::Verdict::TooLarge;
    const QByteArray limit = QByteArray::number(m_bodyLimit);
    reply(tooLarge
              ? SiteReply::text(413, "The request body is over the limit of " + limit + " bytes.")
              : SiteReply::text(400, "The request cannot be read."),
          lingerMilliseconds);

    const QByteArray size = m_framing.bodySize() < 0
                                ? QByteArray("no length")
                                : QByteArray::number(m_framing.bodySize()) + " bytes";
    logLine(m_framing.requestLine(), tooLarge ? 413 : 400,
            "refused: " + QByteArray(tooLarge ? "body too large" : "cannot be framed") + ", body " +
                size + ", limit " + limit);
}

void ConnectionWatch::detachFromServer()
{
    // What the HTTP server holds of this request goes with the socket. The read transaction
    // it keeps open would otherwise hold every byte read from here on.
    if (m_httpServer)
        disconnect(m_socket, &QTcpSocket::readyRead, m_httpServer, nullptr);
    if (m_socket->isTransactionStarted())
        m_socket->commitTransaction();
}

void ConnectionWatch::reply(const SiteReply &answer, int lingerTime)
{
    m_closing = true;
    m_socket->write("HTTP/1.1 " + QByteArray::number(answer.status) + ' ' +
                    reasonPhrase(answer.status) + "\r\nContent-Type: " + answer.contentType +
                    "\r\nContent-Length: " + QByteArray::number(answer.body.size()) +
                    "\r\nConnection: close\r\n\r\n" + answer.body);
    QTimer::singleShot(lingerTime, m_socket, [socket = m_socket] { socket->disconnectFromHost(); });
}

} // namespace

RequestGate::RequestGate(qint64 bodyLimit, QObject *parent)
    : QTcpServer(parent), m_bodyLimit(bodyLimit)
{}

RequestGate::~RequestGate() = default;

void RequestGate::spoolBodies(const QByteArray &path, qint64 threshold, BodyHandler handler)
{
    m_spoolRoute =
        std::make_shared<const SpoolRoute>(SpoolRoute{path, threshold, std::move(handler)});
}

void RequestGate::incomingConnection(qintptr descriptor)
{
    auto *socket = new QTcpSocket(this);
    if (!socket->setSocketDescriptor(descriptor)) {
        std::fprintf(stderr, "cannot take a connection: %s\n", qPrintable(socket->errorString()));
        delete socket;
        ::close(int(descriptor));
        return;
    }
    auto *watch = new ConnectionWatch(socket, parent(), m_bodyLimit, m_spoolRoute);
    connect(socket, &QTcpSocket::readyRead, watch, &ConnectionWatch::readBeforeServer);
    // The HTTP server connects its reader while the connection is being added.
    addPendingConnection(socket);
    connect(socket, &QTcpSocket::readyRead, watch, &ConnectionWatch::readAfterServer);
}
