#include "QKApplication.h"
#include "QKException.h"
#include "QKTestSupport.h"

#include <QDir>
#include <QPointer>
#include <QTimer>

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
            throw QKException(u"The receiver broke"_s, {{u"detail"_s, u"inside event()"_s}},
                              u"QKTestException"_s);
        if (event->type() == throwStdException)
            throw std::runtime_error("disk on fire");
        if (event->type() < QEvent::User)
            return QObject::event(event);
        ++handled;
        return true;
    }

    // Posts events of @p types to this receiver and delivers them.
    void deliver(std::initializer_list<QEvent::Type> types)
    {
        for (QEvent::Type type : types)
            QCoreApplication::postEvent(this, new QEvent(type));
        QCoreApplication::processEvents();
    }
};

} // namespace

TEST(QKApplication, identityComesFromTheHostBundleAndDelegate)
{
    QKApplication *app = QKApplication::sharedApplication();
    EXPECT_EQ(app->tempDirectory(), QDir::tempPath() + u"/TSTH"_s);
    // The built-in delegate reads version "2.5b1" as a beta.
    EXPECT_TRUE(app->delegate()->isBetaVersion());

    class ReleaseDelegate : public QKApplicationDelegate
    {
    public:
        bool isBetaVersion() const override { return false; }
    };
    {
        ReleaseDelegate delegate;
        app->setDelegate(&delegate);
        EXPECT_FALSE(app->delegate()->isBetaVersion());
    }
    // A destroyed delegate is not called.
    EXPECT_TRUE(app->delegate()->isBetaVersion());
}

TEST(QKApplication, exceptionsFromEventHandlersReachTheHandler)
{
    QList<QKException> caught;
    QKApplication::sharedApplication()->setExceptionHandler(
        [&caught](const QKException &e) { caught.append(e); });
    EventReceiver receiver;
    receiver.deliver({throwQKException, throwStdException, plainEvent});

    ASSERT_EQ(caught.size(), 2);
    EXPECT_EQ(caught[0].name(), u"QKTestException"_s);
    EXPECT_EQ(caught[0].userInfo().value(u"detail"_s), u"inside event()"_s);
    // Taken where the exception was made, so the dispatch that led there is in it.
    EXPECT_TRUE(caught[0].stackTrace().contains(u"notify"_s))
        << caught[0].stackTrace().toStdString();
    EXPECT_EQ(caught[1].reason(), u"disk on fire"_s);
    EXPECT_FALSE(caught[1].stackTrace().isEmpty());
    // The event after the failures is still delivered.
    EXPECT_EQ(receiver.handled, 1);

    // A handler that fails too does not stop the application either.
    QKApplication::sharedApplication()->setExceptionHandler([&caught](const QKException &e) {
        caught.append(e);
        throw std::logic_error("handler failed too");
    });
    receiver.deliver({throwStdException, plainEvent});
    EXPECT_EQ(caught.size(), 3);
    EXPECT_EQ(receiver.handled, 2);
    QKApplication::sharedApplication()->setExceptionHandler(nullptr);
}

TEST(QKApplication, eventHooksSeeEventsFirstAndCanConsumeThem)
{
    EventReceiver receiver;
    QPointer<QObject> target(&receiver);
    QList<int> seen;
    QKApplication *app = QKApplication::sharedApplication();
    app->installEventHook([target, &seen](QObject *object, QEvent *event) {
        if (object != target || event->type() < QEvent::User)
            return false;
        seen << event->type();
        return event->type() == plainEvent;
    });
    app->installEventHook([target, &seen](QObject *object, QEvent *event) {
        if (object == target && event->type() >= QEvent::User)
            seen << -event->type();
        return false;
    });

    QEvent consumed(plainEvent);
    EXPECT_TRUE(QCoreApplication::sendEvent(&receiver, &consumed));
    EXPECT_EQ(receiver.handled, 0);
    receiver.deliver({QEvent::Type(QEvent::User + 10)});
    EXPECT_EQ(receiver.handled, 1);
    // First hook, second hook, for the second event only.
    EXPECT_EQ(seen, QList<int>({plainEvent, QEvent::User + 10, -(QEvent::User + 10)}));
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
