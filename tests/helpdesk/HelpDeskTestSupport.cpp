#include "HelpDeskTestSupport.h"

#include "QKHelpDesk.h"
#include "QKTestEnvironment.h"

#include <QKApplicationLog.h>

#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QHttpServer>
#include <QHttpServerResponder>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <vector>

namespace HelpDeskTest {

bool waitUntil(const std::function<bool()> &condition, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!condition() && !deadline.hasExpired())
        QTest::qWait(10);
    return condition();
}

QString logText()
{
    QFile file(QKApplicationLog::sharedLog()->logFilePath());
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

QString downloadFolder()
{
    return QKTestEnvironment::homePath() + QStringLiteral("/Downloads");
}

QString sampleDataWith(const QHash<QString, QByteArray> &files)
{
    static std::vector<std::unique_ptr<QTemporaryDir>> copies;
    const QDir source(QStringLiteral(QK_SUPPORT_SITE_DATA));
    auto copy = std::make_unique<QTemporaryDir>();
    QDirIterator it(source.path(), QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QKTestEnvironment::writeAll(copy->filePath(source.relativeFilePath(path)),
                                    QKTestEnvironment::readAll(path));
    }
    for (auto file = files.cbegin(); file != files.cend(); ++file)
        QKTestEnvironment::writeAll(copy->filePath(file.key()), file.value());
    copies.push_back(std::move(copy));
    return copies.back()->path();
}

QStringList filesIn(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

bool openWindowAndWaitForCasts(QKHelpDesk *helpDesk)
{
    QSignalSpy casts(helpDesk, &QKHelpDesk::castsLoaded);
    helpDesk->_openWindow(QString());
    return casts.wait(60000);
}

QKHelpDesk *startHelpDesk(const QString &email)
{
    if (email.isEmpty())
        qunsetenv("EMAIL");
    else
        qputenv("EMAIL", email.toUtf8());
    QKHelpDesk::startup();
    return QKHelpDesk::helpDesk();
}

ScriptedServer::ScriptedServer() : m_server(std::make_unique<QHttpServer>())
{
    m_server->setMissingHandler([this](const QHttpServerRequest &request,
                                       QHttpServerResponder &&responder) {
        const auto reply = m_replies.constFind(request.url().path());
        if (reply == m_replies.cend()) {
            responder.write(QHttpServerResponder::StatusCode::NotFound);
            return;
        }
        responder.write(reply->body, reply->type, QHttpServerResponder::StatusCode(reply->status));
    });
    m_port = m_server->listen(QHostAddress::LocalHost, 0);
}

ScriptedServer::~ScriptedServer() = default;

void ScriptedServer::setReply(const QString &path, const QByteArray &body, int status,
                              const QByteArray &type)
{
    m_replies.insert(path, Reply{body, status, type});
}

QString ScriptedServer::baseURL() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(m_port);
}

} // namespace HelpDeskTest
