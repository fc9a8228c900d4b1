#include "SupportTestSupport.h"

#include "QKHelpDeskAttachFilesPanel.h"
#include "QKSupportSite.h"
#include "QKSystemProfiler.h"

#include <QKSynchronousRequest.h>

#include <QJsonDocument>
#include <QNetworkRequest>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>

namespace SupportTest {

bool waitUntil(const std::function<bool()> &condition, int timeoutMs)
{
    return QTest::qWaitFor(condition, timeoutMs);
}

QList<LogEntry> logEntries(const QString &domain)
{
    const QByteArray log = QKTestEnvironment::readAll(QKApplicationLog::sharedLog()->logFilePath());
    QList<LogEntry> entries;
    for (const QString &line : QString::fromUtf8(log).split(QLatin1Char('\n'))) {
        const QStringList fields = line.split(QLatin1Char('\t'));
        if (line.startsWith(QLatin1Char('\t')) && !entries.isEmpty())
            entries.last().message += QLatin1Char('\n') + line.mid(1);
        else if (fields.size() >= 7)
            entries.append({fields[1], fields[2], fields[4], fields[5], fields.mid(6).join('\t')});
    }
    if (!domain.isEmpty())
        entries.removeIf([&](const LogEntry &entry) { return entry.domain != domain; });
    return entries;
}

QStringList supportLog()
{
    QStringList lines;
    for (const LogEntry &entry : logEntries(QStringLiteral("HDSupport")))
        lines << entry.level + QStringLiteral(": ") + entry.message;
    return lines;
}

void submitRequest(QKHelpDeskSupport *pane, const QString &category, const QString &body)
{
    auto *categories = paneWidget<QComboBox>(pane, "categoryPopup");
    categories->setCurrentIndex(categories->findText(category));
    paneWidget<QPlainTextEdit>(pane, "bodyText")->setPlainText(body);
    paneWidget<QPushButton>(pane, "submitButton")->click();
}

QString waitForPanelEnd()
{
    QKHelpDeskProgressPanel *panel = progressPanel();
    waitUntil([panel] {
        return !panel->isVisible() || panel->progressPanelTitle().endsWith(QLatin1Char('!'));
    });
    return panel->progressPanelTitle();
}

namespace {

QByteArray siteGet(const QKSupportSiteProcess &site, const QString &path)
{
    return QKSynchronousRequest::get(
               QNetworkRequest(QUrl(site.baseURL() + QStringLiteral("/inspect/") + path)))
        .data;
}

} // namespace

QJsonArray inspect(const QKSupportSiteProcess &site, const QString &path)
{
    return site.inspect(path);
}

QMap<QString, QByteArray> documentEntries(const QKSupportSiteProcess &site, qint64 id)
{
    return zipEntries(siteGet(site, QStringLiteral("documents/%1").arg(id)));
}

QMap<QString, QByteArray> zipEntries(const QByteArray &archive)
{
    QProcess python;
    python.start(QStringLiteral("python3"),
                 {QStringLiteral("-c"),
                  QStringLiteral("import base64, io, json, sys, zipfile\n"
                                 "z = zipfile.ZipFile(io.BytesIO(sys.stdin.buffer.read()))\n"
                                 "print(json.dumps({i.filename: base64.b64encode(z.read(i))"
                                 ".decode() for i in z.infolist()}))\n")});
    python.write(archive);
    python.closeWriteChannel();
    python.waitForFinished(60000);
    QMap<QString, QByteArray> entries;
    const QJsonObject object = QJsonDocument::fromJson(python.readAllStandardOutput()).object();
    for (auto it = object.begin(); it != object.end(); ++it)
        entries.insert(it.key(), QByteArray::fromBase64(it.value().toString().toLatin1()));
    return entries;
}

void useOwnTemporaryFolder()
{
    const QString temporary = QKTestEnvironment::homeFile(QStringLiteral("tmp"));
    QDir().mkpath(temporary);
    qputenv("TMPDIR", QFile::encodeName(temporary));
}

QString writeFile(const QString &path, const QByteArray &contents)
{
    const QString absolute = QDir(QKTestEnvironment::homePath()).filePath(path);
    return QKTestEnvironment::writeAll(absolute, contents) ? absolute : QString();
}

ScriptedHelpDesk::ScriptedHelpDesk()
{
    listen(QHostAddress::LocalHost, 0);
    connect(this, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket *socket = nextPendingConnection())
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { serve(socket); });
    });
}

QString ScriptedHelpDesk::url() const
{
    return QStringLiteral("http://127.0.0.1:%1/helpspot_api.php").arg(serverPort());
}

