#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <memory>
#include <optional>

/** One entry of a request's history. */
struct HistoryEvent
{
    qint64 id = 0;
    qint64 requestId = 0;
    bool isPublic = true;
    /** 0 for the customer, otherwise a staff member. */
    qint64 person = 0;
    /** The note; absent for events that only changed the request (closing it, say). */
    std::optional<QString> note;
    /** Seconds since 1970, UTC. */
    qint64 time = 0;
};

/** A help desk request with its history, oldest event first. */
struct StoredRequest
{
    qint64 id = 0;
    bool isOpen = true;
    bool isTrashed = false;
    qint64 opened = 0;
    QString email;
    int category = 0;
    /** Every form field of the request as it was received. */
    QJsonObject fields;
    QList<HistoryEvent> history;
};

/** A document attached to a history event, without its bytes. */
struct StoredDocument
{
    qint64 id = 0;
    qint64 historyId = 0;
    QString name;
    QString mimeType;
    qint64 size = 0;
    QString sha1;
    qint64 time = 0;
};

/**
 * The help desk's state in an SQLite database: requests, their history and the documents
 * attached to history events. Numbers continue across restarts and start where a real help
 * desk's would look lived in (requests at 10001). A new database is seeded once with the
 * sample requests. Every failure is logged on stderr and returned as an empty value.
 */
class HelpDeskStore
{
public:
    HelpDeskStore();
    ~HelpDeskStore();
    HelpDeskStore(const HelpDeskStore &) = delete;
    HelpDeskStore &operator=(const HelpDeskStore &) = delete;

    /**
     * Opens (creating folders and tables as needed) the database at @p path; a database
     * opened for the first time receives @p seedRequests. False with errorString() on failure.
     */
    bool open(const QString &path, const QJsonArray &seedRequests);
    QString errorString() const;

    /**
     * Creates an open request from the received @p fields and its first event, the customer's
     * public @p note. Returns the request and history numbers, or nullopt on failure.
     */
    std::optional<std::pair<qint64, qint64>> createRequest(const QJsonObject &fields,
                                                           const QString &note, qint64 time);
    /** Appends an event to a request; returns its number, or nullopt for an unknown request. */
    std::optional<qint64> addEvent(qint64 requestId, bool isPublic, qint64 person,
                                   const std::optional<QString> &note, qint64 time);
    /** Opens or closes a request; false for an unknown request. */
    bool setOpen(qint64 requestId, bool isOpen);

    /** True when a history event of that number exists. */
    bool hasEvent(qint64 historyId) const;
    /** Stores a document for a history event; returns its number, or nullopt on failure. */
    std::optional<qint64> addDocument(qint64 historyId, const QString &name,
                                      const QString &mimeType, const QByteArray &bytes,
                                      qint64 time);

    /**
     * Requests in number order. With an @p email, only those whose address matches exactly;
     * @p trashed chooses between the requests outside the trash and those in it; nullopt
     * lists both.
     */
    QList<StoredRequest> requests(const std::optional<QString> &email,
                                  std::optional<bool> trashed) const;

    /** Every stored document, in number order. */
    QList<StoredDocument> documents() const;
    /** The bytes and type of a document; nullopt when unknown. */
    std::optional<std::pair<QByteArray, QString>> documentBytes(qint64 documentId) const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};
