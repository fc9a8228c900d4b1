#include "QKMultipartRequest.h"
#include "QKTestEnvironment.h"
#include "QKTestHttpServer.h"
#include "QKTestSupport.h"

#include <QFile>
#include <QHttpMultiPart>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QProcess>
#include <QSignalSpy>

namespace {

QKTestHttpServer::Response okResponse(const QKTestHttpServer::Request &)
{
    return {200, "<?xml version=\"1.0\"?><results/>", {}, {}};
}

// Posts @p request the way the support pane does, on this thread's event loop.
bool postAndWait(const QKMultipartRequest &request)
{
    QNetworkAccessManager manager;
    QNetworkReply *reply = request.post(&manager);
    QSignalSpy finished(reply, &QNetworkReply::finished);
    return finished.wait(20000) && reply->error() == QNetworkReply::NoError;
}

// Reads the captured body with Python's standard library, as a server-side form parser:
// the fields by name, or {"!defects": count} when the parser found fault with the body.
QMap<QString, QByteArray> parseWithPython(const QKTestHttpServer::Request &request)
{
    QProcess python;
    python.start(u"python3"_s,
                 {QKTestEnvironment::sourcePath(u"QKBase/data/parse_multipart.py"_s)});
    python.write("Content-Type: " + request.header("Content-Type") + "\r\n\r\n" + request.body);
    python.closeWriteChannel();
    python.waitForFinished(30000);
    EXPECT_EQ(python.exitCode(), 0) << python.readAllStandardError().toStdString();

    const QJsonObject result = QJsonDocument::fromJson(python.readAllStandardOutput()).object();
    QMap<QString, QByteArray> fields;
    for (const QJsonValue &part : result.value("parts").toArray()) {
        const QJsonObject object = part.toObject();
        // Every part is a plain field: no file name, no type of its own.
        EXPECT_TRUE(object.value("contentType").isNull() && object.value("filename").isNull());
        fields.insert(object.value("name").toString(),
                      QByteArray::fromBase64(object.value("value").toString().toLatin1()));
    }
    if (result.value("defects").toInt(-1) != 0)
        fields.insert(u"!defects"_s, QByteArray::number(result.value("defects").toInt(-1)));
    return fields;
}

} // namespace

TEST(QKMultipartRequest, everyFieldSurvivesAStandardFormParser)
{
    QByteArray binary;
    for (int byte = 0; byte < 256; ++byte)
        binary.append(char(byte));
    const QString trap =
        u"--\r\n------------------------------0a1b\r\n\r\n--boundary--\r\n-- end"_s;
    // Each field as sent, and as the parser must give it back.
    const struct
    {
        QString name;
        QVariant value;
        QString parsedName;
        QByteArray parsed;
    } fields[] = {
        {u"action"_s, "new", u"action"_s, "new"},
        {u"Zoë Ångström"_s, u"Façade, naïve café — ✓"_s, u"Zoë Ångström"_s,
         u"Façade, naïve café — ✓"_s.toUtf8()},
        {u"tBody"_s, "First line\r\nSecond line\nThird\r\n\r\n", u"tBody"_s,
         "First line\r\nSecond line\nThird\r\n\r\n"},
        {u"trap"_s, trap, u"trap"_s, trap.toUtf8()},
        {u"fUrgent"_s, true, u"fUrgent"_s, "1"},
        {u"fTrash"_s, false, u"fTrash"_s, "0"},
        {u"xCategory"_s, 42, u"xCategory"_s, "42"},
        {u"ratio"_s, 2.5, u"ratio"_s, "2.5"},
        {u"body"_s, binary, u"body"_s, binary},
        {u"empty"_s, QString(), u"empty"_s, ""},
        {u"say \"hi\"\r\nnow"_s, "quoted", u"say %22hi%22%0D%0Anow"_s, "quoted"},
    };
    QVariantMap form;
    QMap<QString, QByteArray> expected;
    for (const auto &field : fields) {
        form.insert(field.name, field.value);
        expected.insert(field.parsedName, field.parsed);
    }

    QKTestHttpServer server(okResponse);
    const QKMultipartRequest request =
        QKMultipartRequest::requestWithURL(server.url("/helpspot_api.php"), form);
    EXPECT_EQ(request.fieldCount(), form.size());
    ASSERT_TRUE(postAndWait(request));

    const QList<QKTestHttpServer::Request> received = server.requests();
    ASSERT_EQ(received.size(), 1);
    EXPECT_EQ(received[0].method, "POST");
    EXPECT_EQ(received[0].path, "/helpspot_api.php");
    EXPECT_TRUE(received[0].header("Content-Type").startsWith("multipart/form-data; boundary="));
    EXPECT_EQ(parseWithPython(received[0]), expected);
}

