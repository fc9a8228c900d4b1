#pragma once

#include "SiteReply.h"

#include <QTcpServer>

#include <functional>
#include <memory>

struct SpoolRoute;

/**
 * The site's listening socket, which refuses request bodies over a limit before they are
 * read. Qt's HTTP server (6.4) collects a whole body, however large, before the site sees
 * the request, so every connection is watched from here: the head of each request is read
 * before the HTTP server reads it, a body announced larger than the limit gets 413 and the
 * connection is closed, and a chunked body is counted as it arrives and cut off at the
 * limit. A head that cannot be framed (over 64 KiB, a bad length or chunk size) gets 400.
 *
 * Large uploads can be kept out of memory as well (see spoolBodies()).
 *
 * Bind it to the HTTP server after listen(); the HTTP server then owns it.
 */
class RequestGate : public QTcpServer
{
    Q_OBJECT
public:
    /** The default limit: a 100 MB attachment as Base64 plus the rest of its form. */
    static constexpr qint64 defaultBodyLimit = 160 * 1024 * 1024;

    /** Answers a request body, given the request's Content-Type header. */
    using BodyHandler =
        std::function<SiteReply(const QByteArray &contentType, const QByteArray &body)>;

    explicit RequestGate(qint64 bodyLimit = defaultBodyLimit, QObject *parent = nullptr);
    ~RequestGate() override;

    /** The largest request body accepted, in bytes. */
    qint64 bodyLimit() const { return m_bodyLimit; }

    /**
     * Takes a POST to @p path whose Content-Length is @p threshold bytes or more away from
     * the HTTP server, which would hold its body in memory twice over: the body goes to a
     * temporary file, @p handler answers it from a mapping of that file, and the connection
     * closes after the reply. Applies to connections accepted from then on.
     */
    void spoolBodies(const QByteArray &path, qint64 threshold, BodyHandler handler);

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    const qint64 m_bodyLimit;
    std::shared_ptr<const SpoolRoute> m_spoolRoute;
};
