#pragma once

#include "SiteReply.h"

#include <QString>
#include <QStringList>

class QUrlQuery;
class SampleCatalogue;

/**
 * The published side of the support site, everything a GET reaches: update feeds, the
 * manual version dictionary and manual files, the tutorial index and its pages, downloads.
 * Links in the data written as "{{BASE}}" point back at this server.
 */
class PublicPages
{
public:
    explicit PublicPages(const SampleCatalogue &catalogue);

    /**
     * Answers a GET of @p path (split at "/", empty segments dropped, so the manuals'
     * double slash reads like a single one). A 404 reply for anything unknown.
     */
    SiteReply handle(const QStringList &path, const QUrlQuery &query, const QString &baseURL) const;

    /** The size limit of generated downloads ("downloads/blob-N.bin"). */
    static constexpr qint64 maximumBlobSize = qint64(8) << 30;

private:
    SiteReply appcast(const QString &code, const QString &major, bool testing,
                      const QString &baseURL) const;
    SiteReply manualVersion(const QString &code, const QString &major) const;
    SiteReply manualsPage(const QString &code, const QString &major, const QString &baseURL) const;
    SiteReply tutorialIndex(const QString &code, const QString &major,
                            const QString &baseURL) const;
    SiteReply download(const QStringList &path) const;
    SiteReply titleFile(const QString &code, const QString &major, const QString &folder,
                        const QString &fileName) const;
    SiteReply homePage(const QString &baseURL) const;

    const SampleCatalogue &m_catalogue;
};
