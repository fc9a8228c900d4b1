#include "QKPluginValidationProtocol.h"

#include <QDataStream>
#include <QIODevice>

#include <cerrno>
#include <sys/socket.h>

namespace QKPluginValidationProtocol {

namespace {

constexpr QDataStream::Version StreamVersion = QDataStream::Qt_6_4;

template<typename Write> QByteArray serialise(Write write)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(StreamVersion);
    write(stream);
    return bytes;
}

template<typename Read> bool deserialise(const QByteArray &bytes, Read read)
{
    QDataStream stream(bytes);
    stream.setVersion(StreamVersion);
    read(stream);
    return stream.status() == QDataStream::Ok && stream.atEnd();
}

} // namespace

QByteArray encode(const Request &request)
{
    return serialise([&](QDataStream &s) { s << request.kind << request.state; });
}

QByteArray encode(const Reply &reply)
{
    return serialise([&](QDataStream &s) { s << reply.loaded << reply.state << reply.failure; });
}

std::optional<Request> decodeRequest(const QByteArray &message)
{
    Request request;
    if (!deserialise(message, [&](QDataStream &s) { s >> request.kind >> request.state; }))
        return std::nullopt;
    return request;
}

std::optional<Reply> decodeReply(const QByteArray &message)
{
    Reply reply;
    if (!deserialise(message,
                     [&](QDataStream &s) { s >> reply.loaded >> reply.state >> reply.failure; }))
        return std::nullopt;
    return reply;
}

QByteArray frame(const QByteArray &payload)
{
    const auto size = quint32(payload.size());
    QByteArray bytes;
    bytes.reserve(4 + payload.size());
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.append(char((size >> shift) & 0xff));
    bytes.append(payload);
    return bytes;
}

void MessageReader::append(const char *data, qsizetype size)
{
    m_buffer.append(data, size);
}

std::optional<QByteArray> MessageReader::take()
{
    if (m_corrupt || m_buffer.size() < 4)
        return std::nullopt;
    quint32 size = 0;
    for (int i = 0; i < 4; ++i)
        size = (size << 8) | quint8(m_buffer.at(i));
    if (size > MessageSizeLimit) {
        m_corrupt = true;
        return std::nullopt;
    }
    if (m_buffer.size() < 4 + qsizetype(size))
        return std::nullopt;
    QByteArray message = m_buffer.mid(4, size);
    m_buffer.remove(0, 4 + size);
    return message;
}

bool sendAll(int socket, const QByteArray &bytes)
{
    qsizetype sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n =
            ::send(socket, bytes.constData() + sent, size_t(bytes.size() - sent), MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        sent += n;
    }
    return true;
}

} // namespace QKPluginValidationProtocol
