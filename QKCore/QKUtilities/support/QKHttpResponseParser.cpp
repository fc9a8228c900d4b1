#include "QKHttpResponseParser.h"

#include <QList>

#include <utility>

namespace {

// Where the head ends (the index after its blank line) in @p text, searching from @p from;
// -1 while it has not ended. Bare line feeds are accepted as servers in the wild send them.
qsizetype headEnd(const QByteArray &text, qsizetype from)
{
    for (qsizetype i = text.indexOf('\n', from); i >= 0; i = text.indexOf('\n', i + 1)) {
        if (i + 1 < text.size() && text.at(i + 1) == '\n')
            return i + 2;
        if (i + 2 < text.size() && text.at(i + 1) == '\r' && text.at(i + 2) == '\n')
            return i + 3;
    }
    return -1;
}

QByteArray withoutCarriageReturn(QByteArray line)
{
    if (line.endsWith('\r'))
        line.chop(1);
    return line;
}

bool isDecimal(QByteArrayView text)
{
    if (text.isEmpty() || text.size() > 18)
        return false;
    for (const char c : text) {
        if (c < '0' || c > '9')
            return false;
    }
    return true;
}

// "HTTP/1.x NNN" with an optional reason: the status code, or -1.
int statusCodeOf(QByteArrayView line)
{
    if (line.size() < 12 || !line.startsWith("HTTP/1.") || line.at(8) != ' ' ||
        (line.size() > 12 && line.at(12) != ' ') || !isDecimal(line.sliced(9, 3)))
        return -1;
    return line.sliced(9, 3).toInt();
}

} // namespace

QKHttpResponseParser::State QKHttpResponseParser::feed(QByteArrayView bytes)
{
    while (m_state == State::Incomplete && !bytes.isEmpty()) {
        QByteArray line;
        switch (m_phase) {
        case Phase::Head: {
            const qsizetype before = m_pending.size();
            const qsizetype taken = qMin(bytes.size(), MaximumHeadSize + 1 - before);
            m_pending.append(bytes.first(taken));
            if (!QByteArrayView("HTTP/").startsWith(m_pending.left(5)))
                return fail(QStringLiteral("The reply is not HTTP"));
            const qsizetype end = headEnd(m_pending, qMax<qsizetype>(0, before - 2));
            if (end < 0) {
                if (m_pending.size() > MaximumHeadSize)
                    return failHeadTooLarge();
                bytes = bytes.sliced(taken);
                break;
            }
            bytes = bytes.sliced(end - before);
            m_pending.truncate(end);
            if (!parseHead())
                return m_state;
            break;
        }
        case Phase::FixedBody:
        case Phase::ChunkData: {
            const qint64 taken = qMin(m_remaining, qint64(bytes.size()));
            if (!appendBody(bytes.first(taken)))
                return m_state;
            bytes = bytes.sliced(taken);
            if ((m_remaining -= taken) > 0)
                break;
            if (m_phase == Phase::FixedBody)
                return complete();
            m_phase = Phase::ChunkEnd;
            break;
        }
        case Phase::BodyToClose:
            if (!appendBody(bytes))
                return m_state;
            bytes = {};
            break;
        case Phase::ChunkSize: {
            if (!takeLine(bytes, line, 1024))
                break;
            const QByteArrayView size =
                QByteArrayView(line).first(line.contains(';') ? line.indexOf(';') : line.size());
            bool ok = false;
            const qint64 chunk =
                size.trimmed().size() <= 15 ? size.trimmed().toLongLong(&ok, 16) : -1;
            if (!ok || chunk < 0)
                return fail(QStringLiteral("The reply's chunk size is malformed"));
            if (chunk > MaximumBodySize - m_body.size())
                return failBodyTooLarge();
            m_remaining = chunk;
            m_phase = chunk == 0 ? Phase::Trailers : Phase::ChunkData;
            break;
        }
        case Phase::ChunkEnd:
            if (!takeLine(bytes, line, 2))
                break;
            if (!line.isEmpty())
                return fail(QStringLiteral("The reply's chunk is longer than its size"));
            m_phase = Phase::ChunkSize;
            break;
        case Phase::Trailers:
            if (!takeLine(bytes, line, MaximumHeadSize))
                break;
            if ((m_headSize += line.size() + 2) > MaximumHeadSize)
                return failHeadTooLarge();
            if (line.isEmpty())
                return complete();
            break;
        }
    }
    return m_state;
}

