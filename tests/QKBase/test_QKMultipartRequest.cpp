#include "QKMultipartRequest.h"
#include "QKTestEnvironment.h"
#include "QKTestHttpServer.h"

#include <QHttpMultiPart>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QProcess>
#include <QSignalSpy>

#include <gtest/gtest.h>

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

struct ParsedForm
{
    int defects = -1;
    QMap<QString, QByteArray> fields;
    int partCount = 0;
    bool everyPartIsPlainField = true;
};

// Reads the captured body with Python's standard library, as a server-side form parser.
ParsedForm parseWithPython(const QKTestHttpServer::Request &request)
{
    QProcess python;
    python.start(QStringLiteral("python3"),
                 {QKTestEnvironment::sourcePath(QStringLiteral("QKBase/data/parse_multipart.py"))});
    python.write("Content-Type: " + request.header("Content-Type") + "\r\n\r\n" + request.body);
    python.closeWriteChannel();
    python.waitForFinished(30000);
    EXPECT_EQ(python.exitCode(), 0) << python.readAllStandardError().toStdString();

    ParsedForm form;
    const QJsonObject result = QJsonDocument::fromJson(python.readAllStandardOutput()).object();
    form.defects = result.value("defects").toInt(-1);
    const QJsonArray parts = result.value("parts").toArray();
    form.partCount = int(parts.size());
    for (const QJsonValue &part : parts) {
        const QJsonObject object = part.toObject();
        form.fields.insert(object.value("name").toString(),
                           QByteArray::fromBase64(object.value("value").toString().toLatin1()));
        if (!object.value("contentType").isNull() || !object.value("filename").isNull())
            form.everyPartIsPlainField = false;
    }
    return form;
}

} // namespace

TEST(QKMultipartRequest, everyFieldSurvivesAStandardFormParser)
{
    QByteArray binary;
    for (int byte = 0; byte < 256; ++byte)
        binary.append(char(byte));
    const QString trap = QStringLiteral("--\r\n--QKFormBoundary\r\n\r\n--boundary--\r\n-- end");
    const QVariantMap form = {
        {"action", "new"},
        {QStringLiteral("Zoë Ångström"), QStringLiteral("Façade, naïve café — ✓")},
        {"tBody", "First line\r\nSecond line\nThird\r\n\r\n"},
        {"trap", trap},
        {"fUrgent", true},
        {"fTrash", false},
        {"xCategory", 42},
        {"ratio", 2.5},
        {"body", binary},
        {"empty", QString()},
        {"say \"hi\"\r\nnow", "quoted"},
    };

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

    const ParsedForm parsed = parseWithPython(received[0]);
    EXPECT_EQ(parsed.defects, 0);
    EXPECT_EQ(parsed.partCount, form.size());
    EXPECT_TRUE(parsed.everyPartIsPlainField);
    const QMap<QString, QByteArray> expected = {
        {"action", "new"},
        {QStringLiteral("Zoë Ångström"), QStringLiteral("Façade, naïve café — ✓").toUtf8()},
        {"tBody", "First line\r\nSecond line\nThird\r\n\r\n"},
        {"trap", trap.toUtf8()},
        {"fUrgent", "1"},
        {"fTrash", "0"},
        {"xCategory", "42"},
        {"ratio", "2.5"},
        {"body", binary},
        {"empty", ""},
        {"say %22hi%22%0D%0Anow", "quoted"},
    };
    for (auto it = expected.cbegin(); it != expected.cend(); ++it) {
        ASSERT_TRUE(parsed.fields.contains(it.key())) << it.key().toStdString();
        EXPECT_EQ(parsed.fields.value(it.key()), it.value()) << it.key().toStdString();
    }
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
    EXPECT_EQ(parseWithPython(received[1]).fields.value("body"), archive);
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
