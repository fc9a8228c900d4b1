#include "QKApplication.h"
#include "QKBundle.h"
#include "QKException.h"
#include "QKTestPrinters.h"

#include <QDir>
#include <QPointer>
#include <QTimer>

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

const QEvent::Type throwQKException = QEvent::Type(QEvent::User + 1);
const QEvent::Type throwStdException = QEvent::Type(QEvent::User + 2);
const QEvent::Type plainEvent = QEvent::Type(QEvent::User + 3);

// Throws from its event handler on request and counts the events it handles.
class EventReceiver : public QObject
{
public:
    int handled = 0;

    bool event(QEvent *event) override
    {
        if (event->type() == throwQKException)
            throw QKException(QStringLiteral("The receiver broke"),
                              {{QStringLiteral("detail"), QStringLiteral("inside event()")}},
                              QStringLiteral("QKTestException"));
        if (event->type() == throwStdException)
            throw std::runtime_error("disk on fire");
        if (event->type() >= QEvent::User) {
            ++handled;
            return true;
        }
        return QObject::event(event);
    }
};

struct CaughtException
{
    QString name;
    QString reason;
    QVariantMap userInfo;
    QString stackTrace;
};

} // namespace

TEST(QKApplication, identityComesFromTheHostBundle)
{
    QKApplication *app = QKApplication::sharedApplication();
    ASSERT_NE(app, nullptr);
    EXPECT_EQ(app->name(), QStringLiteral("Test Host"));
    EXPECT_EQ(app->code(), QStringLiteral("TSTH"));
    EXPECT_EQ(app->tempDirectory(), QDir::tempPath() + QStringLiteral("/TSTH"));
    EXPECT_EQ(QCoreApplication::applicationVersion(), QStringLiteral("2.5b1"));
    EXPECT_TRUE(app->delegate()->isBetaVersion());
}

TEST(QKApplication, hostDelegateReplacesTheBuiltInOne)
{
    class ReleaseDelegate : public QKApplicationDelegate
    {
    public:
        bool isBetaVersion() const override { return false; }
    };
    QKApplication *app = QKApplication::sharedApplication();
    {
        ReleaseDelegate delegate;
        app->setDelegate(&delegate);
        EXPECT_EQ(app->delegate(), &delegate);
        EXPECT_FALSE(app->delegate()->isBetaVersion());
    }
    // A destroyed delegate is not called.
    EXPECT_TRUE(app->delegate()->isBetaVersion());
}

TEST(QKApplication, exceptionsFromEventHandlersReachTheHandler)
{
    QList<CaughtException> caught;
    QKApplication::sharedApplication()->setExceptionHandler([&caught](const QKException &e) {
        caught.append({e.name(), e.reason(), e.userInfo(), e.stackTrace()});
    });
    EventReceiver receiver;
    QCoreApplication::postEvent(&receiver, new QEvent(throwQKException));
    QCoreApplication::postEvent(&receiver, new QEvent(throwStdException));
    QCoreApplication::postEvent(&receiver, new QEvent(plainEvent));
    QCoreApplication::processEvents();

    ASSERT_EQ(caught.size(), 2);
    EXPECT_EQ(caught[0].name, QStringLiteral("QKTestException"));
    EXPECT_EQ(caught[0].reason, QStringLiteral("The receiver broke"));
    EXPECT_EQ(caught[0].userInfo.value(QStringLiteral("detail")),
              QVariant(QStringLiteral("inside event()")));
    // Taken where the exception was made, so the dispatch that led there is in it.
    EXPECT_TRUE(caught[0].stackTrace.contains(QLatin1String("notify")))
        << caught[0].stackTrace.toStdString();
    EXPECT_EQ(caught[1].reason, QStringLiteral("disk on fire"));
    EXPECT_FALSE(caught[1].stackTrace.isEmpty());
    // The event after the failures is still delivered.
    EXPECT_EQ(receiver.handled, 1);

    QKApplication::sharedApplication()->setExceptionHandler(nullptr);
}

TEST(QKApplication, failingExceptionHandlerDoesNotStopTheApplication)
{
    int calls = 0;
    QKApplication::sharedApplication()->setExceptionHandler([&calls](const QKException &) {
        ++calls;
        throw std::logic_error("handler failed too");
    });
    EventReceiver receiver;
    QCoreApplication::postEvent(&receiver, new QEvent(throwStdException));
    QCoreApplication::postEvent(&receiver, new QEvent(plainEvent));
    QCoreApplication::processEvents();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(receiver.handled, 1);
    QKApplication::sharedApplication()->setExceptionHandler(nullptr);
}

TEST(QKApplication, eventHooksSeeEventsFirstAndCanConsumeThem)
{
    EventReceiver receiver;
    QPointer<QObject> target(&receiver);
    QStringList seen;
    QKApplication *app = QKApplication::sharedApplication();
    app->installEventHook([target, &seen](QObject *object, QEvent *event) {
        if (object != target || event->type() < QEvent::User)
            return false;
        seen << QStringLiteral("first %1").arg(event->type());
        return event->type() == plainEvent;
    });
    app->installEventHook([target, &seen](QObject *object, QEvent *event) {
        if (object == target && event->type() >= QEvent::User)
            seen << QStringLiteral("second %1").arg(event->type());
        return false;
    });

    QEvent consumed(plainEvent);
    EXPECT_TRUE(QCoreApplication::sendEvent(&receiver, &consumed));
    EXPECT_EQ(receiver.handled, 0);

    QCoreApplication::postEvent(&receiver, new QEvent(QEvent::Type(QEvent::User + 10)));
    QCoreApplication::processEvents();
    EXPECT_EQ(receiver.handled, 1);
    EXPECT_EQ(seen, QStringList({QStringLiteral("first %1").arg(plainEvent),
                                 QStringLiteral("first %1").arg(QEvent::User + 10),
                                 QStringLiteral("second %1").arg(QEvent::User + 10)}));
    target.clear();
}

TEST(QKApplication, normalQuitAnnouncesTermination)
{
    QKApplication *app = QKApplication::sharedApplication();
    int announcements = 0;
    QObject::connect(app, &QKApplication::willTerminate, [&announcements] { ++announcements; });
    QTimer::singleShot(0, app, &QCoreApplication::quit);
    EXPECT_EQ(app->exec(), 0);
    EXPECT_EQ(announcements, 1);
}

TEST(QKBundle, libraryBundleCarriesTheLibrarysOwnResources)
{
    const QKBundle *library = QKBundle::libraryBundle();
    EXPECT_EQ(library->objectForInfoDictionaryKey(QStringLiteral("CFBundleName")).toString(),
              QStringLiteral("QKUtilities"));
    EXPECT_FALSE(
        library->pathForResource(QStringLiteral("Info"), QStringLiteral("plist")).isEmpty());
    EXPECT_NE(library->infoDictionary(), QKBundle::mainBundle()->infoDictionary());
}
