#pragma once

#include "QKUtilitiesGlobal.h"

#include <QByteArray>
#include <QObject>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <optional>

class QUrl;

/**
 * The support pane's one exchange at a time with the help desk API: a multipart form
 * posted to the endpoint, its reply collected, and the end method stored before the
 * exchange ends called with nothing on success or with the error.
 *
 * Only a transport failure (no connection, a connection dropped before the whole reply
 * arrived, no bytes moving for QKNetworkReplies::idleTimeout()) counts as an error; the HTTP
 * status is never examined, so an error page comes back as a reply like any other. A form
 * goes out at most once: a connection lost before the reply is a failure, never a resend.
 *
 * An end method may start the next exchange. The reply of the finished exchange stays
 * readable through responseData() until its end method returns, while the new exchange
 * collects its own reply from its first bytes.
 *
 * Exchanges are started and end on the thread that owns the object; the bytes travel on
 * a thread of the exchange's own, so a busy user interface does not slow an upload down.
 */
class QKUTILITIES_EXPORT QKHelpDeskExchange : public QObject
{
    Q_OBJECT
public:
    /** Called when an exchange ends: no value on success, the error's text otherwise. */
    using EndMethod = std::function<void(const std::optional<QString> &error)>;

    explicit QKHelpDeskExchange(QObject *parent = nullptr);
    /** Abandons a running exchange; its end method is not called. */
    ~QKHelpDeskExchange() override;

    /**
     * Posts @p form to @p url. Returns false, starting nothing, when @p url is not an
     * http or https address, a file of the form cannot be opened, or another exchange is
     * still running: the connection cannot be made. The form's files are open when this
     * returns, so the caller may remove them. Set the end method after a successful start.
     */
    bool start(const QUrl &url, const QVariantMap &form);
    /**
     * Gets ready for an exchange with @p url that follows a long preparation (archiving
     * files, say): starts the transfer thread and connects to the host meanwhile, so that
     * start() sends at once. Does nothing for an address start() would refuse; a
     * connection that cannot be made now is tried again by start().
     */
    void prepare(const QUrl &url);
    /** The method to call when the running exchange ends; replaces the previous one. */
    void setEndConnectionSelector(EndMethod endMethod);

    /** True from a successful start() until the end method is called. */
    bool isRunning() const;
    /**
     * The reply bytes of the exchange whose end method runs, else of the running exchange;
     * null between exchanges and until the first bytes arrive.
     */
    QByteArray responseData() const;

private:
    void didReceiveData(quint64 exchange, const QByteArray &bytes);
    void didFinishLoading(quint64 exchange, const std::optional<QString> &error);

    struct Private;
    std::unique_ptr<Private> d;
};
