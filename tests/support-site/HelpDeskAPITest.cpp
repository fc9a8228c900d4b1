#include "HSResults.h"
#include "SiteClient.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

class HelpDeskAPI : public SiteTest
{
protected:
    int staffPost(const QString &path, const QByteArray &type, const QByteArray &body)
    {
        return SiteClient::post(site.baseURL() + path, type, body).status;
    }

    QVariantMap onlyRequest(const QString &email)
    {
        const QVariantList requests = listRequests(email);
        EXPECT_EQ(requests.size(), 1);
        return requests.value(0).toMap();
    }
};

// The history of @p request, one "person public: note" per event.
QStringList notes(const QVariantMap &request)
{
    QStringList events;
    for (const QVariant &value : request.value("history").toList()) {
        const QVariantMap event = value.toMap();
        events << event.value("xPerson").toString() + ' ' + event.value("fPublic").toString() +
                      ": " + event.value("tNote").toString();
    }
    return events;
}

} // namespace

TEST_F(HelpDeskAPI, aRequestFromNewThroughStaffRepliesToUpdate)
{
    const QString message = u"Première ligne\r\nSecond line\n\n  indented — “quoted” ✓"_s;
    const qint64 before = QDateTime::currentSecsSinceEpoch();
    const QVariantMap reply = ok(newRequest(message)).toMap();
    const qint64 number = reply.value("xRequest").toLongLong();
    const QString history = reply.value("xRequestHistory").toString();
    EXPECT_GT(number, 10000);
    ASSERT_GT(history.toLongLong(), 0);

    QVariantMap listed = onlyRequest("zoe@example.com");
    EXPECT_EQ(listed.value("xRequest").toLongLong(), number);
    EXPECT_EQ(listed.value("fOpen"), "1");
    EXPECT_EQ(listed.value("sFirstName"), u"Zoë"_s);
    EXPECT_EQ(listed.value("sLastName"), u"Ødegård-Núñez"_s);
    const QVariantMap first = listed.value("history").toList().value(0).toMap();
    EXPECT_EQ(first.value("xRequestHistory"), history);
    EXPECT_GE(first.value("dtGMTChange").toLongLong(), before);

    // Base64 wrapped at 76 columns, as mail-style encoders write it, is stored decoded. An
    // upload of this size passes through a file rather than the HTTP server's memory.
    const QByteArray zip =
        "PK\x03\x04" + QByteArray("line\r\n--qk-test-boundary\r\n").repeated(40000);
    const QByteArray base64 = zip.toBase64();
    QByteArray wrapped;
    for (qsizetype i = 0; i < base64.size(); i += 76)
        wrapped += base64.mid(i, 76) + "\r\n";
    const qint64 document = ok(addDocument(history, "debug_log", QString::fromLatin1(wrapped)))
                                .toMap()
                                .value("xDocument")
                                .toLongLong();
    const QJsonArray documents = QJsonDocument::fromJson(get("/inspect/documents").body).array();
    ASSERT_EQ(documents.size(), 1);
    QVariantMap stored = documents[0].toObject().toVariantMap();
    EXPECT_GE(stored.take("dtGMTChange").toLongLong(), before);
    const QString sha1 = QCryptographicHash::hash(zip, QCryptographicHash::Sha1).toHex();
    EXPECT_EQ(stored, QVariantMap({{"id", document},
                                   {"xRequestHistory", history.toLongLong()},
                                   {"name", "debug_log"},
                                   {"mimetype", "application/zip"},
                                   {"sha1", sha1},
                                   {"size", zip.size()}}));
    EXPECT_EQ(get(u"/inspect/documents/%1"_s.arg(document)).body, zip);

    // Staff answer publicly (JSON), add a private note (form) and close.
    const QByteArray numberText = QByteArray::number(number);
    const QJsonObject staffReply{
        {"xRequest", number}, {"tNote", "Try turning it off and on again."}, {"xPerson", 7}};
    EXPECT_EQ(staffPost("/inspect/reply", "application/json", QJsonDocument(staffReply).toJson()),
              200);
    EXPECT_EQ(staffPost("/inspect/reply", "application/x-www-form-urlencoded",
                        "xRequest=" + numberText + "&tNote=Customer+seems+upset&fPublic=0"),
              200);
    EXPECT_EQ(staffPost("/inspect/close?xRequest=" + numberText, {}, {}), 200);
    EXPECT_EQ(staffPost("/inspect/close", "application/json", R"({"xRequest": 1})"), 404);
    EXPECT_EQ(staffPost("/inspect/reply", "application/json", "[1]"), 400);

    listed = onlyRequest("zoe@example.com");
    EXPECT_EQ(listed.value("fOpen"), "0");
    // The note comes through an XML reader unchanged, carriage return included.
    QStringList events{"0 1: " + message, "7 1: Try turning it off and on again.",
                       "1 0: Customer seems upset"};
    EXPECT_EQ(notes(listed), events);

    // The customer's update appends a public note and reopens.
    const QVariantMap updated = ok({{"action", "update"},
                                    {"xRequest", QString::fromLatin1(numberText)},
                                    {"tBody", "It happened again.\nSame steps."}})
                                    .toMap();
    EXPECT_EQ(updated.value("xRequest").toLongLong(), number);
    listed = onlyRequest("zoe@example.com");
    EXPECT_EQ(listed.value("fOpen"), "1");
    EXPECT_EQ(listed.value("history").toList().last().toMap().value("xRequestHistory"),
              updated.value("xRequestHistory"));
    EXPECT_EQ(notes(listed), events << "0 1: It happened again.\nSame steps.");
}

