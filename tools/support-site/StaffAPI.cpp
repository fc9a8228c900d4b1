#include "StaffAPI.h"

#include "HelpDeskStore.h"
#include "MultipartForm.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrlQuery>

namespace {

const QByteArray jsonType = QByteArrayLiteral("application/json");

SiteReply jsonReply(const QJsonDocument &document, int status = 200)
{
    return SiteReply{status, jsonType, document.toJson(QJsonDocument::Indented), nullptr};
}

SiteReply jsonError(int status, const QString &message)
{
    return jsonReply(QJsonDocument(QJsonObject{{QStringLiteral("error"), message}}), status);
}

QJsonObject eventObject(const HistoryEvent &event)
{
    QJsonObject object{{QStringLiteral("xRequestHistory"), event.id},
                       {QStringLiteral("fPublic"), event.isPublic ? 1 : 0},
                       {QStringLiteral("xPerson"), event.person},
                       {QStringLiteral("dtGMTChange"), event.time}};
    if (event.note)
        object.insert(QStringLiteral("tNote"), *event.note);
    return object;
}

QJsonObject requestObject(const StoredRequest &request)
{
    QJsonArray history;
    for (const HistoryEvent &event : request.history)
        history.append(eventObject(event));
    return QJsonObject{{QStringLiteral("xRequest"), request.id},
                       {QStringLiteral("fOpen"), request.isOpen ? 1 : 0},
                       {QStringLiteral("fTrash"), request.isTrashed ? 1 : 0},
                       {QStringLiteral("dtGMTOpened"), request.opened},
                       {QStringLiteral("sEmail"), request.email},
                       {QStringLiteral("xCategory"), request.category},
                       {QStringLiteral("fields"), request.fields},
                       {QStringLiteral("history"), history}};
}

std::optional<qint64> number(const QHash<QString, QString> &fields, const QString &name,
                             std::optional<qint64> fallback = std::nullopt)
{
    if (!fields.contains(name))
        return fallback;
    bool ok = false;
    const qint64 value = fields.value(name).trimmed().toLongLong(&ok);
    return ok ? std::optional(value) : std::nullopt;
}

} // namespace

StaffAPI::StaffAPI(HelpDeskStore &store) : m_store(store) {}

SiteReply StaffAPI::handle(bool isPost, const QStringList &path, const QUrlQuery &query,
                           const QByteArray &contentType, const QByteArray &body)
{
    const QString what = path.value(0);
    if (!isPost) {
        if (path.size() == 1 && what == QLatin1String("requests"))
            return requests();
        if (path.size() == 1 && what == QLatin1String("documents"))
            return documents();
        if (path.size() == 2 && what == QLatin1String("documents"))
            return document(path[1]);
        return jsonError(404, QStringLiteral("No such staff page"));
    }
    if (path.size() != 1 || (what != QLatin1String("reply") && what != QLatin1String("close")))
        return jsonError(404, QStringLiteral("No such staff action"));
    QString error;
    const auto fields = postFields(query, contentType, body, error);
    if (!fields)
        return jsonError(400, error);
    return what == QLatin1String("reply") ? reply(*fields) : close(*fields);
}

SiteReply StaffAPI::requests() const
{
    QJsonArray array;
    for (const StoredRequest &request : m_store.requests(std::nullopt, std::nullopt))
        array.append(requestObject(request));
    return jsonReply(QJsonDocument(array));
}

SiteReply StaffAPI::documents() const
{
    QJsonArray array;
    for (const StoredDocument &document : m_store.documents()) {
        array.append(QJsonObject{{QStringLiteral("id"), document.id},
                                 {QStringLiteral("xRequestHistory"), document.historyId},
                                 {QStringLiteral("name"), document.name},
                                 {QStringLiteral("mimetype"), document.mimeType},
                                 {QStringLiteral("size"), document.size},
                                 {QStringLiteral("sha1"), document.sha1},
                                 {QStringLiteral("dtGMTChange"), document.time}});
    }
    return jsonReply(QJsonDocument(array));
}

SiteReply StaffAPI::document(const QString &id) const
{
    bool ok = false;
    const auto stored = m_store.documentBytes(id.toLongLong(&ok));
    if (!ok || !stored)
        return jsonError(404, QStringLiteral("No document %1").arg(id));
    return SiteReply::ok(stored->second.toUtf8(), stored->first);
}

SiteReply StaffAPI::reply(const QHash<QString, QString> &fields)
{
    const auto request = number(fields, QStringLiteral("xRequest"));
    const auto person = number(fields, QStringLiteral("xPerson"), 1);
    const auto isPublic = number(fields, QStringLiteral("fPublic"), 1);
    if (!request || !person || !isPublic || !fields.contains(QStringLiteral("tNote")))
        return jsonError(
            400, QStringLiteral("Needs xRequest and tNote; xPerson and fPublic are numbers"));
    const auto event =
        m_store.addEvent(*request, *isPublic != 0, *person, fields.value(QStringLiteral("tNote")),
                         QDateTime::currentSecsSinceEpoch());
    if (!event)
        return jsonError(404, QStringLiteral("No request %1").arg(*request));
    return jsonReply(QJsonDocument(QJsonObject{{QStringLiteral("xRequest"), *request},
                                               {QStringLiteral("xRequestHistory"), *event}}));
}

SiteReply StaffAPI::close(const QHash<QString, QString> &fields)
{
    const auto request = number(fields, QStringLiteral("xRequest"));
    if (!request)
        return jsonError(400, QStringLiteral("Needs xRequest"));
    if (!m_store.setOpen(*request, false))
        return jsonError(404, QStringLiteral("No request %1").arg(*request));
    return jsonReply(QJsonDocument(
        QJsonObject{{QStringLiteral("xRequest"), *request}, {QStringLiteral("fOpen"), 0}}));
}

std::optional<QHash<QString, QString>> StaffAPI::postFields(const QUrlQuery &query,
                                                            const QByteArray &contentType,
                                                            const QByteArray &body, QString &error)
{
    QHash<QString, QString> fields;
    for (const auto &[name, value] : query.queryItems(QUrl::FullyDecoded))
        fields.insert(name, value);
    const qsizetype semicolon = contentType.indexOf(';');
    const QByteArray type =
        contentType.first(semicolon < 0 ? contentType.size() : semicolon).trimmed().toLower();
    if (type == "application/json") {
        QJsonParseError parseError;
        const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
        if (!document.isObject()) {
            error = QStringLiteral("The body is not a JSON object");
            return std::nullopt;
        }
        const QJsonObject object = document.object();
        for (auto it = object.begin(); it != object.end(); ++it)
            fields.insert(it.key(), it.value().isDouble() ? QString::number(it.value().toInteger())
                                                          : it.value().toString());
    } else if (type == "application/x-www-form-urlencoded") {
        QByteArray plusless = body;
        plusless.replace('+', ' ');
        const QUrlQuery form(QString::fromUtf8(plusless));
        for (const auto &[name, value] : form.queryItems(QUrl::FullyDecoded))
            fields.insert(name, value);
    } else if (type == "multipart/form-data") {
        const MultipartForm form = MultipartForm::parse(contentType, body);
        if (!form.isValid()) {
            error = form.errorString();
            return std::nullopt;
        }
        for (const MultipartForm::Part &part : form.parts())
            fields.insert(part.name, QString::fromUtf8(part.data));
    }
    return fields;
}
