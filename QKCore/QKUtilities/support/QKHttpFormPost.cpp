#include "QKHttpFormPost.h"

#include "QKHttpResponseParser.h"

#include <QKNetworkReplies.h>

#include <QCoreApplication>
#include <QIODevice>
#include <QNetworkRequest>
#include <QTcpSocket>
#include <QTimer>
#include <QUrl>

#if QT_CONFIG(ssl)
#include <QSslSocket>
#endif

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

// Large pieces, and enough of them queued, that the connection never waits for the body.
constexpr qint64 PieceSize = 1024 * 1024;
constexpr qint64 QueuedTarget = 2 * 1024 * 1024;

bool isSecure(const QUrl &url)
{
    return url.scheme() == QLatin1String("https");
}

int defaultPort(const QUrl &url)
{
    return isSecure(url) ? 443 : 80;
}

quint16 portOf(const QUrl &url)
{
    return quint16(url.port(defaultPort(url)));
}

bool canEncrypt()
{
#if QT_CONFIG(ssl)
    return QSslSocket::supportsSsl();
#else
    return false;
#endif
}

bool sameOrigin(const QUrl &a, const QUrl &b)
{
    return a.scheme() == b.scheme() && a.host() == b.host() && portOf(a) == portOf(b);
}

QByteArray hostField(const QUrl &url)
{
    QByteArray host = url.host(QUrl::FullyEncoded).toLatin1();
    if (host.contains(':'))
        host = '[' + host + ']';
    if (portOf(url) != defaultPort(url))
        host += ':' + QByteArray::number(url.port());
    return host;
}

QByteArray requestTarget(const QUrl &url)
{
    QByteArray target = url.path(QUrl::FullyEncoded).toLatin1();
    if (target.isEmpty())
        target = "/";
    if (url.hasQuery())
        target += '?' + url.query(QUrl::FullyEncoded).toLatin1();
    return target;
}

// The framing fields are this class's to write: it sends one body of known length and
// closes the connection after the reply.
bool isFramingField(const QByteArray &name)
{
    static const QByteArray framing[] = {"host", "content-length", "transfer-encoding",
                                         "connection", "expect"};
    const QByteArray lower = name.toLower();
    return std::find(std::begin(framing), std::end(framing), lower) != std::end(framing);
}

QByteArray requestHead(const QNetworkRequest &request, qint64 bodySize)
{
    const QUrl url = request.url();
    QByteArray head =
        "POST " + requestTarget(url) + " HTTP/1.1\r\nHost: " + hostField(url) + "\r\n";
    bool hasUserAgent = false;
    for (const QByteArray &name : request.rawHeaderList()) {
        if (isFramingField(name))
            continue;
        hasUserAgent = hasUserAgent || name.compare("user-agent", Qt::CaseInsensitive) == 0;
        head += name + ": " + request.rawHeader(name) + "\r\n";
    }
    if (!hasUserAgent) {
        const QString application = QCoreApplication::applicationName();
        const QString agent = application.isEmpty() ? QStringLiteral("QKUtilities")
                                                    : application + QLatin1Char('/') +
                                                          QCoreApplication::applicationVersion();
        head += "User-Agent: " + agent.toUtf8() + "\r\n";
    }
    head += "Content-Length: " + QByteArray::number(bodySize) + "\r\nConnection: close\r\n\r\n";
    return head;
}

} // namespace

struct QKHttpFormPost::Private
{
    QKHttpFormPost *q = nullptr;
    QUrl origin; // what the socket is connected to
    QTcpSocket *socket = nullptr;
    QTimer idle;
    bool ready = false; // connected, and encrypted for https

    QUrl url;
    QByteArray head;
    std::unique_ptr<QIODevice> body;
    qint64 bodySize = 0;
    qint64 bodyRead = 0;
    QByteArray piece;
    QKHttpResponseParser parser;
    Finished finished; // set while the post runs

    void open(const QUrl &target);
    void becameReady();
    void send();
    void receive();
    void failed(QAbstractSocket::SocketError error);
    void end(const std::optional<QString> &error);
};

