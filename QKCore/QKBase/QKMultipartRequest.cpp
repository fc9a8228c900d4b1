#include "QKMultipartRequest.h"

#include "QKBase64FileDevice.h"
#include "QKNetworkReplies.h"

#include <QBuffer>
#include <QHttpMultiPart>
#include <QHttpPart>
#include <QList>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRandomGenerator>
#include <QUrl>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

namespace {

struct Field
{
    QByteArray disposition;
    QByteArray body;
    std::optional<QString> base64FilePath; // for a QKBase64EncodedFile value, instead of body
};

// The escaping browsers apply to form-data names, so that a name never ends its quotes
// or its header line early.
QByteArray escapedName(const QString &name)
{
    QByteArray bytes = name.toUtf8();
    bytes.replace('"', "%22").replace('\r', "%0D").replace('\n', "%0A");
    return bytes;
}

QByteArray bodyFor(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::QByteArray:
        return value.toByteArray();
    case QMetaType::Bool:
        return value.toBool() ? QByteArrayLiteral("1") : QByteArrayLiteral("0");
    default:
        return value.toString().toUtf8();
    }
}

// Dashes, as browsers and curl start theirs: Base64 text never holds one, so a server's
// skip search through an encoded file moves by the boundary's whole length nearly every step.
QByteArray randomBoundary()
{
    static constexpr char hexDigits[] = "0123456789abcdef";
    QByteArray boundary(28, '-');
    for (int i = 0; i < 24; ++i)
        boundary += hexDigits[QRandomGenerator::global()->bounded(16)];
    return boundary;
}

bool clashes(const QByteArray &text, const QByteArray &boundary)
{
    // Every boundary holds a dash; text without one (Base64, most values) cannot hold it, and
    // a search for one byte is far cheaper than a search for the boundary through a large file.
    return text.contains('-') && text.contains(boundary);
}

// A value that happens to contain the boundary would cut its part short, so such a
// boundary is never used. Base64 text holds no dash, so a file's text cannot hold one.
QByteArray boundaryFor(const QList<Field> &fields)
{
    for (;;) {
        const QByteArray candidate = randomBoundary();
        const bool clash = std::any_of(fields.cbegin(), fields.cend(), [&](const Field &f) {
            return clashes(f.body, candidate) || clashes(f.disposition, candidate);
        });
        if (!clash)
            return candidate;
    }
}

// The body of a form's first part, which refuses to start over once read. Qt sends a request
// again when the connection closes before the reply, if it can read the body once more; a
// form may file a request, so the server must never get it twice.
template<typename Device> class SentOnce : public Device
{
public:
    using Device::Device;
    bool reset() override { return !m_read && Device::reset(); }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        m_read = true;
        return Device::readData(data, maxSize);
    }

private:
    bool m_read = false;
};

// A multipart body laid out as QHttpMultiPart lays it out: the parts' heads and values one
// after another, the values of files read from their devices as the body is read.
class FormBodyDevice : public QIODevice
{
public:
    // Boundaries and part heads, joined into as few segments as can be.
    void appendText(const QByteArray &text)
    {
        if (!m_segments.empty() && m_segments.back().isText)
            m_segments.back().bytes += text;
        else
            m_segments.push_back({text, nullptr, m_size, true});
        m_size += text.size();
    }
    // A value, shared with the form rather than copied.
    void appendValue(const QByteArray &value)
    {
        m_segments.push_back({value, nullptr, m_size, false});
        m_size += value.size();
    }
    void appendDevice(std::unique_ptr<QIODevice> device)
    {
        const qint64 size = device->size();
        device->setParent(this);
        m_segments.push_back({{}, device.release(), m_size, false});
        m_size += size;
    }

    bool isSequential() const override { return false; }
    qint64 size() const override { return m_size; }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        qint64 position = pos();
        qint64 done = 0;
        while (done < maxSize && position < m_size) {
            const auto segment = std::prev(
                std::upper_bound(m_segments.cbegin(), m_segments.cend(), position,
                                 [](qint64 at, const Segment &s) { return at < s.start; }));
            const qint64 offset = position - segment->start;
            qint64 got = 0;
            if (!segment->device) {
                got = qMin(maxSize - done, qint64(segment->bytes.size()) - offset);
                std::memcpy(data + done, segment->bytes.constData() + offset, size_t(got));
            } else {
                if (segment->device->pos() != offset && !segment->device->seek(offset))
                    return -1;
                got = segment->device->read(data + done, maxSize - done);
                if (got <= 0)
                    return -1;
            }
            done += got;
            position += got;
        }
        return done;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    struct Segment
    {
        QByteArray bytes;
        QIODevice *device; // a child, or null for bytes
        qint64 start;
        bool isText;
    };
    std::vector<Segment> m_segments;
    qint64 m_size = 0;
};

} // namespace

