#include "HelpDeskStore.h"

#include "SiteDates.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <cstdio>

namespace {

const QString connectionName = QStringLiteral("helpdesk");

// The first number of each kind; later ones follow the highest stored.
constexpr qint64 firstRequest = 10001;
constexpr qint64 firstEvent = 40001;
constexpr qint64 firstDocument = 701;

const char *const schema[] = {
    "CREATE TABLE IF NOT EXISTS meta (key TEXT PRIMARY KEY, value TEXT)",
    "CREATE TABLE IF NOT EXISTS requests ("
    " xRequest INTEGER PRIMARY KEY, fOpen INTEGER NOT NULL, fTrash INTEGER NOT NULL,"
    " dtGMTOpened INTEGER NOT NULL, sEmail TEXT NOT NULL, xCategory INTEGER NOT NULL,"
    " fields TEXT NOT NULL)",
    "CREATE INDEX IF NOT EXISTS requestsByEmail ON requests (sEmail)",
    "CREATE TABLE IF NOT EXISTS history ("
    " xRequestHistory INTEGER PRIMARY KEY,"
    " xRequest INTEGER NOT NULL REFERENCES requests (xRequest),"
    " fPublic INTEGER NOT NULL, xPerson INTEGER NOT NULL, tNote TEXT,"
    " dtGMTChange INTEGER NOT NULL)",
    "CREATE INDEX IF NOT EXISTS historyByRequest ON history (xRequest)",
    "CREATE TABLE IF NOT EXISTS documents ("
    " xDocument INTEGER PRIMARY KEY,"
    " xRequestHistory INTEGER NOT NULL REFERENCES history (xRequestHistory),"
    " sFilename TEXT NOT NULL, sFileMimeType TEXT NOT NULL, blobFile BLOB NOT NULL,"
    " size INTEGER NOT NULL, sha1 TEXT NOT NULL, dtGMTChange INTEGER NOT NULL)",
};

void warn(const QString &message)
{
    std::fprintf(stderr, "warning: %s\n", qPrintable(message));
}

} // namespace

struct HelpDeskStore::Private
{
    QSqlDatabase database;
    QString error;

    bool exec(QSqlQuery &query)
    {
        if (query.exec())
            return true;
        error = query.lastError().text();
        warn(QStringLiteral("database: %1 (%2)").arg(error, query.lastQuery()));
        return false;
    }
    bool exec(const QString &statement)
    {
        QSqlQuery query(database);
        query.prepare(statement);
        return exec(query);
    }
    qint64 nextNumber(const QString &table, const QString &column, qint64 first)
    {
        QSqlQuery query(database);
        query.prepare(QStringLiteral("SELECT MAX(%1) FROM %2").arg(column, table));
        if (!exec(query) || !query.next() || query.value(0).isNull())
            return first;
        return qMax(first, query.value(0).toLongLong() + 1);
    }
    bool exists(const QString &table, const QString &column, qint64 number)
    {
        QSqlQuery query(database);
        query.prepare(QStringLiteral("SELECT 1 FROM %1 WHERE %2 = ?").arg(table, column));
        query.addBindValue(number);
        return exec(query) && query.next();
    }
    bool isSeeded()
    {
        QSqlQuery query(database);
        query.prepare(QStringLiteral("SELECT value FROM meta WHERE key = 'seeded'"));
        return exec(query) && query.next();
    }
    std::optional<qint64> insertRequest(const QJsonObject &fields, bool isOpen, bool isTrashed,
                                        qint64 opened);
    std::optional<qint64> insertEvent(qint64 requestId, bool isPublic, qint64 person,
                                      const std::optional<QString> &note, qint64 time);
    bool seed(const QJsonArray &requests);
    QList<HistoryEvent> history(qint64 requestId) const;
    QList<StoredRequest> selectRequests(const QString &condition, const QVariantMap &bindings);
};

std::optional<qint64> HelpDeskStore::Private::insertRequest(const QJsonObject &fields, bool isOpen,
                                                            bool isTrashed, qint64 opened)
{
    const qint64 number =
        nextNumber(QStringLiteral("requests"), QStringLiteral("xRequest"), firstRequest);
    QSqlQuery query(database);
    query.prepare(QStringLiteral(
        "INSERT INTO requests (xRequest, fOpen, fTrash, dtGMTOpened, sEmail, xCategory, fields)"
        " VALUES (?, ?, ?, ?, ?, ?, ?)"));
    query.addBindValue(number);
    query.addBindValue(isOpen ? 1 : 0);
    query.addBindValue(isTrashed ? 1 : 0);
    query.addBindValue(opened);
    query.addBindValue(fields.value(QLatin1String("sEmail")).toString());
    query.addBindValue(fields.value(QLatin1String("xCategory")).toString().toInt());
    query.addBindValue(QString::fromUtf8(QJsonDocument(fields).toJson(QJsonDocument::Compact)));
    if (!exec(query))
        return std::nullopt;
    return number;
}

