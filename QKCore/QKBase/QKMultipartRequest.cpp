#include "QKMultipartRequest.h"

#include <QHttpMultiPart>
#include <QHttpPart>
#include <QList>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRandomGenerator>
#include <QUrl>

#include <algorithm>
#include <utility>

namespace {

struct Field
{
    QByteArray disposition;
    QByteArray body;
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

QByteArray randomBoundary()
{
    static constexpr char alphabet[] =
        "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    QByteArray boundary = QByteArrayLiteral("QKFormBoundary");
    for (int i = 0; i < 24; ++i)
        boundary += alphabet[QRandomGenerator::global()->bounded(int(sizeof(alphabet) - 1))];
    return boundary;
}

// A value that happens to contain the boundary would cut its part short, so such a
// boundary is never used.
QByteArray boundaryFor(const QList<Field> &fields)
{
    for (;;) {
        const QByteArray candidate = randomBoundary();
        const bool clashes = std::any_of(fields.cbegin(), fields.cend(), [&](const Field &f) {
            return f.body.contains(candidate) || f.disposition.contains(candidate);
        });
        if (!clashes)
            return candidate;
    }
}

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
        d.fields.append(
            Field{"form-data; name=\"" + escapedName(it.key()) + '"', bodyFor(it.value())});
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
    return d->request;
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
    auto *multiPart = new QHttpMultiPart(QHttpMultiPart::FormDataType, parent);
    multiPart->setBoundary(d->boundary);
    for (const Field &field : std::as_const(d->fields)) {
        QHttpPart part;
        part.setRawHeader("Content-Disposition", field.disposition);
        part.setBody(field.body);
        multiPart->append(part);
    }
    return multiPart;
}

QNetworkReply *QKMultipartRequest::post(QNetworkAccessManager *manager) const
{
    if (!manager)
        return nullptr;
    QHttpMultiPart *body = multiPart();
    QNetworkReply *reply = manager->post(d->request, body);
    body->setParent(reply);
    return reply;
}
