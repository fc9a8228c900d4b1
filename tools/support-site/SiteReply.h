#pragma once

#include <QByteArray>
#include <QIODevice>

#include <memory>

/**
 * What a route answers: a status, a content type and either the bytes of the body or a
 * device to stream it from (for bodies too large to hold in memory).
 */
struct SiteReply
{
    int status = 200;
    QByteArray contentType;
    QByteArray body;
    /** When set, the body is read from here instead; it must know its size. */
    std::unique_ptr<QIODevice> stream;

    static SiteReply ok(const QByteArray &contentType, const QByteArray &body)
    {
        return SiteReply{200, contentType, body, nullptr};
    }
    /** A plain text reply, as used for 404 and other failures of the public pages. */
    static SiteReply text(int status, const QByteArray &text)
    {
        return SiteReply{status, "text/plain; charset=utf-8", text + '\n', nullptr};
    }
    static SiteReply notFound() { return text(404, "Not Found"); }
};
