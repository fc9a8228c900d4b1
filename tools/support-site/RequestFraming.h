#pragma once

#include <QByteArray>
#include <QByteArrayView>

/**
 * Follows the requests on one HTTP/1.1 connection as its bytes arrive: each request's head,
 * then its body of Content-Length bytes or in chunks. Only the head being read is kept;
 * bodies are counted, never stored.
 */
class RequestFraming
{
public:
    enum class Verdict {
        /** Everything so far fits the limit. */
        Pass,
        /** A body announced or grown past the limit. */
        TooLarge,
        /** Bytes that cannot be framed: a head too long, a bad length or chunk line. */
        Malformed,
    };

    explicit RequestFraming(qint64 bodyLimit);

    /**
     * Follows @p data, the next bytes of the connection, up to its end or up to the end of
     * the next head, whichever comes first. Returns how many bytes it followed. After a
     * verdict other than Pass the connection cannot be followed further.
     */
    qsizetype feed(QByteArrayView data);
    Verdict verdict() const { return m_verdict; }
    /** Whether the next byte belongs to a head, that is, no body is under way. */
    bool isInHead() const { return m_state == State::Head; }
    /** Whether the last feed() stopped at the end of a head, before the request's body. */
    bool isAtBodyStart() const { return m_atBodyStart; }

    /** The head of the request being read (or refused), without its empty last line. */
    QByteArray head() const { return m_head; }
    /** The request line of that request. */
    QByteArray requestLine() const;
    /** The value of the header @p name (lower case) in that head; empty when absent. */
    QByteArray header(const QByteArray &name) const;
    /** Whether its body comes in chunks. */
    bool isChunked() const { return m_chunked; }
    /** Its body size, as announced or as counted so far; -1 when it announced none. */
    qint64 bodySize() const { return m_bodySize; }

private:
    enum class State { Head, Body, ChunkSize, ChunkData, ChunkEnd, Trailer };

    QByteArrayView readHead(QByteArrayView data);
    QByteArrayView readLine(QByteArrayView data);
    QByteArrayView skipBody(QByteArrayView data, State next);
    Verdict startBody();
    Verdict endLine();

    const qint64 m_bodyLimit;
    State m_state = State::Head;
    Verdict m_verdict = Verdict::Pass;
    /** The head or chunk line being read. */
    QByteArray m_pending;
    bool m_lineComplete = false;
    bool m_atBodyStart = false;
    QByteArray m_head;
    bool m_chunked = false;
    qint64 m_bodySize = -1;
    /** Bytes left of the body or the current chunk. */
    qint64 m_remaining = 0;
};
