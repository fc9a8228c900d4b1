#include "QKSupportSiteProcess.h"
#include "SiteClient.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

const QString sampleEmail = u"alex.martin@example.com"_s;

/** A complete "new" form, as the support pane sends it. */
MultipartBody newRequest(const QString &body)
{
    return MultipartBody({{"action", "new"},
                          {"sFirstName", "Zoë"},
                          {"sLastName", "Ødegård-Núñez"},
                          {"sEmail", "zoe@example.com"},
                          {"sPhone", "+47 22 00 00 00"},
                          {"xCategory", "3"},
                          {"fUrgent", "1"},
                          {"Custom1", "Sound Lab"},
                          {"Custom3", "3.1b2"},
                          {"Custom4", "1"},
                          {"tBody", body}});
}

MultipartBody addDocument(const QString &history, const QString &name, const QString &body)
{
    return MultipartBody({{"action", "add_document"},
                          {"xRequestHistory", history},
                          {"name", name},
                          {"mimetype", "application/zip"},
                          {"body", body}});
}

class HelpDeskAPI : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString(); }

    SiteResponse api(const MultipartBody &form)
    {
        return SiteClient::post(site.helpDeskAPIURL(), form);
    }

    /** The reply to @p form, which must succeed; with @p list a list reply. */
    QVariant ok(const MultipartBody &form, bool list = false)
    {
        const SiteResponse response = api(form);
        EXPECT_EQ(response.status, 200) << response.body.toStdString();
        EXPECT_TRUE(response.body.startsWith("<?xml"));
        return SiteClient::helpDesk(response.body, list);
    }

    QVariantList listRequests(const QString &email, const QString &trash)
    {
        return ok({{"action", "list"}, {"sEmail", email}, {"fTrash", trash}}, true).toList();
    }

    /** Everything stored about request @p number, from the staff side. */
    QJsonObject storedRequest(qint64 number)
    {
        const QJsonArray all = QJsonDocument::fromJson(get("/inspect/requests").body).array();
        for (const QJsonValue &request : all) {
            if (request.toObject().value("xRequest").toInteger() == number)
                return request.toObject();
        }
        return {};
    }

    SiteResponse get(const QString &path) { return SiteClient::get(site.baseURL() + path); }

    int staffPost(const QString &path, const QByteArray &type, const QByteArray &body)
    {
        return SiteClient::post(site.baseURL() + path, type, body).status;
    }

    QKSupportSiteProcess site{QKSupportSiteProcess::Environment::Keep};
};

} // namespace

TEST_F(HelpDeskAPI, categoriesAndTheSampleRequests)
{
    int usable = 0, deleted = 0, hidden = 0;
    for (const QVariant &value : ok({{"action", "categories"}}, true).toList()) {
        const QVariantMap category = value.toMap();
        EXPECT_GT(category.value("xCategory").toInt(), 0);
        EXPECT_FALSE(category.value("sCategory").toString().isEmpty());
        const bool isPublic = category.value("fAllowPublicSubmit") == "1";
        const bool isDeleted = category.value("fDeleted") == "1";
        usable += isPublic && !isDeleted;
        deleted += isDeleted;
        hidden += !isPublic;
    }
    EXPECT_GE(usable, 3);
    EXPECT_GE(deleted, 1);
    EXPECT_GE(hidden, 1);

    const QVariantList requests = listRequests(sampleEmail, "0");
    ASSERT_EQ(requests.size(), 3);
    int closed = 0, staffReplies = 0, privateNotes = 0;
    for (const QVariant &value : requests) {
        const QVariantMap request = value.toMap();
        EXPECT_EQ(request.value("sEmail"), sampleEmail);
        EXPECT_EQ(request.value("fTrash"), "0");
        closed += request.value("fOpen") == "0";
        const QVariantList events = request.value("history").toList();
        ASSERT_FALSE(events.isEmpty());
        qint64 previous = 0;
        for (const QVariant &eventValue : events) {
            const QVariantMap event = eventValue.toMap();
            const qint64 time = event.value("dtGMTChange").toLongLong();
            EXPECT_GE(time, previous) << "history is oldest first";
            previous = time;
            staffReplies += event.value("xPerson").toInt() != 0 && event.value("fPublic") == "1";
            privateNotes += event.value("fPublic") == "0";
        }
    }
    EXPECT_GE(closed, 1);
    EXPECT_GE(staffReplies, 1);
    EXPECT_GE(privateNotes, 1);
    const QVariantList trashed = listRequests(sampleEmail, "1");
    ASSERT_EQ(trashed.size(), 1);
    EXPECT_EQ(trashed.first().toMap().value("fTrash"), "1");
    EXPECT_TRUE(listRequests("nobody@example.com", "0").isEmpty());
}