TEST_F(HelpDeskAPI, malformedPostsGetErrorRepliesAndTheSiteLives)
{
    const QByteArray part = "--b0undary\r\nContent-Disposition: form-data; name=\"action\"\r\n\r\n";
    const QByteArray full = "multipart/form-data; boundary=b0undary";
    const struct
    {
        const char *what;
        QByteArray contentType;
        QByteArray body;
    } cases[] = {
        {"no boundary", "multipart/form-data", part + "categories\r\n--b0undary--\r\n"},
        {"not multipart", "application/x-www-form-urlencoded", "action=categories"},
        {"truncated body", full, part + "categ"},
        {"no delimiter", full, "action=categories"},
        {"headers without end", full,
         "--b0undary\r\nContent-Disposition: form-data; name=\"action\"\r\n--b0undary--\r\n"},
        {"part without a name", full,
         "--b0undary\r\nContent-Type: text/plain\r\n\r\nx\r\n--b0undary--\r\n"},
        {"missing action", full,
         "--b0undary\r\nContent-Disposition: form-data; name=\"sEmail\"\r\n\r\na@b.c\r\n"
         "--b0undary--\r\n"},
        {"unknown action", full, part + "delete_everything\r\n--b0undary--\r\n"},
        {"empty body", full, ""},
    };
    const auto expectError = [](const SiteResponse &response) {
        EXPECT_EQ(response.status, 400);
        EXPECT_TRUE(response.body.startsWith("<?xml"));
        const QVariantMap reply = HSResults(response.body, false).results().toMap();
        EXPECT_EQ(reply.keys(), QStringList{u"error"_s}) << response.body.toStdString();
        EXPECT_FALSE(reply.value("error").toMap().value("description").toString().isEmpty());
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        expectError(SiteClient::post(site.helpDeskAPIURL(), c.contentType, c.body));
    }

    const MultipartBody badForms[] = {
        MultipartBody({{"action", "new"}, {"sEmail", "a@b.c"}, {"tBody", "no name"}}),
        newRequest("x").field("xCategory", "4"),
        newRequest("x").field("xCategory", "6"),
        newRequest("x").field("xCategory", "999"),
        newRequest("x").field("fUrgent", "true"),
        addDocument("40001", "crash_log", "not base64!"),
        addDocument("40001", "crash_log", "Q"),
        addDocument("40001", "crash_log", "UEsD\r\nBA==\r\nQ"),
        addDocument("1", "crash_log", "UEsDBA=="),
        MultipartBody({{"action", "update"}, {"xRequest", "1"}, {"tBody", "hello"}}),
        MultipartBody({{"action", "list"}, {"fTrash", "0"}}),
    };
    for (const MultipartBody &form : badForms) {
        SCOPED_TRACE(form.body().toStdString());
        expectError(api(form));
    }
    expectError(SiteClient::get(site.helpDeskAPIURL()));

    ASSERT_TRUE(site.isRunning());
    EXPECT_EQ(api({{"action", "categories"}}).status, 200);
    EXPECT_TRUE(site.inspect(u"documents"_s).isEmpty()) << "a refused document is not stored";
}
