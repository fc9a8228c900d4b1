#include "QKSupportSiteProcess.h"
#include "SiteClient.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

const QString sampleEmail = QStringLiteral("alex.martin@example.com");

class HelpDeskAPI : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString(); }

    SiteResponse api(const MultipartBody &form)
    {
        return SiteClient::post(site.helpDeskAPIURL(), form);
    }

    /** A complete "new" form, as the support pane sends it. */
    static MultipartBody newRequest(const QString &body)
    {
        MultipartBody form;
        form.field("action", "new")
            .field("sFirstName", "Zoë")
            .field("sLastName", "Ødegård-Núñez")
            .field("sEmail", "zoe@example.com")
            .field("sPhone", "+47 22 00 00 00")
            .field("xCategory", "3")
            .field("fUrgent", "1")
            .field("Custom1", "Sound Lab")
            .field("Custom3", "3.1b2")
            .field("Custom4", "1")
            .field("tBody", body);
        return form;
    }

    QJsonObject inspectedRequest(qint64 number)
    {
        const QJsonArray all = QJsonDocument::fromJson(get("/inspect/requests").body).array();
        for (const QJsonValue &request : all) {
            if (request.toObject().value("xRequest").toInteger() == number)
                return request.toObject();
        }
        return {};
    }

    QList<QVariantMap> listRequests(const QString &email, const QString &trash)
    {
        const SiteResponse response = api(
            MultipartBody().field("action", "list").field("sEmail", email).field("fTrash", trash));
        EXPECT_EQ(response.status, 200);
        EXPECT_TRUE(response.body.startsWith("<?xml"));
        return SiteXml::elements(response.body, "request");
    }

    SiteResponse get(const QString &path) { return SiteClient::get(site.baseURL() + path); }

    QKSupportSiteProcess site{QKSupportSiteProcess::Environment::Keep};
};

QByteArray zipOf(const QString &fileName, const QByteArray &content)
{
    QTemporaryDir folder;
    QFile file(folder.filePath(fileName));
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        return {};
    file.close();
    QProcess zip;
    zip.start("/usr/bin/zip", {"-qj", folder.filePath("archive.zip"), file.fileName()});
    zip.waitForFinished();
    QFile archive(folder.filePath("archive.zip"));
    return archive.open(QIODevice::ReadOnly) ? archive.readAll() : QByteArray();
}

/** Base64 wrapped at 76 columns, as mail-style encoders write it. */
QByteArray wrappedBase64(const QByteArray &bytes)
{
    const QByteArray encoded = bytes.toBase64();
    QByteArray wrapped;
    for (qsizetype i = 0; i < encoded.size(); i += 76)
        wrapped += encoded.mid(i, 76) + "\r\n";
    return wrapped;
}

QString sha1(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha1).toHex());
}

} // namespace

