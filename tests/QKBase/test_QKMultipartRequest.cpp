#include "QKMultipartRequest.h"
#include "QKNetworkReplies.h"
#include "QKTestEnvironment.h"
#include "QKTestHttpServer.h"
#include "QKTestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHttpMultiPart>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QProcess>
#include <QSignalSpy>

#include <algorithm>

using Fields = QMap<QString, QByteArray>;

namespace {

QKTestHttpServer::Response okResponse(const QKTestHttpServer::Request &)
{
    return {200, "<?xml version=\"1.0\"?><results/>"};
}

// Waits for @p reply, which the caller started on this thread's event loop as the support
// pane does; its error, or -1 when it never finished.
int finish(QNetworkReply *reply)
{
    QSignalSpy finished(reply, &QNetworkReply::finished);
    return finished.wait(20000) ? reply->error() : -1;
}

// Whether this process still holds a descriptor on @p path (a removed file included).
bool isHeldOpen(const QString &path)
{
    const QString target = QFileInfo(path).absoluteFilePath();
    const QDir descriptors(u"/proc/self/fd"_s);
    const QStringList entries =
        descriptors.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    return std::any_of(entries.cbegin(), entries.cend(), [&](const QString &entry) {
        return QFile::symLinkTarget(descriptors.filePath(entry)).startsWith(target);
    });
}

QVariant fileField(const QString &path)
{
    return QVariant::fromValue(QKBase64EncodedFile(path));
}

// The fields of the captured body as a server-side form parser (Python's) reads them.
Fields parsed(const QKTestHttpServer::Request &request)
{
    QProcess python;
    python.start(u"python3"_s,
                 {QKTestEnvironment::sourcePath(u"QKBase/data/parse_multipart.py"_s)});
    python.write("Content-Type: " + request.header("Content-Type") + "\r\n\r\n" + request.body);
    python.closeWriteChannel();
    python.waitForFinished(30000);
    EXPECT_EQ(python.exitCode(), 0) << python.readAllStandardError().toStdString();
    const QVariantMap result =
        QJsonDocument::fromJson(python.readAllStandardOutput()).object().toVariantMap();
    Fields fields;
    for (auto it = result.cbegin(); it != result.cend(); ++it)
        fields.insert(it.key(), QByteArray::fromBase64(it.value().toByteArray()));
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
    const QString lines = u"First line\r\nSecond line\nThird\r\n\r\n"_s;
    // Each field as sent, and as the parser must give it back.
    const std::tuple<QString, QVariant, QByteArray> fields[] = {
        {u"action"_s, "new", "new"},
        {u"Zoë Ångström"_s, u"Façade, naïve café — ✓"_s, u"Façade, naïve café — ✓"_s.toUtf8()},
        {u"tBody"_s, lines, lines.toUtf8()},
        {u"trap"_s, trap, trap.toUtf8()},
        {u"fUrgent"_s, true, "1"},
        {u"fTrash"_s, false, "0"},
        {u"xCategory"_s, 42, "42"},
        {u"ratio"_s, 2.5, "2.5"},
        {u"body"_s, binary, binary},
        {u"empty"_s, QString(), ""},
    };
    // Names are escaped as browsers do.
    QVariantMap form{{u"say \"hi\"\r\nnow"_s, "quoted"}};
    Fields expected{{u"say %22hi%22%0D%0Anow"_s, "quoted"}};
    for (const auto &[name, value, received] : fields) {
        form.insert(name, value);
        expected.insert(name, received);
    }

    QKTestHttpServer server(okResponse);
    const QKMultipartRequest request =
        QKMultipartRequest::requestWithURL(server.url("/helpspot_api.php"), form);
    QNetworkAccessManager manager;
    ASSERT_EQ(finish(request.post(&manager)), QNetworkReply::NoError);

    const QList<QKTestHttpServer::Request> received = server.requests();
    ASSERT_EQ(received.size(), 1);
    EXPECT_EQ(received[0].method, "POST");
    EXPECT_EQ(received[0].path, "/helpspot_api.php");
    EXPECT_TRUE(received[0].header("Content-Type").startsWith("multipart/form-data; boundary="));
    EXPECT_EQ(parsed(received[0]), expected);
}

TEST(QKMultipartRequest, largeValuesAreSharedAndRepostableAndBodiesLiveAsLongAsTheirReply)
{
    QByteArray archive(4 * 1024 * 1024, 'Q');
    archive.replace(0, 12, "UEsDBBQAAAAI");
    QKTestHttpServer server(okResponse);
    const QKMultipartRequest request = QKMultipartRequest::requestWithURL(
        server.url(), {{"body", archive}, {"action", "add_document"}});
    // The request holds the caller's bytes, not a copy of them.
    EXPECT_FALSE(archive.isDetached());

    const QKMultipartRequest copy = request;
    QNetworkAccessManager manager;
    ASSERT_EQ(finish(request.post(&manager)), QNetworkReply::NoError);
    QNetworkReply *reply = copy.post(&manager);
    ASSERT_NE(reply, nullptr);
    QPointer<QHttpMultiPart> body = reply->findChild<QHttpMultiPart *>();
    ASSERT_FALSE(body.isNull());
    ASSERT_EQ(finish(reply), QNetworkReply::NoError);
    EXPECT_FALSE(archive.isDetached());
    EXPECT_FALSE(body.isNull());
    delete reply;
    EXPECT_TRUE(body.isNull());

    const QList<QKTestHttpServer::Request> received = server.requests();
    ASSERT_EQ(received.size(), 2);
    EXPECT_EQ(received[0].body, received[1].body);
    EXPECT_EQ(parsed(received[1]).value(u"body"_s), archive);
    EXPECT_EQ(QKMultipartRequest().post(nullptr), nullptr);
}

TEST(QKMultipartRequest, base64FilesAreEncodedWhileSent)
{
    QKTestHttpServer server(okResponse);
    QNetworkAccessManager manager;
    const QString path = QKTestEnvironment::homeFile(u"archive.zip"_s);
    // Sizes around the 3-byte groups and across many reads of the body.
    for (const qsizetype size : {0, 1, 2, 3, 16385, 1024 * 1024 + 1}) {
        SCOPED_TRACE(size);
        QByteArray contents(size, Qt::Uninitialized);
        for (qsizetype i = 0; i < size; ++i)
            contents[i] = char((i * 7919) >> 3);
        ASSERT_TRUE(QKTestEnvironment::writeAll(path, contents));
        QNetworkReply *reply =
            QKMultipartRequest::requestWithURL(
                server.url(), {{"action", "add_document"}, {"body", fileField(path)}})
                .post(&manager);
        ASSERT_NE(reply, nullptr);
        // The upload has the file open; callers remove their archive right after starting.
        ASSERT_TRUE(QFile::remove(path));
        EXPECT_EQ(finish(reply), QNetworkReply::NoError);
        EXPECT_EQ(parsed(server.requests().constLast()),
                  (Fields{{u"action"_s, "add_document"}, {u"body"_s, contents.toBase64()}}));
    }
    EXPECT_EQ(QKMultipartRequest::requestWithURL(server.url(), {{"body", fileField(path)}})
                  .post(&manager),
              nullptr);

    // A file that shrinks while it is sent fails the reply before anything arrives.
    ASSERT_TRUE(QKTestEnvironment::writeAll(path, QByteArray(2 * 1024 * 1024, 'z')));
    const qsizetype sent = server.requests().size();
    QNetworkReply *reply =
        QKMultipartRequest::requestWithURL(server.url(), {{"body", fileField(path)}})
            .post(&manager);
    ASSERT_NE(reply, nullptr);
    ASSERT_TRUE(QFile::resize(path, 1000));
    EXPECT_GT(finish(reply), 0);
    EXPECT_EQ(server.requests().size(), sent);
}

TEST(QKMultipartRequest, base64FilesAreReleasedOnceSent)
{
    QKTestHttpServer server(okResponse);
    QNetworkAccessManager manager;
    const QString path = QKTestEnvironment::homeFile(u"sent.zip"_s);
    const QByteArray contents(3 * 1024 * 1024 + 7, 'r');
    ASSERT_TRUE(QKTestEnvironment::writeAll(path, contents));
    const std::unique_ptr<QNetworkReply> reply(
        QKMultipartRequest::requestWithURL(server.url(), {{"body", fileField(path)}})
            .post(&manager));
    ASSERT_NE(reply, nullptr);
    ASSERT_EQ(finish(reply.get()), QNetworkReply::NoError);
    EXPECT_EQ(parsed(server.requests().constLast()), (Fields{{u"body"_s, contents.toBase64()}}));
    // Sent in full: the reply still exists, the file is no longer held.
    EXPECT_FALSE(isHeldOpen(path));
}

TEST(QKMultipartRequest, aBodyGoesOutAtMostOnce)
{
    // The connection is dropped after the whole body arrived; Qt would send it again if it
    // could read the body once more, whatever part of the form comes first.
    QKTestHttpServer server(
        [](const auto &) { return QKTestHttpServer::Response{QKTestHttpServer::Drop}; });
    QNetworkAccessManager manager;
    const QString path = QKTestEnvironment::homeFile(u"dropped.zip"_s);
    ASSERT_TRUE(QKTestEnvironment::writeAll(path, QByteArray(100000, 'd')));
    const QVariantMap forms[] = {{{"action", "new"}, {"note", QByteArray(300000, 'n')}},
                                 {{"archive", fileField(path)}, {"name", "crash_log"}}};
    for (const QVariantMap &form : forms) {
        const std::unique_ptr<QNetworkReply> reply(
            QKMultipartRequest::requestWithURL(server.url(), form).post(&manager));
        ASSERT_NE(reply, nullptr);
        EXPECT_GT(finish(reply.get()), 0);
        EXPECT_TRUE(QKNetworkReplies::isTransportFailure(reply.get()));
    }
    EXPECT_EQ(server.requests().size(), 2);
}

// Code that writes the body to a connection itself must send what Qt sends, whatever the
// sizes of its reads: reads that start and end inside a Base64 group, and reads far larger
// than a block of the file.
TEST(QKMultipartRequest, theBodyDeviceHoldsWhatQtSendsReadInAnyPieces)
{
    const QString path = QKTestEnvironment::homeFile(u"pieces.zip"_s);
    QByteArray contents(3 * 1024 * 1024 + 2, Qt::Uninitialized);
    for (qsizetype i = 0; i < contents.size(); ++i)
        contents[i] = char((i * 2654435761u) >> 13);
    ASSERT_TRUE(QKTestEnvironment::writeAll(path, contents));
    QKTestHttpServer server(okResponse);
    const QKMultipartRequest request = QKMultipartRequest::requestWithURL(
        server.url(), {{"action", "add_document"}, {"body", fileField(path)}, {"note", "é\r\n"}});
    QNetworkAccessManager manager;
    ASSERT_EQ(finish(request.post(&manager)), QNetworkReply::NoError);
    const QByteArray sent = server.requests().constLast().body;
    EXPECT_EQ(parsed(server.requests().constLast()).value(u"body"_s), contents.toBase64());

    for (const qint64 piece : {1, 3, 5, 4097, 1024 * 1024 + 3, 8 * 1024 * 1024}) {
        SCOPED_TRACE(piece);
        const std::unique_ptr<QIODevice> body = request.bodyDevice();
        ASSERT_NE(body, nullptr);
        EXPECT_EQ(body->size(), sent.size());
        QByteArray read;
        // Byte-sized reads over the whole body would take long; they cover the start.
        const qint64 limit = piece == 1 ? 20000 : body->size();
        while (read.size() < limit) {
            const QByteArray next = body->read(qMin(piece, limit - read.size()));
            ASSERT_FALSE(next.isEmpty());
            read += next;
        }
        EXPECT_TRUE(read == sent.left(limit));
    }

    // A file that shrank after the body was made fails the read instead of ending it early.
    const std::unique_ptr<QIODevice> body = request.bodyDevice();
    ASSERT_TRUE(QFile::resize(path, 1000));
    qint64 total = 0;
    QByteArray buffer(1024 * 1024, Qt::Uninitialized);
    qint64 got = 0;
    while ((got = body->read(buffer.data(), buffer.size())) > 0)
        total += got;
    EXPECT_EQ(got, -1);
    EXPECT_LT(total, sent.size());
    ASSERT_TRUE(QFile::remove(path));
    EXPECT_EQ(
        QKMultipartRequest::requestWithURL(server.url(), {{"body", fileField(path)}}).bodyDevice(),
        nullptr);
}