void QKHttpFormPost::Private::open(const QUrl &target)
{
    if (QTcpSocket *previous = std::exchange(socket, nullptr)) {
        previous->disconnect();
        delete previous;
    }
    origin = target;
    ready = false;
#if QT_CONFIG(ssl)
    if (isSecure(target)) {
        auto *secure = new QSslSocket(q);
        socket = secure;
        QObject::connect(secure, &QSslSocket::encrypted, socket, [this] { becameReady(); });
        secure->connectToHostEncrypted(target.host(), portOf(target));
    }
#endif
    if (!socket) {
        socket = new QTcpSocket(q);
        QObject::connect(socket, &QTcpSocket::connected, socket, [this] { becameReady(); });
        // Unbuffered: writes go straight to the kernel while it takes them, without a copy.
        socket->connectToHost(target.host(), portOf(target),
                              QIODevice::ReadWrite | QIODevice::Unbuffered);
    }
    QObject::connect(socket, &QTcpSocket::bytesWritten, socket, [this] {
        if (finished)
            idle.start();
        send();
    });
    QObject::connect(socket, &QTcpSocket::readyRead, socket, [this] { receive(); });
    // Queued: a read can report the end of the connection before it returns the bytes that
    // came before the end, and those belong to the reply.
    QObject::connect(
        socket, &QTcpSocket::errorOccurred, socket,
        [this](QAbstractSocket::SocketError error) { failed(error); }, Qt::QueuedConnection);
    QObject::connect(
        socket, &QTcpSocket::disconnected, socket,
        [this] { failed(QAbstractSocket::RemoteHostClosedError); }, Qt::QueuedConnection);
}

void QKHttpFormPost::Private::becameReady()
{
    ready = true;
    if (finished)
        idle.start();
    send();
}

void QKHttpFormPost::Private::send()
{
    if (!finished || !ready)
        return;
    if (!head.isEmpty())
        socket->write(std::exchange(head, QByteArray()));
    while (body && bodyRead < bodySize && socket->bytesToWrite() < QueuedTarget) {
        piece.resize(qMin(PieceSize, bodySize - bodyRead));
        const qint64 read = body->read(piece.data(), piece.size());
        if (read <= 0) {
            end(QStringLiteral("The form could not be read to its end"));
            return;
        }
        bodyRead += read;
        // An unbuffered socket reports a failed write only through its result.
        if (socket->write(piece.constData(), read) != read) {
            end(socket->errorString());
            return;
        }
        idle.start();
    }
    // Sent: the body's files are let go of before the reply, which may take a while.
    if (bodyRead == bodySize)
        body.reset();
}

void QKHttpFormPost::Private::receive()
{
    const QByteArray bytes = socket->readAll();
    if (!finished) {
        // Nothing is expected before the request; such a connection is not used.
        socket->abort();
        return;
    }
    idle.start();
    switch (parser.feed(bytes)) {
    case QKHttpResponseParser::State::Complete:
        end(std::nullopt);
        break;
    case QKHttpResponseParser::State::Failed:
        end(parser.errorString());
        break;
    case QKHttpResponseParser::State::Incomplete:
        // An unbuffered socket that meets the end of the connection in a read says so only
        // through its state.
        if (socket->state() == QAbstractSocket::UnconnectedState)
            failed(socket->error());
        break;
    }
}

void QKHttpFormPost::Private::failed(QAbstractSocket::SocketError error)
{
    // A connection opened ahead of a post that is gone is replaced by the post.
    if (!finished)
        return;
    if (socket->bytesAvailable() > 0) {
        receive();
        if (!finished)
            return;
    }
    if (error != QAbstractSocket::RemoteHostClosedError) {
        end(socket->errorString());
        return;
    }
    if (parser.finishAtClose() == QKHttpResponseParser::State::Complete)
        end(std::nullopt);
    else
        end(parser.errorString());
}

void QKHttpFormPost::Private::end(const std::optional<QString> &error)
{
    if (!finished)
        return;
    idle.stop();
    const Finished report = std::exchange(finished, Finished());
    if (socket) {
        socket->disconnect();
        socket->abort();
    }
    body.reset();
    // The report may delete the post; nothing of it is touched afterwards.
    report(error ? QByteArray() : parser.body(), error);
}

QKHttpFormPost::QKHttpFormPost(QObject *parent) : QObject(parent), d(std::make_unique<Private>())
{
    d->q = this;
    d->idle.setSingleShot(true);
    QObject::connect(&d->idle, &QTimer::timeout, this, [this] {
        d->end(QKNetworkReplies::idleTimeoutError(d->url, d->idle.interval()));
    });
}

QKHttpFormPost::~QKHttpFormPost()
{
    if (d->socket)
        d->socket->disconnect();
}

void QKHttpFormPost::connectTo(const QUrl &url)
{
    if (!d->finished && (!isSecure(url) || canEncrypt()))
        d->open(url);
}

void QKHttpFormPost::post(const QNetworkRequest &request, std::unique_ptr<QIODevice> body,
                          Finished finished)
{
    d->url = request.url();
    d->bodySize = body ? body->size() : 0;
    d->head = requestHead(request, d->bodySize);
    d->body = std::move(body);
    d->finished = std::move(finished);
    d->idle.setInterval(int(QKNetworkReplies::idleTimeout().count()));
    d->idle.start();
    if (isSecure(d->url) && !canEncrypt()) {
        d->end(QStringLiteral("TLS is not available for %1").arg(d->url.toDisplayString()));
        return;
    }
    if (!d->socket || d->socket->state() == QAbstractSocket::UnconnectedState ||
        !sameOrigin(d->origin, d->url))
        d->open(d->url);
    d->send();
}
