#pragma once

#include <QByteArray>
#include <QString>
#include <QVariantMap>

#include <optional>

/**
 * What the host and a plug-in validator process say to each other over a stream socket:
 * each message is a 32-bit big-endian length followed by that many bytes of QDataStream.
 * The host asks for one description to be loaded; the validator answers with the state the
 * load produced, or why it could not load.
 */
namespace QKPluginValidationProtocol {

/** Descriptor number the validator finds its socket on. */
constexpr int ValidatorSocket = 3;
/** No message is larger: a description's state is a few hundred bytes. */
constexpr quint32 MessageSizeLimit = 1024 * 1024;

struct Request
{
    QString kind; // "au" or "vst"
    QVariantMap state;
};

struct Reply
{
    bool loaded = false;
    QVariantMap state;
    QString failure;
};

QByteArray encode(const Request &request);
QByteArray encode(const Reply &reply);
std::optional<Request> decodeRequest(const QByteArray &message);
std::optional<Reply> decodeReply(const QByteArray &message);

/** @p payload with its length in front. */
QByteArray frame(const QByteArray &payload);

/** Collects the bytes of a stream and hands out whole messages. */
class MessageReader
{
public:
    void append(const char *data, qsizetype size);
    /** The next whole message, if one has arrived. */
    std::optional<QByteArray> take();
    /** True once a length over the limit arrived; the stream is then useless. */
    bool isCorrupt() const { return m_corrupt; }

private:
    QByteArray m_buffer;
    bool m_corrupt = false;
};

/** Writes all of @p bytes to the socket, without SIGPIPE when the peer is gone. */
bool sendAll(int socket, const QByteArray &bytes);

} // namespace QKPluginValidationProtocol
