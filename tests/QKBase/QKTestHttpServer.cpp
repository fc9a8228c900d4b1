#include "QKTestHttpServer.h"

#include <QEventLoop>
#include <QMutex>
#include <QMutexLocker>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <future>

struct QKTestHttpServer::Private
{
    Handler handler;
    std::unique_ptr<QThread> thread;
    quint16 port = 0;
    mutable QMutex mutex;
    QList<Request> requests;

    void serve(QTcpSocket *socket);
    // Answers every complete request at the front of @p buffer; false once the
    // connection has been given up.
    bool answer(QTcpSocket *socket, QByteArray &buffer);
};

namespace {

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200:
        return "OK";
    case 302:
        return "Found";
    case 404:
        return "Not Found";
    case 500:
        return "Internal Server Error";
    default:
        return "Status";
    }
}

// Parses the head of a request; returns the length of head plus body, or -1 while the
// request is still incomplete.
qsizetype parseRequest(const QByteArray &buffer, QKTestHttpServer::Request &request)
{
    const qsizetype headEnd = buffer.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return -1;
    const QList<QByteArray> lines = buffer.left(headEnd).split('\n');
    const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
    request.method = requestLine.value(0);
    request.path = requestLine.value(1);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0)
            request.headers.append({lines[i].left(colon), lines[i].mid(colon + 1).trimmed()});
    }
    const qsizetype length = request.header("Content-Length").toLongLong();
    if (buffer.size() < headEnd + 4 + length)
        return -1;
    request.body = buffer.mid(headEnd + 4, length);
    return headEnd + 4 + length;
}

} // namespace

QByteArray QKTestHttpServer::Request::header(const QByteArray &name) const
{
    for (const auto &[key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    }
    return QByteArray();
}

void QKTestHttpServer::Private::serve(QTcpSocket *socket)
{
    auto buffer = std::make_shared<QByteArray>();
    QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, buffer] {
        buffer->append(socket->readAll());
        answer(socket, *buffer);
    });
    QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
}

bool QKTestHttpServer::Private::answer(QTcpSocket *socket, QByteArray &buffer)
{
    for (;;) {
        Request request;
        const qsizetype consumed = parseRequest(buffer, request);
        if (consumed < 0)
            return true;
        buffer.remove(0, consumed);
        {
            QMutexLocker locker(&mutex);
            requests.append(request);
        }
        const Response response = handler(request);
        if (response.action == Response::Action::Drop) {
            socket->abort();
            return false;
        }
        if (response.action == Response::Action::Hang)
            return false;
        QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) + ' ' +
                          reasonPhrase(response.status) + "\r\n";
        head += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n";
        for (const auto &[name, value] : response.headers)
            head += name + ": " + value + "\r\n";
        socket->write(head + "\r\n" + response.body);
    }
}

QKTestHttpServer::QKTestHttpServer(Handler handler) : d(std::make_unique<Private>())
{
    d->handler = std::move(handler);
    std::promise<quint16> listening;
    std::future<quint16> port = listening.get_future();
    d->thread.reset(QThread::create([this, &listening] {
        QTcpServer server;
        server.listen(QHostAddress::LocalHost, 0);
        QObject::connect(&server, &QTcpServer::newConnection, &server, [this, &server] {
            while (QTcpSocket *socket = server.nextPendingConnection())
                d->serve(socket);
        });
        listening.set_value(server.serverPort());
        // Runs until the destructor quits the thread (even if it does so before this).
        QEventLoop loop;
        loop.exec();
    }));
    d->thread->start();
    d->port = port.get();
}

QKTestHttpServer::~QKTestHttpServer()
{
    d->thread->quit();
    d->thread->wait();
}

QUrl QKTestHttpServer::url(const QString &path) const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(d->port).arg(path));
}

QList<QKTestHttpServer::Request> QKTestHttpServer::requests() const
{
    QMutexLocker locker(&d->mutex);
    return d->requests;
}
