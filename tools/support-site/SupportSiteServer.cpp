#include "SupportSiteServer.h"

#include "HelpDeskAPI.h"
#include "PublicPages.h"
#include "SiteReply.h"
#include "StaffAPI.h"

#include <QDateTime>
#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QTcpSocket>
#include <QUrlQuery>

#include <cstdio>

namespace {

/** Links in replies use the address the client used to reach the site. */
QString baseURLOf(const QHttpServerRequest &request, QTcpSocket *socket)
{
    const QByteArray host = request.value("Host");
    if (!host.isEmpty())
        return QStringLiteral("http://") + QString::fromLatin1(host);
    return QStringLiteral("http://127.0.0.1:%1").arg(socket->localPort());
}

const char *methodName(QHttpServerRequest::Method method)
{
    switch (method) {
    case QHttpServerRequest::Method::Get:
        return "GET";
    case QHttpServerRequest::Method::Post:
        return "POST";
    case QHttpServerRequest::Method::Head:
        return "HEAD";
    case QHttpServerRequest::Method::Put:
        return "PUT";
    case QHttpServerRequest::Method::Delete:
        return "DELETE";
    default:
        return "OTHER";
    }
}

} // namespace

struct SupportSiteServer::Private
{
    Private(const SampleCatalogue &catalogue, HelpDeskStore &store)
        : pages(catalogue), helpDesk(store, catalogue), staff(store)
    {}

    PublicPages pages;
    HelpDeskAPI helpDesk;
    StaffAPI staff;
};

SupportSiteServer::SupportSiteServer(const SampleCatalogue &catalogue, HelpDeskStore &store,
                                     QObject *parent)
    : QAbstractHttpServer(parent), d(std::make_unique<Private>(catalogue, store))
{}

SupportSiteServer::~SupportSiteServer() = default;

SiteReply SupportSiteServer::helpDeskReply(const QByteArray &contentType, const QByteArray &body)
{
    return d->helpDesk.handle(contentType, body);
}

bool SupportSiteServer::handleRequest(const QHttpServerRequest &request, QTcpSocket *socket)
{
    SiteReply reply = route(request, baseURLOf(request, socket));
    send(request, socket, reply);
    return true;
}

void SupportSiteServer::missingHandler(const QHttpServerRequest &request, QTcpSocket *socket)
{
    SiteReply reply = SiteReply::notFound();
    send(request, socket, reply);
}

SiteReply SupportSiteServer::route(const QHttpServerRequest &request, const QString &baseURL) const
{
    const QStringList path = request.url().path().split(QLatin1Char('/'), Qt::SkipEmptyParts);
    const bool isGet = request.method() == QHttpServerRequest::Method::Get;
    const bool isPost = request.method() == QHttpServerRequest::Method::Post;
    const QString first = path.value(0);

    if (path.size() == 1 && first == QLatin1String("helpspot_api.php")) {
        if (!isPost)
            return HelpDeskAPI::error(QStringLiteral("POST a multipart form to the API"));
        return d->helpDesk.handle(request.value("Content-Type"), request.body());
    }
    if (first == QLatin1String("inspect") && (isGet || isPost)) {
        return d->staff.handle(isPost, path.mid(1), request.query(), request.value("Content-Type"),
                               request.body());
    }
    if (!isGet)
        return SiteReply::text(405, "Method Not Allowed");
    return d->pages.handle(path, request.query(), baseURL);
}

void SupportSiteServer::send(const QHttpServerRequest &request, QTcpSocket *socket,
                             SiteReply &reply)
{
    const auto status = QHttpServerResponder::StatusCode(reply.status);
    const qint64 size = reply.stream ? reply.stream->size() : reply.body.size();
    QHttpServerResponder responder = makeResponder(request, socket);
    if (reply.stream) {
        // The responder streams the device as the socket drains and deletes it at the end.
        responder.write(reply.stream.release(), {{"Content-Type", reply.contentType}}, status);
    } else {
        responder.write(reply.body, {{"Content-Type", reply.contentType}}, status);
    }
    const QString target = request.url().toString(QUrl::RemoveScheme | QUrl::RemoveAuthority);
    std::fprintf(stderr, "%s %s %s -> %d (%lld bytes)\n",
                 qPrintable(QDateTime::currentDateTime().toString(Qt::ISODate)),
                 methodName(request.method()), qPrintable(target), reply.status,
                 static_cast<long long>(size));
    std::fflush(stderr);
}
