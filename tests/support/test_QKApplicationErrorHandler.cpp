#include "SupportTestSupport.h"

#include "QKHelpDeskWindow.h"

#include <QKException.h>

#include <QSignalSpy>
#include <QThread>

using namespace SupportTest;

namespace {

class Thrower : public QObject
{
public:
    explicit Thrower(const QVariantMap &userInfo = {}) : m_userInfo(userInfo) {}
    bool event(QEvent *event) override
    {
        if (event->type() == QEvent::User)
            throw QKException(QStringLiteral("The receiver broke"), m_userInfo);
        return QObject::event(event);
    }

private:
    QVariantMap m_userInfo;
};

void raiseInEventHandler(const QVariantMap &userInfo = {})
{
    Thrower thrower(userInfo);
    QCoreApplication::postEvent(&thrower, new QEvent(QEvent::User));
    QCoreApplication::processEvents();
}

} // namespace

TEST(QKApplicationErrorHandler, answeringNoLogsTheErrorAndCarriesOn)
{
    QKAlert::setAnswerer([](const QKAlertRequest &) { return 1; });
    raiseInEventHandler();
    const QList<QKAlertRequest> alerts = QKAlert::shownAlerts();
    ASSERT_EQ(alerts.size(), 1);
    EXPECT_EQ(alerts[0].message,
              "An application error occurred. Do you want to report this to the HelpDesk?");
    EXPECT_EQ(alerts[0].informativeText,
              "The application may be unstable from this point on until you quit and relaunch.");
    EXPECT_EQ(alerts[0].buttons, QStringList({"Yes", "No"}));
    const QList<LogEntry> log = logEntries();
    ASSERT_EQ(log.size(), 1);
    EXPECT_EQ(log[0].level, "Error");
    EXPECT_TRUE(log[0].domain.isEmpty());
    EXPECT_TRUE(log[0].function.isEmpty());
    EXPECT_EQ(log[0].message.section('\n', 0, 0), "The receiver broke");
    EXPECT_TRUE(log[0].message.section('\n', 1).contains("raiseInEventHandler"))
        << log[0].message.toStdString();
    EXPECT_EQ(QKHelpDesk::helpDesk()->window(), nullptr);

    // Every error asks again.
    raiseInEventHandler();
    EXPECT_EQ(QKAlert::shownAlerts().size(), 2);
}

TEST(QKApplicationErrorHandler, answeringYesOpensTheSupportPaneWithTheError)
{
    useOwnTemporaryFolder();
    QKSupportSiteProcess site;
    ASSERT_TRUE(site.isRunning());
    QKAlert::setAnswerer([](const QKAlertRequest &) { return 0; });
    QKHelpDesk *desk = QKHelpDesk::helpDesk();
    ASSERT_EQ(desk->window(), nullptr);
    QSignalSpy casts(desk, &QKHelpDesk::castsLoaded);
    raiseInEventHandler();
    ASSERT_TRUE(desk->window() && desk->window()->isVisible());
    // The window's first load fetches the casts on a thread of its own; let it end.
    EXPECT_TRUE(casts.wait(60000));
    EXPECT_EQ(desk->currentView(), desk->supportView());
    const QString trace = logEntries().constFirst().message.section('\n', 1);
    EXPECT_FALSE(trace.isEmpty());
    EXPECT_EQ(paneWidget<QPlainTextEdit>(desk->supportView(), "bodyText")->toPlainText(),
              "I had an application error!\n\nThe receiver broke\n\n" + trace);
    EXPECT_FALSE(paneWidget<QCheckBox>(desk->supportView(), "submitCrashLog1Button")->isChecked());
}

TEST(QKApplicationErrorHandler, accessibilityExceptionsAreNeitherLoggedNorOffered)
{
    raiseInEventHandler({{"NSAccessibilityErrorCodeExceptionInfo", 1}});
    EXPECT_TRUE(QKAlert::shownAlerts().isEmpty());
    EXPECT_TRUE(logEntries().isEmpty());
}

TEST(QKApplicationErrorHandler, aHandlerTheHostSetsBeforeTheFirstEventIsKept)
{
    int caught = 0;
    QKApplication::sharedApplication()->setExceptionHandler(
        [&caught](const QKException &) { ++caught; });
    raiseInEventHandler();
    EXPECT_EQ(caught, 1);
    EXPECT_TRUE(QKAlert::shownAlerts().isEmpty());
    QKApplication::sharedApplication()->setExceptionHandler(nullptr);
}

TEST(QKApplicationErrorHandler, anErrorOnAWorkerThreadIsOfferedOnTheMainThread)
{
    QThread *answeredOn = nullptr;
    QKAlert::setAnswerer([&answeredOn](const QKAlertRequest &) {
        answeredOn = QThread::currentThread();
        return 1;
    });
    QThread worker;
    Thrower thrower;
    thrower.moveToThread(&worker);
    worker.start();
    QCoreApplication::postEvent(&thrower, new QEvent(QEvent::User));
    EXPECT_TRUE(waitUntil([&] { return answeredOn != nullptr; }));
    EXPECT_EQ(answeredOn, QCoreApplication::instance()->thread());
    EXPECT_EQ(logEntries().size(), 1);
    worker.quit();
    worker.wait();
}
