#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

/**
 * Reads one HTTP/1.1 response as its bytes arrive, in pieces of any size: the status line,
 * the header fields and the body framed by Content-Length, chunked transfer coding or the
 * end of the connection. Interim (1xx) responses are passed over. The head and the body
 * have fixed limits, so a hostile server is refused as soon as it exceeds them.
 */
class QKHttpResponseParser
{
public:
    enum class State { Incomplete, Complete, Failed };

    static constexpr qsizetype MaximumHeadSize = 64 * 1024;
    static constexpr qsizetype MaximumBodySize = 64 * 1024 * 1024;

    /** Takes the next bytes of the connection; bytes after a complete response are ignored. */
    State feed(QByteArrayView bytes);
    /** The connection has ended: completes a body that runs to the end of the connection,
     *  and fails a response still missing bytes. */
    State finishAtClose();

    State state() const { return m_state; }
    /** The status code of the final response; 0 until its status line has arrived. */
    int statusCode() const { return m_statusCode; }
    /** The body, without its transfer coding. */
    const QByteArray &body() const { return m_body; }
    /** Why the response could not be read; empty unless the state is Failed. */
    QString errorString() const { return m_error; }

private:
    enum class Phase { Head, FixedBody, BodyToClose, ChunkSize, ChunkData, ChunkEnd, Trailers };

    bool takeLine(QByteArrayView &bytes, QByteArray &line, qsizetype limit);
    bool parseHead();
    bool appendBody(QByteArrayView bytes);
    State fail(const QString &why);
    State failHeadTooLarge();
    State failBodyTooLarge();
    State complete();

    State m_state = State::Incomplete;
    Phase m_phase = Phase::Head;
    QByteArray m_pending; // a line or a head still being collected
    qsizetype m_headSize = 0;
    qint64 m_remaining = 0; // of the fixed body or the current chunk
    int m_statusCode = 0;
    QByteArray m_body;
    QString m_error;
};
