#include "PanesTestSupport.h"

#include "QKSupportSite.h"
#include "QKTestEnvironment.h"

#include <QKAlert.h>
#include <QKUserDefaults.h>

#include <QDir>
#include <QDirIterator>
#include <QTemporaryDir>

#include <cstdlib>
#include <ctime>
#include <memory>
#include <vector>

namespace {

// Before main(): the application and every date it makes must see this zone.
const bool newYorkTime = [] {
    setenv("TZ", "America/New_York", 1);
    tzset();
    return true;
}();

std::vector<std::unique_ptr<QTemporaryDir>> s_dataCopies;

} // namespace

namespace PanesTest {

QDateTime utc(QDate day, QTime time)
{
    return QDateTime(day, time, Qt::UTC);
}

QString sampleDataWith(const QHash<QString, QByteArray> &files)
{
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
    s_dataCopies.push_back(std::move(copy));
    return s_dataCopies.back()->path();
}

void answerAlerts(const QHash<QString, int> &answers)
{
    QKAlert::setAnswerer(
        [answers](const QKAlertRequest &request) { return answers.value(request.message, 0); });
}

QStringList alertMessages()
{
    QStringList messages;
    for (const QKAlertRequest &request : QKAlert::shownAlerts())
        messages << request.message;
    return messages;
}

void notifyAboutUpdates(bool documentation, bool tutorials)
{
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    defaults->setBool(documentation, QStringLiteral("Notify Documentation Updates"));
    defaults->setBool(tutorials, QStringLiteral("Notify Tutorial Updates"));
}

QKHelpDesk *openWithoutSite(const QString &title, const QString &baseURL)
{
    QKSupportSite::setBaseURL(baseURL);
    QKHelpDesk *helpDesk = HelpDeskTest::startHelpDesk();
    if (!HelpDeskTest::openWindowAndWaitForCasts(helpDesk))
        return nullptr;
    helpDesk->_openWindow(title);
    return helpDesk;
}

} // namespace PanesTest
