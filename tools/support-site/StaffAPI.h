#pragma once

#include "SiteReply.h"

#include <QHash>
#include <QStringList>

#include <optional>

class HelpDeskStore;
class QUrlQuery;

/**
 * The staff side of the help desk, for tests and for people trying the example host:
 * read everything stored (GET requests, documents, a document's bytes) and act as staff
 * (POST reply, close). Replies are JSON; failures are {"error": "..."} with 400 or 404.
 */
class StaffAPI
{
public:
    explicit StaffAPI(HelpDeskStore &store);

    /**
     * Answers a request below "/inspect"; @p path holds the segments after it. POST fields
     * come from a JSON object, a URL-encoded or multipart form, or the query.
     */
    SiteReply handle(bool isPost, const QStringList &path, const QUrlQuery &query,
                     const QByteArray &contentType, const QByteArray &body);

private:
    SiteReply requests() const;
    SiteReply documents() const;
    SiteReply document(const QString &id) const;
    SiteReply reply(const QHash<QString, QString> &fields);
    SiteReply close(const QHash<QString, QString> &fields);

    /** The fields of a POST; nullopt (with @p error set) when the body cannot be read. */
    static std::optional<QHash<QString, QString>> postFields(const QUrlQuery &query,
                                                             const QByteArray &contentType,
                                                             const QByteArray &body,
                                                             QString &error);

    HelpDeskStore &m_store;
};
