#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

class QIODevice;
class QNetworkRequest;
class QUrl;

/**
 * One HTTP/1.1 POST over a connection of its own, for the help desk's exchanges. The body
 * is read from its device in large pieces as fast as the connection drains, on the thread
 * that owns the object; nothing is ever sent twice. The reply is read whole, within
 * QKHttpResponseParser's limits, and ends the post whatever its status.
 *
 * Qt's access manager hands a body to its HTTP thread 16 KB at a time with a wake-up each
 * way per piece; for a 100 MB archive that is most of the time the upload spends sending.
 *
 * The connection may be opened ahead of the post (connectTo()), for instance while the
 * files to send are archived. Proxies are those Qt applies to any socket.
 */
class QKHttpFormPost : public QObject
{
public:
    /** The reply's body and no error, or the error of a transport failure. */
    using Finished =
        std::function<void(const QByteArray &reply, const std::optional<QString> &error)>;

    explicit QKHttpFormPost(QObject *parent = nullptr);
    /** Abandons the post; its Finished is not called. */
    ~QKHttpFormPost() override;

    /** Opens the connection for a later post to @p url. */
    void connectTo(const QUrl &url);
    /**
     * Posts @p body (opened, of known size) with the URL and headers of @p request, on the
     * connection opened for the same scheme, host and port, or on a new one. @p finished is
     * called once, on this object's thread. Call at most once.
     */
    void post(const QNetworkRequest &request, std::unique_ptr<QIODevice> body, Finished finished);

private:
    struct Private;
    std::unique_ptr<Private> d;
};
