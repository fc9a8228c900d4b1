#include "RequestFraming.h"

#include <QList>

#include <algorithm>
#include <optional>

namespace {

// Far more than any client of the site sends; a longer head is an attack or a mistake.
constexpr qsizetype maxHeadSize = 64 * 1024;
constexpr qsizetype maxLineSize = 4 * 1024;

bool isDecimal(const QByteArray &text)
{
    return !text.isEmpty() &&
           std::all_of(text.cbegin(), text.cend(), [](char c) { return c >= '0' && c <= '9'; });
}

/** Where the head in @p text ends (after its empty line), searching from @p from; -1 when
 *  it has not ended yet. Bare line feeds end lines too, as Qt's HTTP parser accepts them. */
qsizetype headEnd(const QByteArray &text, qsizetype from)
{
    for (qsizetype i = text.indexOf('\n', from); i >= 0; i = text.indexOf('\n', i + 1)) {
        if (i + 1 < text.size() && text[i + 1] == '\n')
            return i + 2;
        if (i + 2 < text.size() && text[i + 1] == '\r' && text[i + 2] == '\n')
            return i + 3;
    }
    return -1;
}

} // namespace

RequestFraming::RequestFraming(qint64 bodyLimit) : m_bodyLimit(bodyLimit) {}

qsizetype RequestFraming::feed(QByteArrayView data)
{
    const qsizetype size = data.size();
    m_atBodyStart = false;
    while (m_verdict == Verdict::Pass && !data.isEmpty() && !m_atBodyStart) {
        switch (m_state) {
        case State::Head:
            data = readHead(data);
            break;
        case State::Body:
            data = skipBody(data, State::Head);
            break;
        case State::ChunkData:
            data = skipBody(data, State::ChunkEnd);
            break;
        case State::ChunkSize:
        case State::ChunkEnd:
        case State::Trailer:
            data = readLine(data);
            if (m_lineComplete)
                m_verdict = endLine();
            break;
        }
    }
    return size - data.size();
}

QByteArray RequestFraming::requestLine() const
{
    const qsizetype newline = m_head.indexOf('\n');
    return (newline < 0 ? m_head : m_head.first(newline)).trimmed();
}

QByteArray RequestFraming::header(const QByteArray &name) const
{
    for (const QByteArray &line : m_head.split('\n')) {
        const qsizetype colon = line.indexOf(':');
        if (colon > 0 && line.first(colon).trimmed().toLower() == name)
            return line.sliced(colon + 1).trimmed();
    }
    return {};
}

QByteArrayView RequestFraming::readHead(QByteArrayView data)
{
    // Empty lines may come before a request line.
    if (m_pending.isEmpty()) {
        while (!data.isEmpty() && (data.front() == '\r' || data.front() == '\n'))
            data = data.sliced(1);
    }
    const qsizetype before = m_pending.size();
    const qsizetype taken = std::min(data.size(), maxHeadSize + 1 - before);
    m_pending.append(data.first(taken));
    const qsizetype end = headEnd(m_pending, std::max<qsizetype>(0, before - 2));
    if (end < 0) {
        if (m_pending.size() > maxHeadSize) {
            m_head = m_pending.first(200);
            m_verdict = Verdict::Malformed;
        }
        return data.sliced(taken);
    }
    m_pending.truncate(end);
    m_head = m_pending.trimmed();
    m_pending.clear();
    m_atBodyStart = true;
    m_verdict = startBody();
    return data.sliced(end - before);
}

RequestFraming::Verdict RequestFraming::startBody()
{
    const QList<QByteArray> lines = m_head.split('\n');
    bool chunked = false;
    std::optional<qint64> length;
    for (const QByteArray &line : lines) {
        const qsizetype colon = line.indexOf(':');
        if (colon < 0)
            continue;
        const QByteArray name = line.first(colon).trimmed().toLower();
        const QByteArray value = line.sliced(colon + 1).trimmed();
        if (name == "transfer-encoding") {
            chunked = value.toLower().contains("chunked");
        } else if (name == "content-length") {
            // Two different lengths would let the site and a proxy disagree on the framing.
            bool ok = false;
            const qint64 size = value.toLongLong(&ok);
            if (!isDecimal(value) || !ok || (length && *length != size))
                return Verdict::Malformed;
            length = size;
        }
    }
    m_chunked = chunked;
    if (chunked) {
        m_bodySize = 0;
        m_state = State::ChunkSize;
        return Verdict::Pass;
    }
    m_bodySize = length.value_or(-1);
    if (m_bodySize > m_bodyLimit)
        return Verdict::TooLarge;
    m_remaining = length.value_or(0);
    m_state = m_remaining > 0 ? State::Body : State::Head;
    return Verdict::Pass;
}

QByteArrayView RequestFraming::readLine(QByteArrayView data)
{
    const qsizetype newline = data.indexOf('\n');
    const qsizetype taken = newline < 0 ? data.size() : newline + 1;
    m_pending.append(data.first(taken));
    m_lineComplete = newline >= 0;
    if (!m_lineComplete && m_pending.size() > maxLineSize)
        m_verdict = Verdict::Malformed;
    return data.sliced(taken);
}

RequestFraming::Verdict RequestFraming::endLine()
{
    const QByteArray line = m_pending.trimmed();
    m_pending.clear();
    m_lineComplete = false;
    switch (m_state) {
    case State::ChunkSize: {
        // Chunk extensions after ';' carry nothing the site needs.
        const QByteArray size =
            line.first(line.contains(';') ? line.indexOf(';') : line.size()).trimmed();
        bool ok = false;
        const qint64 chunk = size.toLongLong(&ok, 16);
        if (!ok || chunk < 0 || size.isEmpty() || size.size() > 15)
            return Verdict::Malformed;
        if (chunk == 0) {
            m_state = State::Trailer;
            return Verdict::Pass;
        }
        m_bodySize += chunk;
        if (m_bodySize > m_bodyLimit)
            return Verdict::TooLarge;
        m_remaining = chunk;
        m_state = State::ChunkData;
        return Verdict::Pass;
    }
    case State::ChunkEnd:
        if (!line.isEmpty())
            return Verdict::Malformed;
        m_state = State::ChunkSize;
        return Verdict::Pass;
    case State::Trailer:
        if (line.isEmpty())
            m_state = State::Head;
        return Verdict::Pass;
    default:
        return Verdict::Malformed;
    }
}

QByteArrayView RequestFraming::skipBody(QByteArrayView data, State next)
{
    const qsizetype skipped = qsizetype(std::min<qint64>(m_remaining, data.size()));
    m_remaining -= skipped;
    if (m_remaining == 0)
        m_state = next;
    return data.sliced(skipped);
}
