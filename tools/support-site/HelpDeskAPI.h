#pragma once

#include "SiteReply.h"

#include <QStringList>

class HelpDeskStore;
class MultipartForm;
class SampleCatalogue;

/**
 * The help desk endpoint ("helpspot_api.php"): a multipart form whose "action" field chooses
 * the operation ("categories", "new", "add_document", "list", "update"). Every reply is XML
 * starting with "<?xml"; every failure, including a body that is not a well-formed form,
 * is a 400 reply "<error><description>...</description></error>".
 */
class HelpDeskAPI
{
public:
    HelpDeskAPI(HelpDeskStore &store, const SampleCatalogue &catalogue);

    /** Answers one POST with the given Content-Type header and body. */
    SiteReply handle(const QByteArray &contentType, const QByteArray &body);

    /** The XML error reply with @p description. */
    static SiteReply error(const QString &description);

private:
    SiteReply categories() const;
    SiteReply newRequest(const MultipartForm &form);
    SiteReply addDocument(const MultipartForm &form);
    SiteReply list(const MultipartForm &form) const;
    SiteReply update(const MultipartForm &form);

    /** The first of @p names the form lacks; empty when it has them all. */
    static QString missingField(const MultipartForm &form, const QStringList &names);

    HelpDeskStore &m_store;
    const SampleCatalogue &m_catalogue;
};
