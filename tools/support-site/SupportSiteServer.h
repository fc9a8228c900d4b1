#pragma once

#include <QAbstractHttpServer>

#include <memory>

class HelpDeskStore;
class SampleCatalogue;
struct SiteReply;

/**
 * The loopback support site: takes every request off the wire, hands it to the part of the
 * site that owns its path (help desk API, staff API, published pages), writes the reply
 * and logs one line per request on stderr. Arbitrary paths are routed here rather than with
 * QHttpServer's rules, because the site must accept paths such as ".../3//pdf/x.pdf".
 */
class SupportSiteServer : public QAbstractHttpServer
{
    Q_OBJECT
public:
    SupportSiteServer(const SampleCatalogue &catalogue, HelpDeskStore &store,
                      QObject *parent = nullptr);
    ~SupportSiteServer() override;

    /** The help desk API's reply to a POSTed @p body, for bodies that bypass the HTTP server
     *  (see RequestGate::spoolBodies()). */
    SiteReply helpDeskReply(const QByteArray &contentType, const QByteArray &body);

protected:
    bool handleRequest(const QHttpServerRequest &request, QTcpSocket *socket) override;
    void missingHandler(const QHttpServerRequest &request, QTcpSocket *socket) override;

private:
    SiteReply route(const QHttpServerRequest &request, const QString &baseURL) const;
    void send(const QHttpServerRequest &request, QTcpSocket *socket, SiteReply &reply);

    struct Private;
    std::unique_ptr<Private> d;
};
