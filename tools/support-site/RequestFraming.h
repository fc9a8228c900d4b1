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

    /** Follows @p data, the next bytes of the connection. After a verdict other than Pass
     *  the connection cannot be followed further and feed() repeats that verdict. */
    Verdict feed(QByteArrayView data);

    /** The request line of the request being read (or refused), for the log. */
    QByteArray requestLine() const { return m_requestLine; }
    /** The body size of that request, as announced or as counted so far; -1 when none. */
    qint64 bodySize() const { return m_bodySize; }

private:
    enum class State { Head, Body, ChunkSize, ChunkData, ChunkEnd, Trailer };

    QByteArrayView readHead(QByteArrayView data);
    QByteArrayView readLine(QByteArrayView data);
    QByteArrayView skipBody(QByteArrayView data, State next);
    Verdict startBody(const QByteArray &head);
    Verdict endLine();

    const qint64 m_bodyLimit;
    State m_state = State::Head;
    Verdict m_verdict = Verdict::Pass;
    /** The head or chunk line being read. */
    QByteArray m_pending;
    bool m_lineComplete = false;
    QByteArray m_requestLine;
    qint64 m_bodySize = -1;
    /** Bytes left of the body or the current chunk. */
    qint64 m_remaining = 0;
};