std::optional<qint64> HelpDeskStore::Private::insertEvent(qint64 requestId, bool isPublic,
                                                          qint64 person,
                                                          const std::optional<QString> &note,
                                                          qint64 time)
{
    const qint64 number =
        nextNumber(QStringLiteral("history"), QStringLiteral("xRequestHistory"), firstEvent);
    QSqlQuery query(database);
    query.prepare(QStringLiteral("INSERT INTO history (xRequestHistory, xRequest, fPublic,"
                                 " xPerson, tNote, dtGMTChange) VALUES (?, ?, ?, ?, ?, ?)"));
    query.addBindValue(number);
    query.addBindValue(requestId);
    query.addBindValue(isPublic ? 1 : 0);
    query.addBindValue(person);
    query.addBindValue(note ? QVariant(*note) : QVariant(QMetaType(QMetaType::QString)));
    query.addBindValue(time);
    if (!exec(query))
        return std::nullopt;
    return number;
}

bool HelpDeskStore::Private::seed(const QJsonArray &requests)
{
    if (!database.transaction())
        return false;
    for (const QJsonValue &value : requests) {
        const QJsonObject request = value.toObject();
        const QJsonArray events = request.value(QLatin1String("history")).toArray();
        const auto timeOf = [](const QJsonValue &event) {
            return SiteDates::parse(event.toObject().value(QLatin1String("date")).toString())
                .toSecsSinceEpoch();
        };
        const qint64 opened = events.isEmpty() ? 0 : timeOf(events.first());
        const auto number = insertRequest(request.value(QLatin1String("fields")).toObject(),
                                          request.value(QLatin1String("fOpen")).toInt(1),
                                          request.value(QLatin1String("fTrash")).toInt(0), opened);
        if (!number) {
            database.rollback();
            return false;
        }
        for (const QJsonValue &eventValue : events) {
            const QJsonObject event = eventValue.toObject();
            const QJsonValue note = event.value(QLatin1String("tNote"));
            if (!insertEvent(*number, event.value(QLatin1String("fPublic")).toInt(1),
                             event.value(QLatin1String("xPerson")).toInteger(),
                             note.isString() ? std::optional(note.toString()) : std::nullopt,
                             timeOf(eventValue))) {
                database.rollback();
                return false;
            }
        }
    }
    if (!exec(QStringLiteral("INSERT INTO meta (key, value) VALUES ('seeded', '1')"))) {
        database.rollback();
        return false;
    }
    return database.commit();
}

QList<HistoryEvent> HelpDeskStore::Private::history(qint64 requestId) const
{
    QList<HistoryEvent> events;
    QSqlQuery query(database);
    query.prepare(QStringLiteral("SELECT xRequestHistory, fPublic, xPerson, tNote, dtGMTChange"
                                 " FROM history WHERE xRequest = ? ORDER BY xRequestHistory"));
    query.addBindValue(requestId);
    if (!query.exec())
        return events;
    while (query.next()) {
        HistoryEvent event;
        event.id = query.value(0).toLongLong();
        event.requestId = requestId;
        event.isPublic = query.value(1).toInt();
        event.person = query.value(2).toLongLong();
        if (!query.value(3).isNull())
            event.note = query.value(3).toString();
        event.time = query.value(4).toLongLong();
        events.append(event);
    }
    return events;
}

QList<StoredRequest> HelpDeskStore::Private::selectRequests(const QString &condition,
                                                            const QVariantMap &bindings)
{
    QList<StoredRequest> list;
    QSqlQuery query(database);
    query.prepare(QStringLiteral("SELECT xRequest, fOpen, fTrash, dtGMTOpened, sEmail, xCategory,"
                                 " fields FROM requests WHERE %1 ORDER BY xRequest")
                      .arg(condition));
    for (auto it = bindings.cbegin(); it != bindings.cend(); ++it)
        query.bindValue(it.key(), it.value());
    if (!exec(query))
        return list;
    while (query.next()) {
        StoredRequest request;
        request.id = query.value(0).toLongLong();
        request.isOpen = query.value(1).toInt();
        request.isTrashed = query.value(2).toInt();
        request.opened = query.value(3).toLongLong();
        request.email = query.value(4).toString();
        request.category = query.value(5).toInt();
        request.fields = QJsonDocument::fromJson(query.value(6).toString().toUtf8()).object();
        request.history = history(request.id);
        list.append(request);
    }
    return list;
}

HelpDeskStore::HelpDeskStore() : d(std::make_unique<Private>()) {}

HelpDeskStore::~HelpDeskStore()
{
    if (d->database.isValid()) {
        d->database.close();
        d->database = QSqlDatabase();
        QSqlDatabase::removeDatabase(connectionName);
    }
}