QStringList ScriptedHelpDesk::steps() const
{
    QStringList steps;
    for (const auto &form : forms) {
        const QString action = form.value(QStringLiteral("action"));
        steps << (action == u"add_document" ? action + u':' + form.value(QStringLiteral("name"))
                                            : action);
    }
    return steps;
}

namespace {

// The fields of a multipart/form-data body.
QMap<QString, QString> parseForm(const QByteArray &body)
{
    static const QRegularExpression field(QStringLiteral(
        "name=\"([^\"]+)\"[^\\r\\n]*\\r\\n(?:[^\\r\\n]+\\r\\n)*\\r\\n([\\s\\S]*?)\\r\\n--"));
    QMap<QString, QString> form;
    for (const QRegularExpressionMatch &match : field.globalMatch(QString::fromUtf8(body)))
        form.insert(match.captured(1), match.captured(2));
    return form;
}

QByteArray defaultReply(const QString &action)
{
    if (action == u"categories")
        return "<category><xCategory>3</xCategory><sCategory>Crashes &amp; Bugs</sCategory>"
               "<fAllowPublicSubmit>1</fAllowPublicSubmit><fDeleted>0</fDeleted></category>";
    if (action == u"new" || action == u"update")
        return "<xRequest>10001</xRequest><xRequestHistory>40001</xRequestHistory>";
    if (action == u"add_document")
        return "<xDocument>701</xDocument>";
    return {};
}

} // namespace

void ScriptedHelpDesk::serve(QTcpSocket *socket)
{
    QByteArray &buffer = m_buffers[socket];
    buffer += socket->readAll();
    const qsizetype headerEnd = buffer.indexOf("\r\n\r\n");
    const QByteArray headers = buffer.left(headerEnd).toLower();
    const qsizetype length = headers.indexOf("content-length:") + 15;
    const qint64 bodySize =
        headers.mid(length, headers.indexOf("\r\n", length) - length).trimmed().toLongLong();
    if (headerEnd < 0 || buffer.size() < headerEnd + 4 + bodySize)
        return;
    forms << parseForm(buffer.mid(headerEnd + 4, bodySize));
    m_buffers.remove(socket);
    std::optional<Reply> reply = script ? script(forms.last()) : std::nullopt;
    if (!reply)
        reply = Reply{200, "<?xml version=\"1.0\"?><results>" +
                               defaultReply(forms.last().value(QStringLiteral("action"))) +
                               "</results>"};
    if (reply->hang)
        return;
    if (reply->drop) {
        socket->abort();
        socket->deleteLater();
        return;
    }
    socket->write("HTTP/1.1 " + QByteArray::number(reply->status) +
                  " Scripted\r\nContent-Type: text/xml\r\nConnection: close\r\nContent-Length: " +
                  QByteArray::number(reply->body.size()) + "\r\n\r\n" + reply->body);
    socket->disconnectFromHost();
    connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
}

SupportPaneTest::SupportPaneTest(bool useScripted)
    : scripted(useScripted ? std::make_unique<ScriptedHelpDesk>() : nullptr)
{}

SupportPaneTest::~SupportPaneTest() = default;

void SupportPaneTest::SetUp()
{
    useOwnTemporaryFolder();
    site = std::make_unique<QKSupportSiteProcess>();
    ASSERT_TRUE(site->isRunning()) << site->errorString().toStdString();
    if (scripted)
        QKSupportSite::setHelpDeskAPIURL(scripted->url());
    qunsetenv("EMAIL");
    QKApplicationLog::sharedLog()->_setThreshold(QKApplicationLog::Info,
                                                 QStringLiteral("HDSupport"));
    QKHelpDesk::startup();
    QKHelpDesk *desk = QKHelpDesk::helpDesk();
    QSignalSpy casts(desk, &QKHelpDesk::castsLoaded);
    QKHelpDesk::openWindow(QStringLiteral("Support"));
    ASSERT_TRUE(!casts.isEmpty() || casts.wait(60000));
    pane = desk->supportView();
    QKSystemProfiler builtIn;
    builtIn.setProgram(QString());
    pane->setSystemProfiler(builtIn);
}

void SupportPaneTest::attach(const QStringList &paths)
{
    QKFilePanels::setAnswerer([paths](const QKFilePanelRequest &, bool) { return paths; });
    pane->openAttachFilesPanel();
    pane->attachFilesPanel()->addAttachedFile();
    pane->attachFilesPanel()->closeAttachFilesPanel();
}

} // namespace SupportTest