TEST_F(HelpDeskAPI, aRequestFromNewThroughStaffRepliesToUpdate)
{
    const QString message = u"Première ligne\r\nSecond line\n\n  indented — “quoted” ✓"_s;
    const qint64 before = QDateTime::currentSecsSinceEpoch();
    const QVariantMap reply = ok(newRequest(message)).toMap();
    const qint64 number = reply.value("xRequest").toLongLong();
    const QString history = reply.value("xRequestHistory").toString();
    EXPECT_GT(number, 10000);
    ASSERT_GT(history.toLongLong(), 0);

    const QJsonObject stored = storedRequest(number);
    EXPECT_EQ(stored.value("fOpen").toInt(), 1);
    const QJsonObject fields = stored.value("fields").toObject();
    const std::pair<const char *, QString> sent[] = {
        {"sFirstName", u"Zoë"_s}, {"sLastName", u"Ødegård-Núñez"_s}, {"fUrgent", u"1"_s},
        {"Custom4", u"1"_s},      {"Custom3", u"3.1b2"_s},           {"tBody", message}};
    for (const auto &[name, value] : sent)
        EXPECT_EQ(fields.value(QLatin1String(name)).toString(), value) << name;
    EXPECT_FALSE(fields.contains("action"));
    const QJsonObject first = stored.value("history").toArray().first().toObject();
    EXPECT_EQ(first.value("xRequestHistory").toInteger(), history.toLongLong());
    EXPECT_EQ(first.value("xPerson").toInt(), 0);
    EXPECT_EQ(first.value("fPublic").toInt(), 1);
    EXPECT_GE(first.value("dtGMTChange").toInteger(), before);

    // Base64 wrapped at 76 columns, as mail-style encoders write it, is stored decoded.
    const QByteArray zip =
        "PK\x03\x04" + QByteArray("line\r\n--qk-test-boundary\r\n").repeated(5000);
    QByteArray wrapped;
    for (qsizetype i = 0; i < zip.toBase64().size(); i += 76)
        wrapped += zip.toBase64().mid(i, 76) + "\r\n";
    const qint64 document = ok(addDocument(history, "debug_log", QString::fromLatin1(wrapped)))
                                .toMap()
                                .value("xDocument")
                                .toLongLong();
    const QJsonArray documents = QJsonDocument::fromJson(get("/inspect/documents").body).array();
    ASSERT_EQ(documents.size(), 1);
    const QJsonObject doc = documents.first().toObject();
    EXPECT_EQ(doc.value("id").toInteger(), document);
    EXPECT_EQ(doc.value("xRequestHistory").toInteger(), history.toLongLong());
    EXPECT_EQ(doc.value("name").toString(), "debug_log");
    EXPECT_EQ(doc.value("mimetype").toString(), "application/zip");
    EXPECT_EQ(doc.value("sha1").toString(),
              QCryptographicHash::hash(zip, QCryptographicHash::Sha1).toHex());
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

    QVariantList listed = listRequests("zoe@example.com", "0");
    ASSERT_EQ(listed.size(), 1);
    EXPECT_EQ(listed.first().toMap().value("fOpen"), "0");
    QVariantList events = listed.first().toMap().value("history").toList();
    ASSERT_EQ(events.size(), 3);
    // The note comes through an XML reader unchanged, carriage return included.
    EXPECT_EQ(events.at(0).toMap().value("tNote"), message);
    EXPECT_EQ(events.at(1).toMap().value("xPerson"), "7");
    EXPECT_EQ(events.at(1).toMap().value("fPublic"), "1");
    EXPECT_EQ(events.at(1).toMap().value("tNote"), "Try turning it off and on again.");
    EXPECT_EQ(events.at(2).toMap().value("xPerson"), "1");
    EXPECT_EQ(events.at(2).toMap().value("fPublic"), "0");
    EXPECT_EQ(events.at(2).toMap().value("tNote"), "Customer seems upset");

    // The customer's update appends a public note and reopens.
    const QVariantMap updated = ok({{"action", "update"},
                                    {"xRequest", QString::fromLatin1(numberText)},
                                    {"tBody", "It happened again.\nSame steps."}})
                                    .toMap();
    EXPECT_EQ(updated.value("xRequest").toLongLong(), number);
    listed = listRequests("zoe@example.com", "0");
    ASSERT_EQ(listed.size(), 1);
    EXPECT_EQ(listed.first().toMap().value("fOpen"), "1");
    events = listed.first().toMap().value("history").toList();
    ASSERT_EQ(events.size(), 4);
    EXPECT_EQ(events.last().toMap().value("xRequestHistory"), updated.value("xRequestHistory"));
    EXPECT_EQ(events.last().toMap().value("tNote"), "It happened again.\nSame steps.");
    EXPECT_EQ(events.last().toMap().value("xPerson"), "0");
    EXPECT_EQ(events.last().toMap().value("fPublic"), "1");
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
        const QVariantMap reply = SiteClient::helpDesk(response.body).toMap();
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
}