struct QKMultipartRequest::Private
{
    QNetworkRequest request;
    QByteArray boundary;
    QList<Field> fields;
};

QKMultipartRequest QKMultipartRequest::requestWithURL(const QUrl &url, const QVariantMap &form)
{
    QKMultipartRequest result;
    Private &d = *result.d;
    d.fields.reserve(form.size());
    for (auto it = form.cbegin(); it != form.cend(); ++it) {
        Field field{"form-data; name=\"" + escapedName(it.key()) + '"', {}, {}};
        if (it.value().metaType() == QMetaType::fromType<QKBase64EncodedFile>())
            field.base64FilePath = it.value().value<QKBase64EncodedFile>().path();
        else
            field.body = bodyFor(it.value());
        d.fields.append(std::move(field));
    }
    d.boundary = boundaryFor(d.fields);
    d.request.setUrl(url);
    d.request.setHeader(QNetworkRequest::ContentTypeHeader,
                        QByteArray("multipart/form-data; boundary=" + d.boundary));
    return result;
}

QKMultipartRequest::QKMultipartRequest() : d(std::make_unique<Private>()) {}

QKMultipartRequest::QKMultipartRequest(const QKMultipartRequest &other)
    : d(std::make_unique<Private>(*other.d))
{}

QKMultipartRequest::QKMultipartRequest(QKMultipartRequest &&other) noexcept
    : d(std::exchange(other.d, std::make_unique<Private>()))
{}

QKMultipartRequest &QKMultipartRequest::operator=(const QKMultipartRequest &other)
{
    *d = *other.d;
    return *this;
}

QKMultipartRequest &QKMultipartRequest::operator=(QKMultipartRequest &&other) noexcept
{
    std::swap(d, other.d);
    return *this;
}

QKMultipartRequest::~QKMultipartRequest() = default;

QNetworkRequest QKMultipartRequest::networkRequest() const
{
    return QKNetworkReplies::withIdleTimeout(d->request);
}

void QKMultipartRequest::setRawHeader(const QByteArray &name, const QByteArray &value)
{
    d->request.setRawHeader(name, value);
}

QUrl QKMultipartRequest::url() const
{
    return d->request.url();
}

QByteArray QKMultipartRequest::boundary() const
{
    return d->boundary;
}

qsizetype QKMultipartRequest::fieldCount() const
{
    return d->fields.size();
}

QHttpMultiPart *QKMultipartRequest::multiPart(QObject *parent) const
{
    auto multiPart = std::make_unique<QHttpMultiPart>(QHttpMultiPart::FormDataType);
    multiPart->setBoundary(d->boundary);
    for (qsizetype i = 0; i < d->fields.size(); ++i) {
        const Field &field = d->fields.at(i);
        const bool first = i == 0;
        QHttpPart part;
        part.setRawHeader("Content-Disposition", field.disposition);
        if (field.base64FilePath) {
            QIODevice *device = first ? new SentOnce<QKBase64FileDevice>(*field.base64FilePath)
                                      : new QKBase64FileDevice(*field.base64FilePath);
            device->setParent(multiPart.get());
            if (!device->open(QIODevice::ReadOnly))
                return nullptr;
            part.setBodyDevice(device);
        } else if (first) {
            auto *device = new SentOnce<QBuffer>(multiPart.get());
            device->setData(field.body);
            device->open(QIODevice::ReadOnly);
            part.setBodyDevice(device);
        } else {
            part.setBody(field.body);
        }
        multiPart->append(part);
    }
    multiPart->setParent(parent);
    return multiPart.release();
}

std::unique_ptr<QIODevice> QKMultipartRequest::bodyDevice() const
{
    auto body = std::make_unique<FormBodyDevice>();
    for (const Field &field : d->fields) {
        body->appendText("--" + d->boundary + "\r\nContent-Disposition: " + field.disposition +
                         "\r\n\r\n");
        if (field.base64FilePath) {
            auto file = std::make_unique<QKBase64FileDevice>(*field.base64FilePath);
            if (!file->open(QIODevice::ReadOnly))
                return nullptr;
            body->appendDevice(std::move(file));
        } else {
            body->appendValue(field.body);
        }
        body->appendText(QByteArrayLiteral("\r\n"));
    }
    body->appendText("--" + d->boundary + "--\r\n");
    body->open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    return body;
}

QNetworkReply *QKMultipartRequest::post(QNetworkAccessManager *manager) const
{
    if (!manager)
        return nullptr;
    QHttpMultiPart *body = multiPart();
    if (!body)
        return nullptr;
    QNetworkReply *reply = manager->post(networkRequest(), body);
    body->setParent(reply);
    return reply;
}