TEST_F(HelpDeskAPI, categoriesIncludeDeletedAndPrivateOnes)
{
    const SiteResponse response = api(MultipartBody().field("action", "categories"));
    ASSERT_EQ(response.status, 200);
    ASSERT_TRUE(response.body.startsWith("<?xml"));
    const QList<QVariantMap> categories = SiteXml::elements(response.body, "category");
    int usable = 0, deleted = 0, hidden = 0;
    for (const QVariantMap &category : categories) {
        EXPECT_GT(category.value("xCategory").toInt(), 0);
        EXPECT_FALSE(category.value("sCategory").toString().isEmpty());
        const bool isPublic = category.value("fAllowPublicSubmit").toString() == "1";
        const bool isDeleted = category.value("fDeleted").toString() == "1";
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
    const QString message =
        QStringLiteral("Première ligne\r\nSecond line\n\n  indented — “quoted” ✓");
    const qint64 before = QDateTime::currentSecsSinceEpoch();
    const SiteResponse response = api(newRequest(message));
    const qint64 after = QDateTime::currentSecsSinceEpoch();
    ASSERT_EQ(response.status, 200) << response.body.toStdString();
    ASSERT_TRUE(response.body.startsWith("<?xml"));
    QString root;
    const QVariantMap reply = SiteXml::helpDeskReply(response.body, &root);
    EXPECT_EQ(root, "results");
    const qint64 number = reply.value("xRequest").toLongLong();
    const qint64 history = reply.value("xRequestHistory").toLongLong();
    EXPECT_GT(number, 10000);
    EXPECT_GT(history, 0);

    const QJsonObject stored = inspectedRequest(number);
    ASSERT_FALSE(stored.isEmpty());
    EXPECT_EQ(stored.value("fOpen").toInt(), 1);
    const QJsonObject fields = stored.value("fields").toObject();
    EXPECT_EQ(fields.value("sFirstName").toString(), "Zoë");
    EXPECT_EQ(fields.value("sLastName").toString(), "Ødegård-Núñez");
    EXPECT_EQ(fields.value("fUrgent").toString(), "1");
    EXPECT_EQ(fields.value("Custom4").toString(), "1");
    EXPECT_EQ(fields.value("Custom3").toString(), "3.1b2");
    EXPECT_EQ(fields.value("tBody").toString(), message);
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
    const QList<QVariantMap> listed = listRequests("zoe@example.com", "0");
    ASSERT_EQ(listed.size(), 1);
    const QVariantList listedEvents =
        SiteXml::list(listed.first().value("history").toMap().value("history_events"));
    ASSERT_EQ(listedEvents.size(), 1);
    EXPECT_EQ(listedEvents.first().toMap().value("tNote").toString(), message);
}

TEST_F(HelpDeskAPI, optionalFieldsStayAbsentWhenNotSent)
{
    MultipartBody form;
    form.field("action", "new")
        .field("sFirstName", "")
        .field("sLastName", "")
        .field("sEmail", "a@b.c");
    form.field("sPhone", "")
        .field("xCategory", "1")
        .field("Custom1", "Sound Lab")
        .field("Custom3", "3.0.1");
    form.field("tBody", "x");
    const SiteResponse response = api(form);
    ASSERT_EQ(response.status, 200) << response.body.toStdString();
    const qint64 number = SiteXml::helpDeskReply(response.body).value("xRequest").toLongLong();
    const QJsonObject fields = inspectedRequest(number).value("fields").toObject();
    EXPECT_FALSE(fields.contains("fUrgent"));
    EXPECT_FALSE(fields.contains("Custom4"));
    EXPECT_TRUE(fields.contains("sFirstName"));
}

TEST_F(HelpDeskAPI, documentsAreStoredDecoded)
{
    const SiteResponse created = api(newRequest("with attachments"));
    const QString history =
        SiteXml::helpDeskReply(created.body).value("xRequestHistory").toString();
    ASSERT_FALSE(history.isEmpty());

    const QByteArray zip =
        zipOf("debug.log", QByteArray("line\r\n--qk-test-boundary\r\n").repeated(5000));
    ASSERT_TRUE(zip.startsWith("PK\x03\x04"));
    const SiteResponse added = api(MultipartBody()
                                       .field("action", "add_document")
                                       .field("xRequestHistory", history)
                                       .field("name", "debug_log")
                                       .field("mimetype", "application/zip")
                                       .field("body", QString::fromLatin1(wrappedBase64(zip))));
    ASSERT_EQ(added.status, 200) << added.body.toStdString();
    const qint64 document = SiteXml::helpDeskReply(added.body).value("xDocument").toLongLong();
    ASSERT_GT(document, 0);

    // A file part carries raw bytes; NUL, CR LF and dashes must come through unchanged.
    QByteArray binary;
    for (int i = 0; i < 70000; ++i)
        binary += char(i * 7 % 256);
    binary += "\r\n--qk-test-boundary-7MA4YWxkTrZu0gX\r\n";
    const SiteResponse raw =
        api(MultipartBody()
                .field("action", "add_document")
                .field("xRequestHistory", history)
                .field("name", "attachments")
                .field("mimetype", "application/octet-stream")
                .file("body", "attachments.bin", "application/octet-stream", binary));
    ASSERT_EQ(raw.status, 200) << raw.body.toStdString();

    const QJsonArray documents = QJsonDocument::fromJson(get("/inspect/documents").body).array();
    ASSERT_EQ(documents.size(), 2);
    const QJsonObject first = documents.first().toObject();
    EXPECT_EQ(first.value("id").toInteger(), document);
    EXPECT_EQ(first.value("xRequestHistory").toInteger(), history.toLongLong());
    EXPECT_EQ(first.value("name").toString(), "debug_log");
    EXPECT_EQ(first.value("mimetype").toString(), "application/zip");
    EXPECT_EQ(first.value("size").toInteger(), zip.size());
    EXPECT_EQ(first.value("sha1").toString(), sha1(zip));
    EXPECT_EQ(get(QStringLiteral("/inspect/documents/%1").arg(document)).body, zip);

    const QJsonObject second = documents.last().toObject();
    EXPECT_EQ(second.value("sha1").toString(), sha1(binary));
    EXPECT_EQ(get(QStringLiteral("/inspect/documents/%1").arg(second.value("id").toInteger())).body,
              binary);
}

TEST_F(HelpDeskAPI, listFindsExactAddressesOutsideTheTrash)
{
    const QList<QVariantMap> requests = listRequests(sampleEmail, "0");
    ASSERT_EQ(requests.size(), 3);
    int closed = 0, staffReplies = 0, privateNotes = 0;
    for (const QVariantMap &request : requests) {
        EXPECT_EQ(request.value("sEmail").toString(), sampleEmail);
        EXPECT_EQ(request.value("fTrash").toString(), "0");
        closed += request.value("fOpen").toString() == "0";
        const QVariantList events =
            SiteXml::list(request.value("history").toMap().value("history_events"));
        ASSERT_FALSE(events.isEmpty());
        qint64 previous = 0;
        for (const QVariant &value : events) {
            const QVariantMap event = value.toMap();
            const qint64 time = event.value("dtGMTChange").toLongLong();
            EXPECT_GE(time, previous) << "history is oldest first";
            previous = time;
            staffReplies +=
                event.value("xPerson").toInt() != 0 && event.value("fPublic").toString() == "1";
            privateNotes += event.value("fPublic").toString() == "0";
        }
    }
    EXPECT_GE(closed, 1);
    EXPECT_GE(staffReplies, 1);
    EXPECT_GE(privateNotes, 1);

    const QList<QVariantMap> trashed = listRequests(sampleEmail, "1");
    ASSERT_EQ(trashed.size(), 1);
    EXPECT_EQ(trashed.first().value("fTrash").toString(), "1");
    EXPECT_TRUE(listRequests("nobody@example.com", "0").isEmpty());
}

TEST_F(HelpDeskAPI, updateAppendsACustomerNoteAndReopens)
{
    const QList<QVariantMap> before = listRequests(sampleEmail, "0");
    QVariantMap closed;
    for (const QVariantMap &request : before) {
        if (request.value("fOpen").toString() == "0")
            closed = request;
    }
    ASSERT_FALSE(closed.isEmpty());
    const QString number = closed.value("xRequest").toString();

    const SiteResponse response = api(MultipartBody()
                                          .field("action", "update")
                                          .field("xRequest", number)
                                          .field("tBody", "It happened again.\nSame steps."));
    ASSERT_EQ(response.status, 200) << response.body.toStdString();
    const QVariantMap reply = SiteXml::helpDeskReply(response.body);
    EXPECT_EQ(reply.value("xRequest").toString(), number);

    for (const QVariantMap &request : listRequests(sampleEmail, "0")) {
        if (request.value("xRequest").toString() != number)
            continue;
        EXPECT_EQ(request.value("fOpen").toString(), "1");
        const QVariantMap last =
            SiteXml::list(request.value("history").toMap().value("history_events")).last().toMap();
        EXPECT_EQ(last.value("xRequestHistory"), reply.value("xRequestHistory"));
        EXPECT_EQ(last.value("tNote").toString(), "It happened again.\nSame steps.");
        EXPECT_EQ(last.value("xPerson").toString(), "0");
    }
}

TEST_F(HelpDeskAPI, malformedPostsGetErrorRepliesAndTheSiteLives)
{
    const QByteArray boundary = "b0undary";
    const QByteArray actionPart =
        "--b0undary\r\nContent-Disposition: form-data; name=\"action\"\r\n\r\n";
    const QByteArray full = "multipart/form-data; boundary=" + boundary;
    const struct
    {
        const char *what;
        QByteArray contentType;
        QByteArray body;
    } cases[] = {
        {"no boundary", "multipart/form-data", actionPart + "categories\r\n--b0undary--\r\n"},
        {"not multipart", "application/x-www-form-urlencoded", "action=categories"},
        {"truncated body", full, actionPart + "categ"},
        {"no delimiter", full, "action=categories"},
        {"headers without end", full,
         "--b0undary\r\nContent-Disposition: form-data; name=\"action\"\r\n--b0undary--\r\n"},
        {"part without a name", full,
         "--b0undary\r\nContent-Type: text/plain\r\n\r\nx\r\n--b0undary--\r\n"},
        {"missing action", full,
         "--b0undary\r\nContent-Disposition: form-data; "
         "name=\"sEmail\"\r\n\r\na@b.c\r\n--b0undary--\r\n"},
        {"unknown action", full, actionPart + "delete_everything\r\n--b0undary--\r\n"},
        {"empty body", full, ""},
    };
    for (const auto &c : cases) {
        const SiteResponse response =
            SiteClient::post(site.helpDeskAPIURL(), c.contentType, c.body);
        EXPECT_EQ(response.status, 400) << c.what;
        EXPECT_TRUE(response.body.startsWith("<?xml")) << c.what;
        QString root;
        const QVariantMap error = SiteXml::helpDeskReply(response.body, &root);
        EXPECT_EQ(root, "error") << c.what;
        EXPECT_FALSE(error.value("description").toString().isEmpty()) << c.what;
    }

    const MultipartBody badForms[] = {
        MultipartBody().field("action", "new").field("sEmail", "a@b.c").field("tBody", "no name"),
        newRequest("x").field("xCategory", "4"),
        newRequest("x").field("xCategory", "6"),
        newRequest("x").field("xCategory", "999"),
        newRequest("x").field("fUrgent", "true"),
        MultipartBody()
            .field("action", "add_document")
            .field("xRequestHistory", "40001")
            .field("name", "crash_log")
            .field("mimetype", "application/zip")
            .field("body", "not base64!"),
        MultipartBody()
            .field("action", "add_document")
            .field("xRequestHistory", "1")
            .field("name", "crash_log")
            .field("mimetype", "application/zip")
            .field("body", "UEsDBA=="),
        MultipartBody().field("action", "update").field("xRequest", "1").field("tBody", "hello"),
        MultipartBody().field("action", "list").field("fTrash", "0"),
    };
    for (const MultipartBody &form : badForms) {
        const SiteResponse response = api(form);
        EXPECT_EQ(response.status, 400) << form.body().toStdString();
        EXPECT_EQ(SiteXml::elements(response.body, "error").size(), 1)
            << response.body.toStdString();
    }
    EXPECT_EQ(SiteClient::get(site.helpDeskAPIURL()).status, 400);

    ASSERT_TRUE(site.isRunning());
    EXPECT_EQ(api(MultipartBody().field("action", "categories")).status, 200);
}

TEST_F(HelpDeskAPI, formsFollowTheMultipartGrammar)
{
    // Quoted boundary with a space, a preamble, transport padding, a part with its own
    // Content-Type, a field repeated (the last one counts) and an epilogue.
    const QByteArray boundary = "simple boundary";
    QByteArray body = "This preamble is ignored.\r\n";
    const auto part = [&](const QByteArray &headers, const QByteArray &value) {
        body += "--" + boundary + " \t\r\n" + headers + "\r\n\r\n" + value + "\r\n";
    };
    part("Content-Disposition: form-data; name=\"action\"", "new");
    part("content-disposition: FORM-DATA; name=sFirstName", "Ana");
    part("Content-Disposition: form-data; name=\"sLastName\"\r\nContent-Type: text/plain; "
         "charset=utf-8",
         "Łukasiewicz");
    part("Content-Disposition: form-data; name=\"sEmail\"", "ana@example.com");
    part("Content-Disposition: form-data; name=\"sPhone\"", "");
    part("Content-Disposition: form-data; name=\"xCategory\"", "1");
    part("Content-Disposition: form-data; name=\"xCategory\"", "2");
    part("Content-Disposition: form-data; name=\"Custom1\"", "Test Host");
    part("Content-Disposition: form-data; name=\"Custom3\"", "2.5b1");
    part("Content-Disposition: form-data; name=\"tBody\"", "ends with a line end\r\n");
    body += "--" + boundary + "--\r\nThis epilogue is ignored too.\r\n";

    const SiteResponse response = SiteClient::post(
        site.helpDeskAPIURL(), "multipart/form-data; boundary=\"" + boundary + "\"", body);
    ASSERT_EQ(response.status, 200) << response.body.toStdString();
    const qint64 number = SiteXml::helpDeskReply(response.body).value("xRequest").toLongLong();
    const QJsonObject stored = inspectedRequest(number);
    const QJsonObject fields = stored.value("fields").toObject();
    EXPECT_EQ(fields.value("sFirstName").toString(), "Ana");
    EXPECT_EQ(fields.value("sLastName").toString(), "Łukasiewicz");
    EXPECT_EQ(fields.value("sPhone").toString(), "");
    EXPECT_EQ(stored.value("xCategory").toInt(), 2);
    EXPECT_EQ(fields.value("tBody").toString(), "ends with a line end\r\n");
}
