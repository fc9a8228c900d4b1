#include "HelpDeskTestSupport.h"

#include "QKHelpDesk.h"
#include "QKHelpDeskView.h"
#include "QKSupportSite.h"
#include "QKTestEnvironment.h"

#include <QKApplicationLog.h>
#include <QKWorkspace.h>

#include <QDir>
#include <QDirIterator>
#include <QHttpServerResponder>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <memory>
#include <vector>

namespace HelpDeskTest {

QString logText()
{
    return QString::fromUtf8(
        QKTestEnvironment::readAll(QKApplicationLog::sharedLog()->logFilePath()));
}

QString downloadFolder()
{
    return QKTestEnvironment::homeFile(QStringLiteral("Downloads"));
}

QStringList filesIn(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

QString sampleDataWith(const QHash<QString, QByteArray> &files)
{
    static std::vector<std::unique_ptr<QTemporaryDir>> copies;
    const QDir source(QStringLiteral(QK_SUPPORT_SITE_DATA));
    const QTemporaryDir &copy = *copies.emplace_back(std::make_unique<QTemporaryDir>());
    QDirIterator it(source.path(), QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QKTestEnvironment::writeAll(copy.filePath(source.relativeFilePath(path)),
                                    QKTestEnvironment::readAll(path));
    }
    for (auto file = files.cbegin(); file != files.cend(); ++file)
        QKTestEnvironment::writeAll(copy.filePath(file.key()), file.value());
    return copy.path();
}

void useSite(const QString &baseURL)
{
    QKSupportSite::setBaseURL(baseURL);
    QKSupportSite::setHelpDeskAPIURL(baseURL + QStringLiteral("/helpspot_api.php"));
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

bool openWindowAndWaitForCasts(QKHelpDesk *helpDesk)
{
    QSignalSpy casts(helpDesk, &QKHelpDesk::castsLoaded);
    helpDesk->_openWindow(QString());
    return casts.wait(60000);
}

bool reloadCasts(QKHelpDesk *helpDesk)
{
    QSignalSpy casts(helpDesk, &QKHelpDesk::castsLoaded);
    helpDesk->loadCasts();
    return casts.wait(30000);
}

QKHelpDeskView *pane(const QKHelpDesk *helpDesk, const QString &identifier)
{
    for (QKHelpDeskView *candidate : helpDesk->views()) {
        if (candidate->identifier() == identifier)
            return candidate;
    }
    return nullptr;
}

OpenedURLs::OpenedURLs()
{
    QKWorkspace::setOpener([this](const QUrl &url) {
        append(url.toString());
        return true;
    });
}

OpenedURLs::~OpenedURLs()
{
    QKWorkspace::setOpener({});
}

ScriptedServer::ScriptedServer()
{
    m_server.setMissingHandler(
        [this](const QHttpServerRequest &request, QHttpServerResponder &&responder) {
            const auto reply = replies.constFind(request.url().path());
            if (reply == replies.cend())
                responder.write(QHttpServerResponder::StatusCode::NotFound);
            else
                responder.write(*reply, "text/plain");
        });
    m_port = m_server.listen(QHostAddress::LocalHost, 0);
}

QString ScriptedServer::baseURL() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(m_port);
}

} // namespace HelpDeskTest
