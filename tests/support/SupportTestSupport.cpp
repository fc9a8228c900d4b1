#include "SupportTestSupport.h"

#include "QKHelpDesk.h"
#include "QKHelpDeskAttachFilesPanel.h"
#include "QKHelpDeskProgressPanel.h"
#include "QKSupportSite.h"
#include "QKSupportSiteProcess.h"
#include "QKSystemProfiler.h"
#include "QKTestEnvironment.h"

#include <QKAlert.h>
#include <QKApplicationLog.h>
#include <QKSynchronousRequest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkRequest>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>

namespace SupportTest {

bool waitUntil(const std::function<bool()> &condition, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!condition() && !deadline.hasExpired())
        QTest::qWait(10);
    return condition();
}

QList<LogEntry> logEntries(const QString &domain)
{
    QFile file(QKApplicationLog::sharedLog()->logFilePath());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QList<LogEntry> entries;
    for (const QString &line : QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'))) {
        if (line.startsWith(QLatin1Char('\t')) && !entries.isEmpty()) {
            entries.last().message += QLatin1Char('\n') + line.mid(1);
            continue;
        }
        const QStringList fields = line.split(QLatin1Char('\t'));
        if (fields.size() >= 7)
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

QKHelpDeskSupport *openSupportPane()
{
    qunsetenv("EMAIL");
    QKApplicationLog::sharedLog()->_setThreshold(QKApplicationLog::Info,
                                                 QStringLiteral("HDSupport"));
    QKHelpDesk::startup();
    QKHelpDesk *desk = QKHelpDesk::helpDesk();
    QSignalSpy casts(desk, &QKHelpDesk::castsLoaded);
    QKHelpDesk::openWindow(QStringLiteral("Support"));
    if (casts.isEmpty() && !casts.wait(60000))
        return nullptr;
    QKHelpDeskSupport *pane = desk->supportView();
    QKSystemProfiler builtIn;
    builtIn.setProgram(QString());
    pane->setSystemProfiler(builtIn);
    return pane;
}

QKHelpDeskProgressPanel *progressPanel()
{
    return QKHelpDesk::helpDesk()->progressPanel();
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

QJsonArray inspect(const QKSupportSiteProcess &site, const QString &path)
{
    const auto reply = QKSynchronousRequest::get(
        QNetworkRequest(QUrl(site.baseURL() + QStringLiteral("/inspect/") + path)));
    return QJsonDocument::fromJson(reply.data).array();
}

QByteArray documentBytes(const QKSupportSiteProcess &site, qint64 id)
{
    return QKSynchronousRequest::get(
               QNetworkRequest(
                   QUrl(site.baseURL() + QStringLiteral("/inspect/documents/%1").arg(id))))
        .data;
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

QString writeFile(const QString &path, const QByteArray &contents)
{
    const QString absolute = QDir(QKTestEnvironment::homePath()).filePath(path);
    return QKTestEnvironment::writeAll(absolute, contents) ? absolute : QString();
}

QString writeGatedProfiler(const QString &goFile)
{
    const QByteArray go = "'" + QFile::encodeName(goFile) + "'";
    const QString path = writeFile(
        QStringLiteral("bin/gated-profiler"),
        "#!/bin/sh\nprintf '<?xml version=\"1.0\"?><profile>'\nsleep 0.7\nprintf '<part1/>'\n"
        "i=0\nwhile [ ! -e " +
            go +
            " ] && [ $i -lt 1000 ]; do sleep 0.02; i=$((i+1)); done\n"
            "printf '<part2/></profile>'\n");
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return path;
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
    for (const auto &form : m_forms) {
        const QString action = form.value(QStringLiteral("action"));
        steps << (action == u"add_document" ? action + u':' + form.value(QStringLiteral("name"))
                                            : action);
    }
    return steps;
}

namespace {

// The fields of a multipart/form-data body as QKMultipartRequest writes it.
QMap<QString, QString> parseForm(const QByteArray &headers, const QByteArray &body)
{
    const qsizetype at = headers.indexOf("boundary=");
    const QByteArray boundary = "--" + headers.mid(at + 9, headers.indexOf("\r\n", at) - at - 9);
    QMap<QString, QString> form;
    qsizetype position = body.indexOf(boundary);
    while (position >= 0) {
        const qsizetype start = position + boundary.size() + 2;
        const qsizetype next = body.indexOf(boundary, start);
        if (next < 0)
            break;
        const QByteArray part = body.mid(start, next - start - 2);
        const qsizetype split = part.indexOf("\r\n\r\n");
        const QByteArray header = part.left(split);
        const qsizetype name = header.indexOf("name=\"") + 6;
        form.insert(QString::fromUtf8(header.mid(name, header.indexOf('"', name) - name)),
                    QString::fromUtf8(part.mid(split + 4)));
        position = next;
    }
    return form;
}

ScriptedHelpDesk::Reply defaultReply(const QString &action)
{
    if (action == u"categories")
        return ScriptedHelpDesk::Reply{
            200, "<?xml version=\"1.0\"?><results><category><xCategory>3</xCategory>"
                 "<sCategory>Crashes &amp; Bugs</sCategory><fAllowPublicSubmit>1"
                 "</fAllowPublicSubmit><fDeleted>0</fDeleted></category></results>"};
    if (action == u"new" || action == u"update")
        return ScriptedHelpDesk::Reply{200,
                                       "<?xml version=\"1.0\"?><results><xRequest>10001</xRequest>"
                                       "<xRequestHistory>40001</xRequestHistory></results>"};
    if (action == u"add_document")
        return ScriptedHelpDesk::Reply{
            200, "<?xml version=\"1.0\"?><results><xDocument>701</xDocument></results>"};
    return ScriptedHelpDesk::Reply{200, "<?xml version=\"1.0\"?><results></results>"};
}

} // namespace

void ScriptedHelpDesk::serve(QTcpSocket *socket)
{
    QByteArray &buffer = m_buffers[socket];
    buffer += socket->readAll();
    const qsizetype headerEnd = buffer.indexOf("\r\n\r\n");
    if (headerEnd < 0)
        return;
    const QByteArray headers = buffer.left(headerEnd).toLower();
    const qsizetype length = headers.indexOf("content-length:");
    const qint64 bodySize = headers.mid(length + 15, headers.indexOf("\r\n", length) - length - 15)
                                .trimmed()
                                .toLongLong();
    if (buffer.size() < headerEnd + 4 + bodySize)
        return;
    const QMap<QString, QString> form =
        parseForm(buffer.left(headerEnd), buffer.mid(headerEnd + 4, bodySize));
    m_buffers.remove(socket);
    m_forms << form;
    const std::optional<Reply> scripted = m_script ? m_script(form) : std::nullopt;
    const Reply reply = scripted ? *scripted : defaultReply(form.value(QStringLiteral("action")));
    if (reply.drop) {
        socket->abort();
        socket->deleteLater();
        return;
    }
    socket->write("HTTP/1.1 " + QByteArray::number(reply.status) +
                  " Scripted\r\nContent-Type: text/xml\r\nConnection: close\r\nContent-Length: " +
                  QByteArray::number(reply.body.size()) + "\r\n\r\n" + reply.body);
    socket->disconnectFromHost();
    connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
}

SupportPaneTest::SupportPaneTest(bool scripted)
{
    if (scripted)
        this->scripted = std::make_unique<ScriptedHelpDesk>();
}

SupportPaneTest::~SupportPaneTest() = default;

void SupportPaneTest::SetUp()
{
    // The temporary folder is named by the application's code: keep it per test.
    const QString temporary = QKTestEnvironment::homeFile(QStringLiteral("tmp"));
    QDir().mkpath(temporary);
    qputenv("TMPDIR", QFile::encodeName(temporary));
    site = std::make_unique<QKSupportSiteProcess>();
    ASSERT_TRUE(site->isRunning()) << site->errorString().toStdString();
    if (scripted)
        QKSupportSite::setHelpDeskAPIURL(scripted->url());
    pane = openSupportPane();
    ASSERT_NE(pane, nullptr);
}

void SupportPaneTest::check(const char *box, bool on)
{
    paneWidget<QCheckBox>(pane, box)->setChecked(on);
}

void SupportPaneTest::attach(const QStringList &paths)
{
    QKFilePanels::setAnswerer([paths](const QKFilePanelRequest &, bool) { return paths; });
    pane->openAttachFilesPanel();
    pane->attachFilesPanel()->addAttachedFile();
    pane->attachFilesPanel()->closeAttachFilesPanel();
}

} // namespace SupportTest