bool HelpDeskStore::open(const QString &path, const QJsonArray &seedRequests)
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath())) {
        d->error = QStringLiteral("cannot create the folder of %1").arg(path);
        return false;
    }
    d->database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connectionName);
    d->database.setDatabaseName(path);
    if (!d->database.open()) {
        d->error = d->database.lastError().text();
        return false;
    }
    if (!d->exec(QStringLiteral("PRAGMA foreign_keys = ON")))
        return false;
    for (const char *statement : schema) {
        if (!d->exec(QString::fromLatin1(statement)))
            return false;
    }
    if (!d->isSeeded() && !d->seed(seedRequests)) {
        d->error = QStringLiteral("cannot seed the help desk: %1").arg(d->error);
        return false;
    }
    return true;
}

QString HelpDeskStore::errorString() const
{
    return d->error;
}

std::optional<std::pair<qint64, qint64>>
HelpDeskStore::createRequest(const QJsonObject &fields, const QString &note, qint64 time)
{
    if (!d->database.transaction())
        return std::nullopt;
    const auto request = d->insertRequest(fields, true, false, time);
    const auto event = request ? d->insertEvent(*request, true, 0, note, time) : std::nullopt;
    if (!event || !d->database.commit()) {
        d->database.rollback();
        return std::nullopt;
    }
    return std::make_pair(*request, *event);
}

std::optional<qint64> HelpDeskStore::addEvent(qint64 requestId, bool isPublic, qint64 person,
                                              const std::optional<QString> &note, qint64 time)
{
    if (!d->exists(QStringLiteral("requests"), QStringLiteral("xRequest"), requestId))
        return std::nullopt;
    return d->insertEvent(requestId, isPublic, person, note, time);
}

bool HelpDeskStore::setOpen(qint64 requestId, bool isOpen)
{
    QSqlQuery query(d->database);
    query.prepare(QStringLiteral("UPDATE requests SET fOpen = ? WHERE xRequest = ?"));
    query.addBindValue(isOpen ? 1 : 0);
    query.addBindValue(requestId);
    return d->exec(query) && query.numRowsAffected() == 1;
}

bool HelpDeskStore::hasEvent(qint64 historyId) const
{
    return d->exists(QStringLiteral("history"), QStringLiteral("xRequestHistory"), historyId);
}

std::optional<qint64> HelpDeskStore::addDocument(qint64 historyId, const QString &name,
                                                 const QString &mimeType, const QByteArray &bytes,
                                                 qint64 time)
{
    if (!hasEvent(historyId))
        return std::nullopt;
    const qint64 number =
        d->nextNumber(QStringLiteral("documents"), QStringLiteral("xDocument"), firstDocument);
    QSqlQuery query(d->database);
    query.prepare(QStringLiteral(
        "INSERT INTO documents (xDocument, xRequestHistory, sFilename, sFileMimeType, blobFile,"
        " size, sha1, dtGMTChange) VALUES (?, ?, ?, ?, ?, ?, ?, ?)"));
    query.addBindValue(number);
    query.addBindValue(historyId);
    query.addBindValue(name);
    query.addBindValue(mimeType);
    query.addBindValue(bytes);
    query.addBindValue(qint64(bytes.size()));
    query.addBindValue(
        QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha1).toHex()));
    query.addBindValue(time);
    if (!d->exec(query))
        return std::nullopt;
    return number;
}

QList<StoredRequest> HelpDeskStore::requests(const std::optional<QString> &email,
                                             std::optional<bool> trashed) const
{
    QStringList conditions{QStringLiteral("1")};
    QVariantMap bindings;
    if (email) {
        conditions.append(QStringLiteral("sEmail = :email"));
        bindings.insert(QStringLiteral(":email"), *email);
    }
    if (trashed) {
        conditions.append(QStringLiteral("fTrash = :trash"));
        bindings.insert(QStringLiteral(":trash"), *trashed ? 1 : 0);
    }
    return d->selectRequests(conditions.join(QLatin1String(" AND ")), bindings);
}

QList<StoredDocument> HelpDeskStore::documents() const
{
    QList<StoredDocument> list;
    QSqlQuery query(d->database);
    query.prepare(QStringLiteral("SELECT xDocument, xRequestHistory, sFilename, sFileMimeType,"
                                 " size, sha1, dtGMTChange FROM documents ORDER BY xDocument"));
    if (!d->exec(query))
        return list;
    while (query.next()) {
        StoredDocument document;
        document.id = query.value(0).toLongLong();
        document.historyId = query.value(1).toLongLong();
        document.name = query.value(2).toString();
        document.mimeType = query.value(3).toString();
        document.size = query.value(4).toLongLong();
        document.sha1 = query.value(5).toString();
        document.time = query.value(6).toLongLong();
        list.append(document);
    }
    return list;
}

std::optional<std::pair<QByteArray, QString>> HelpDeskStore::documentBytes(qint64 documentId) const
{
    QSqlQuery query(d->database);
    query.prepare(
        QStringLiteral("SELECT blobFile, sFileMimeType FROM documents WHERE xDocument = ?"));
    query.addBindValue(documentId);
    if (!d->exec(query) || !query.next())
        return std::nullopt;
    return std::make_pair(query.value(0).toByteArray(), query.value(1).toString());
}
