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

QString sha1(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha1).toHex());
}

class HelpDeskAPI : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString(); }

    SiteResponse api(const MultipartBody &form)
    {
        return SiteClient::post(site.helpDeskAPIURL(), form);
    }

    /** The reply to @p form, which must succeed. */
    QVariantMap ok(const MultipartBody &form)
    {
        const SiteResponse response = api(form);
        EXPECT_EQ(response.status, 200) << response.body.toStdString();
        EXPECT_TRUE(response.body.startsWith("<?xml"));
        return SiteClient::helpDesk(response.body).toMap();
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

    QVariantList listRequests(const QString &email, const QString &trash)
    {
        const SiteResponse response =
            api({{"action", "list"}, {"sEmail", email}, {"fTrash", trash}});
        EXPECT_EQ(response.status, 200);
        EXPECT_TRUE(response.body.startsWith("<?xml"));
        return SiteClient::helpDesk(response.body, true).toList();
    }

    SiteResponse get(const QString &path) { return SiteClient::get(site.baseURL() + path); }

    QKSupportSiteProcess site{QKSupportSiteProcess::Environment::Keep};
};

} // namespace

TEST_F(HelpDeskAPI, categoriesIncludeDeletedAndPrivateOnes)
{
    const SiteResponse response = api({{"action", "categories"}});
    ASSERT_EQ(response.status, 200);
    ASSERT_TRUE(response.body.startsWith("<?xml"));
    int usable = 0, deleted = 0, hidden = 0;
    for (const QVariant &value : SiteClient::helpDesk(response.body, true).toList()) {
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
}

TEST_F(HelpDeskAPI, newRequestKeepsEveryFieldAsReceived)
{
    const QString message = u"Première ligne\r\nSecond line\n\n  indented — “quoted” ✓"_s;
    const qint64 before = QDateTime::currentSecsSinceEpoch();
    const QVariantMap reply = ok(newRequest(message));
    const qint64 after = QDateTime::currentSecsSinceEpoch();
    const qint64 number = reply.value("xRequest").toLongLong();
    const qint64 history = reply.value("xRequestHistory").toLongLong();
    EXPECT_GT(number, 10000);
    EXPECT_GT(history, 0);

    const QJsonObject stored = storedRequest(number);
    EXPECT_EQ(stored.value("fOpen").toInt(), 1);
    const QJsonObject fields = stored.value("fields").toObject();
    const std::pair<const char *, QString> sent[] = {
        {"sFirstName", u"Zoë"_s}, {"sLastName", u"Ødegård-Núñez"_s}, {"fUrgent", u"1"_s},
        {"Custom4", u"1"_s},      {"Custom3", u"3.1b2"_s},           {"tBody", message}};
    for (const auto &[name, value] : sent)
        EXPECT_EQ(fields.value(QLatin1String(name)).toString(), value) << name;
    EXPECT_FALSE(fields.contains("action"));

    const QJsonArray events = stored.value("history").toArray();
    ASSERT_EQ(events.size(), 1);
    const QJsonObject first = events.first().toObject();
    EXPECT_EQ(first.value("xRequestHistory").toInteger(), history);
    EXPECT_EQ(first.value("tNote").toString(), message);
    EXPECT_EQ(first.value("xPerson").toInt(), 0);
    EXPECT_EQ(first.value("fPublic").toInt(), 1);
    EXPECT_GE(first.value("dtGMTChange").toInteger(), before);
    EXPECT_LE(first.value("dtGMTChange").toInteger(), after);

    // The list reply carries the note unchanged through an XML reader, carriage return included.
    const QVariantList listed = listRequests("zoe@example.com", "0");
    ASSERT_EQ(listed.size(), 1);
    const QVariantList listedEvents = listed.first().toMap().value("history").toList();
    ASSERT_EQ(listedEvents.size(), 1);
    EXPECT_EQ(listedEvents.first().toMap().value("tNote"), message);

    // Optional fields not sent stay absent; empty ones are kept.
    const QVariantMap plain = ok({{"action", "new"},
                                  {"sFirstName", ""},
                                  {"sLastName", ""},
                                  {"sEmail", "a@b.c"},
                                  {"sPhone", ""},
                                  {"xCategory", "1"},
                                  {"Custom1", "Sound Lab"},
                                  {"Custom3", "3.0.1"},
                                  {"tBody", "x"}});
    const QJsonObject plainFields =
        storedRequest(plain.value("xRequest").toLongLong()).value("fields").toObject();
    EXPECT_FALSE(plainFields.contains("fUrgent") || plainFields.contains("Custom4"));
    EXPECT_TRUE(plainFields.contains("sFirstName"));
}

TEST_F(HelpDeskAPI, documentsAreStoredDecoded)
{
    const QString history = ok(newRequest("with attachments")).value("xRequestHistory").toString();
    ASSERT_FALSE(history.isEmpty());

    // Base64 wrapped at 76 columns, as mail-style encoders write it.
    const QByteArray zip =
        "PK\x03\x04" + QByteArray("line\r\n--qk-test-boundary\r\n").repeated(5000);
    QByteArray wrapped;
    for (qsizetype i = 0; i < zip.toBase64().size(); i += 76)
        wrapped += zip.toBase64().mid(i, 76) + "\r\n";
    const qint64 document = ok(addDocument(history, "debug_log", QString::fromLatin1(wrapped)))
                                .value("xDocument")
                                .toLongLong();
    ASSERT_GT(document, 0);

    // A file part carries raw bytes; NUL, CR LF and dashes must come through unchanged.
    QByteArray binary;
    for (int i = 0; i < 70000; ++i)
        binary += char(i * 7 % 256);
    binary += "\r\n--qk-test-boundary-7MA4YWxkTrZu0gX\r\n";
    ok(MultipartBody({{"action", "add_document"},
                      {"xRequestHistory", history},
                      {"name", "attachments"},
                      {"mimetype", "application/octet-stream"}})
           .file("body", "attachments.bin", "application/octet-stream", binary));

    const QJsonArray documents = QJsonDocument::fromJson(get("/inspect/documents").body).array();
    ASSERT_EQ(documents.size(), 2);
    const QJsonObject first = documents.first().toObject();
    EXPECT_EQ(first.value("id").toInteger(), document);
    EXPECT_EQ(first.value("xRequestHistory").toInteger(), history.toLongLong());
    EXPECT_EQ(first.value("name").toString(), "debug_log");
    EXPECT_EQ(first.value("mimetype").toString(), "application/zip");
    EXPECT_EQ(first.value("size").toInteger(), zip.size());
    EXPECT_EQ(first.value("sha1").toString(), sha1(zip));
    EXPECT_EQ(get(u"/inspect/documents/%1"_s.arg(document)).body, zip);
    const QJsonObject second = documents.last().toObject();
    EXPECT_EQ(second.value("sha1").toString(), sha1(binary));
    EXPECT_EQ(get(u"/inspect/documents/%1"_s.arg(second.value("id").toInteger())).body, binary);
}

TEST_F(HelpDeskAPI, listFindsExactAddressesOutsideTheTrash)
{
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

TEST_F(HelpDeskAPI, updateAppendsACustomerNoteAndReopens)
{
    const auto closedRequest = [this]() -> QVariantMap {
        for (const QVariant &request : listRequests(sampleEmail, "0")) {
            if (request.toMap().value("fOpen") == "0")
                return request.toMap();
        }
        return {};
    };
    const QString number = closedRequest().value("xRequest").toString();
    ASSERT_FALSE(number.isEmpty());
    const QVariantMap reply = ok(
        {{"action", "update"}, {"xRequest", number}, {"tBody", "It happened again.\nSame steps."}});
    EXPECT_EQ(reply.value("xRequest"), number);

    const QJsonObject stored = storedRequest(number.toLongLong());
    EXPECT_EQ(stored.value("fOpen").toInt(), 1);
    const QJsonObject last = stored.value("history").toArray().last().toObject();
    EXPECT_EQ(last.value("xRequestHistory").toInteger(),
              reply.value("xRequestHistory").toLongLong());
    EXPECT_EQ(last.value("tNote").toString(), "It happened again.\nSame steps.");
    EXPECT_EQ(last.value("xPerson").toInt(), 0);
    EXPECT_EQ(last.value("fPublic").toInt(), 1);
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

TEST_F(HelpDeskAPI, formsFollowTheMultipartGrammar)
{
    // Quoted boundary with a space, a preamble, transport padding, a part with its own
    // Content-Type, a field repeated (the last one counts) and an epilogue.
    QByteArray body = "This preamble is ignored.\r\n";
    const auto part = [&](const QByteArray &headers, const QByteArray &value) {
        body += "--simple boundary \t\r\n" + headers + "\r\n\r\n" + value + "\r\n";
    };
    const auto field = [&](const QByteArray &name, const QByteArray &value) {
        part("Content-Disposition: form-data; name=\"" + name + "\"", value);
    };
    field("action", "new");
    part("content-disposition: FORM-DATA; name=sFirstName", "Ana");
    part("Content-Disposition: form-data; name=\"sLastName\"\r\nContent-Type: text/plain; "
         "charset=utf-8",
         "Łukasiewicz");
    field("sEmail", "ana@example.com");
    field("sPhone", "");
    field("xCategory", "1");
    field("xCategory", "2");
    field("Custom1", "Test Host");
    field("Custom3", "2.5b1");
    field("tBody", "ends with a line end\r\n");
    body += "--simple boundary--\r\nThis epilogue is ignored too.\r\n";

    const SiteResponse response = SiteClient::post(
        site.helpDeskAPIURL(), "multipart/form-data; boundary=\"simple boundary\"", body);
    ASSERT_EQ(response.status, 200) << response.body.toStdString();
    const QJsonObject stored =
        storedRequest(SiteClient::helpDesk(response.body).toMap().value("xRequest").toLongLong());
    const QJsonObject fields = stored.value("fields").toObject();
    EXPECT_EQ(fields.value("sFirstName").toString(), "Ana");
    EXPECT_EQ(fields.value("sLastName").toString(), "Łukasiewicz");
    EXPECT_EQ(fields.value("sPhone").toString(), "");
    EXPECT_EQ(stored.value("xCategory").toInt(), 2);
    EXPECT_EQ(fields.value("tBody").toString(), "ends with a line end\r\n");
}