TEST(QKMultipartRequest, largeValuesAreSharedAndRepostable)
{
    QByteArray archive(4 * 1024 * 1024, 'Q');
    archive.replace(0, 12, "UEsDBBQAAAAI");
    QKTestHttpServer server(okResponse);
    const QKMultipartRequest request = QKMultipartRequest::requestWithURL(
        server.url(), {{"body", archive}, {"action", "add_document"}});
    // The request holds the caller's bytes, not a copy of them.
    EXPECT_FALSE(archive.isDetached());

    const QKMultipartRequest copy = request;
    ASSERT_TRUE(postAndWait(request));
    ASSERT_TRUE(postAndWait(copy));
    EXPECT_FALSE(archive.isDetached());

    const QList<QKTestHttpServer::Request> received = server.requests();
    ASSERT_EQ(received.size(), 2);
    EXPECT_EQ(received[0].body, received[1].body);
    EXPECT_EQ(parseWithPython(received[1]).value(u"body"_s), archive);
}

TEST(QKMultipartRequest, bodyLivesExactlyAsLongAsItsReply)
{
    QKTestHttpServer server(okResponse);
    QNetworkAccessManager manager;
    QNetworkReply *reply =
        QKMultipartRequest::requestWithURL(server.url(), {{"action", "list"}}).post(&manager);
    ASSERT_NE(reply, nullptr);
    QPointer<QHttpMultiPart> body = reply->findChild<QHttpMultiPart *>();
    ASSERT_FALSE(body.isNull());
    QSignalSpy finished(reply, &QNetworkReply::finished);
    ASSERT_TRUE(finished.wait(20000));
    EXPECT_FALSE(body.isNull());
    delete reply;
    EXPECT_TRUE(body.isNull());

    EXPECT_EQ(QKMultipartRequest().post(nullptr), nullptr);
}

TEST(QKMultipartRequest, base64FilesAreEncodedWhileSent)
{
    QKTestHttpServer server(okResponse);
    // Sizes around the 3-byte groups and across many reads of the body.
    for (const qsizetype size : {0, 1, 2, 3, 16385, 1024 * 1024 + 1}) {
        QByteArray contents(size, Qt::Uninitialized);
        for (qsizetype i = 0; i < size; ++i)
            contents[i] = char((i * 7919) >> 3);
        const QString path = QKTestEnvironment::homeFile(u"archive.zip"_s);
        ASSERT_TRUE(QKTestEnvironment::writeAll(path, contents));

        QNetworkAccessManager manager;
        QNetworkReply *reply =
            QKMultipartRequest::requestWithURL(
                server.url(), {{"action", "add_document"},
                               {"body", QVariant::fromValue(QKBase64EncodedFile(path))}})
                .post(&manager);
        ASSERT_NE(reply, nullptr);
        // The upload has the file open; callers remove their archive right after starting.
        ASSERT_TRUE(QFile::remove(path));
        QSignalSpy finished(reply, &QNetworkReply::finished);
        ASSERT_TRUE(finished.wait(20000));
        EXPECT_EQ(reply->error(), QNetworkReply::NoError) << size;
        EXPECT_EQ(parseWithPython(server.requests().constLast()),
                  (QMap<QString, QByteArray>{{u"action"_s, "add_document"},
                                             {u"body"_s, contents.toBase64()}}))
            << size;
    }

    const QString missing = QKTestEnvironment::homeFile(u"missing.zip"_s);
    QNetworkAccessManager manager;
    EXPECT_EQ(QKMultipartRequest::requestWithURL(
                  server.url(), {{"body", QVariant::fromValue(QKBase64EncodedFile(missing))}})
                  .post(&manager),
              nullptr);
}

TEST(QKMultipartRequest, aFileThatShrinksWhileSentFailsTheReply)
{
    QKTestHttpServer server(okResponse);
    const QString path = QKTestEnvironment::homeFile(u"archive.zip"_s);
    ASSERT_TRUE(QKTestEnvironment::writeAll(path, QByteArray(2 * 1024 * 1024, 'z')));
    QNetworkAccessManager manager;
    QNetworkReply *reply =
        QKMultipartRequest::requestWithURL(
            server.url(), {{"body", QVariant::fromValue(QKBase64EncodedFile(path))}})
            .post(&manager);
    ASSERT_NE(reply, nullptr);
    ASSERT_TRUE(QFile::resize(path, 1000));
    QSignalSpy finished(reply, &QNetworkReply::finished);
    ASSERT_TRUE(finished.wait(20000));
    EXPECT_NE(reply->error(), QNetworkReply::NoError);
    EXPECT_TRUE(server.requests().isEmpty());
}