QKHttpResponseParser::State QKHttpResponseParser::finishAtClose()
{
    if (m_state != State::Incomplete)
        return m_state;
    if (m_phase == Phase::BodyToClose)
        return complete();
    return fail(QStringLiteral("The connection closed before the whole reply arrived"));
}

// Collects a line ending in a line feed across pieces; false while it is incomplete or when
// it exceeds @p limit (then the response has failed).
bool QKHttpResponseParser::takeLine(QByteArrayView &bytes, QByteArray &line, qsizetype limit)
{
    const qsizetype end = bytes.indexOf('\n');
    m_pending.append(bytes.first(end < 0 ? bytes.size() : end));
    bytes = end < 0 ? QByteArrayView() : bytes.sliced(end + 1);
    if (m_pending.size() > limit + 1) {
        fail(QStringLiteral("The reply's framing is malformed"));
        return false;
    }
    if (end < 0)
        return false;
    line = withoutCarriageReturn(std::exchange(m_pending, QByteArray()));
    if (line.size() > limit) {
        fail(QStringLiteral("The reply's framing is malformed"));
        return false;
    }
    return true;
}

bool QKHttpResponseParser::parseHead()
{
    const QList<QByteArray> lines = std::exchange(m_pending, QByteArray()).split('\n');
    const int status = statusCodeOf(withoutCarriageReturn(lines.first()));
    if (status < 0) {
        fail(QStringLiteral("The reply's status line is malformed"));
        return false;
    }
    m_headSize += lines.first().size();
    if (status == 101) {
        fail(QStringLiteral("The reply switches to another protocol"));
        return false;
    }
    if (status < 200)
        return true; // an interim response; the final one follows

    QByteArray transferCoding;
    qint64 contentLength = -1;
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QByteArray line = withoutCarriageReturn(lines.at(i));
        if (line.isEmpty())
            continue;
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0 || line.first(colon).contains(' ') || line.first(colon).contains('\t')) {
            fail(QStringLiteral("The reply's header field is malformed"));
            return false;
        }
        const QByteArray name = line.first(colon).toLower();
        const QByteArray value = line.sliced(colon + 1).trimmed();
        if (name == "transfer-encoding") {
            transferCoding = value.split(',').constLast().trimmed().toLower();
        } else if (name == "content-length") {
            // Repeated lengths must agree, or the body's end is anybody's guess.
            for (const QByteArray &each : value.split(',')) {
                const QByteArray length = each.trimmed();
                if (!isDecimal(length) ||
                    (contentLength >= 0 && length.toLongLong() != contentLength)) {
                    fail(QStringLiteral("The reply's Content-Length is malformed"));
                    return false;
                }
                contentLength = length.toLongLong();
            }
        }
    }
    m_statusCode = status;
    if (status == 204 || status == 304) {
        complete();
        return false;
    }
    if (!transferCoding.isEmpty()) {
        m_phase = transferCoding == "chunked" ? Phase::ChunkSize : Phase::BodyToClose;
        return true;
    }
    if (contentLength > MaximumBodySize) {
        failBodyTooLarge();
        return false;
    }
    if (contentLength == 0) {
        complete();
        return false;
    }
    m_phase = contentLength > 0 ? Phase::FixedBody : Phase::BodyToClose;
    m_remaining = contentLength;
    return true;
}

bool QKHttpResponseParser::appendBody(QByteArrayView bytes)
{
    if (bytes.size() > MaximumBodySize - m_body.size()) {
        failBodyTooLarge();
        return false;
    }
    m_body.append(bytes);
    return true;
}

QKHttpResponseParser::State QKHttpResponseParser::fail(const QString &why)
{
    m_state = State::Failed;
    m_error = why;
    m_pending.clear();
    return m_state;
}

QKHttpResponseParser::State QKHttpResponseParser::failHeadTooLarge()
{
    return fail(QStringLiteral("The reply's head is larger than %1 bytes").arg(MaximumHeadSize));
}

QKHttpResponseParser::State QKHttpResponseParser::failBodyTooLarge()
{
    return fail(QStringLiteral("The reply is larger than %1 bytes").arg(MaximumBodySize));
}

QKHttpResponseParser::State QKHttpResponseParser::complete()
{
    m_state = State::Complete;
    m_pending.clear();
    return m_state;
}
