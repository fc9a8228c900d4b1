#include "QKTestHttpServer.h"

#include <QEventLoop>
#include <QTcpServer>
#include <QTcpSocket>

#include <future>
#include <optional>

namespace {

// Takes the first complete request off the front of @p buffer; nullopt while there is none.
std::optional<QKTestHttpServer::Request> takeRequest(QByteArray &buffer)
{
    const qsizetype headEnd = buffer.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return std::nullopt;
    QKTestHttpServer::Request request;
    const QList<QByteArray> lines = buffer.left(headEnd).split('\n');
    const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
    request.method = requestLine.value(0);
    request.path = requestLine.value(1);
    for (const QByteArray &line : lines.mid(1)) {
        if (const qsizetype colon = line.indexOf(':'); colon > 0)
            request.headers.append({line.left(colon), line.mid(colon + 1).trimmed()});
    }
    const qsizetype length = request.header("Content-Length").toLongLong();
    if (buffer.size() < headEnd + 4 + length)
        return std::nullopt;
    request.body = buffer.mid(headEnd + 4, length);
    buffer.remove(0, headEnd + 4 + length);
    return request;
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

QKTestHttpServer::QKTestHttpServer(Handler handler) : m_handler(std::move(handler))
{
    std::promise<quint16> listening;
    m_thread.reset(QThread::create([this, &listening] {
        QTcpServer server;
        server.listen(QHostAddress::LocalHost, 0);
        QObject::connect(&server, &QTcpServer::newConnection, &server, [this, &server] {
            while (QTcpSocket *socket = server.nextPendingConnection()) {
                QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
                QObject::connect(socket, &QTcpSocket::readyRead, socket,
                                 [this, socket, buffer = QByteArray()]() mutable {
                                     buffer += socket->readAll();
                                     answer(socket, buffer);
                                 });
            }
        });
        listening.set_value(server.serverPort());
        // Runs until the destructor quits the thread (even if it does so before this).
        QEventLoop loop;
        loop.exec();
    }));
    m_thread->start();
    m_port = listening.get_future().get();
}

QKTestHttpServer::~QKTestHttpServer()
{
    m_thread->quit();
    m_thread->wait();
}

void QKTestHttpServer::answer(QTcpSocket *socket, QByteArray &buffer)
{
    while (const std::optional<Request> request = takeRequest(buffer)) {
        {
            QMutexLocker locker(&m_mutex);
            m_requests.append(*request);
        }
        const Response response = m_handler(*request);
        if (response.action == Response::Action::Drop)
            socket->abort();
        if (response.action != Response::Action::Answer)
            return;
        // Clients read the status code, not the phrase after it.
        QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) +
                          " Status\r\nContent-Length: " + QByteArray::number(response.body.size());
        for (const auto &[name, value] : response.headers)
            head += "\r\n" + name + ": " + value;
        socket->write(head + "\r\n\r\n" + response.body);
    }
}

QUrl QKTestHttpServer::url(const QString &path) const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(m_port).arg(path));
}

QList<QKTestHttpServer::Request> QKTestHttpServer::requests() const
{
    QMutexLocker locker(&m_mutex);
    return m_requests;
}
