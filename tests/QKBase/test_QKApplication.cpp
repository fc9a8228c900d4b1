#include "QKApplication.h"
#include "QKException.h"
#include "QKTestSupport.h"

#include <QDir>
#include <QPointer>

#include <stdexcept>

namespace {

const QEvent::Type throwStdException = QEvent::Type(QEvent::User + 1);
const QEvent::Type plainEvent = QEvent::Type(QEvent::User + 2);

// Throws from its event handler on request and counts the other events it handles.
class EventReceiver : public QObject
{
public:
    int handled = 0;

    bool event(QEvent *event) override
    {
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
}

TEST(QKApplication, exceptionsOfAnyKindFromEventHandlersReachTheHandler)
{
    QList<QKException> caught;
    QKApplication *app = QKApplication::sharedApplication();
    app->setExceptionHandler([&caught](const QKException &e) { caught.append(e); });
    EventReceiver receiver;
    receiver.deliver({throwStdException, plainEvent});
    ASSERT_EQ(caught.size(), 1);
    EXPECT_EQ(caught[0].reason(), u"disk on fire"_s);
    EXPECT_FALSE(caught[0].stackTrace().isEmpty());
    // The event after the failure is still delivered.
    EXPECT_EQ(receiver.handled, 1);

    // A handler that fails too does not stop the application either.
    app->setExceptionHandler([&caught](const QKException &e) {
        caught.append(e);
        throw std::logic_error("handler failed too");
    });
    receiver.deliver({throwStdException, plainEvent});
    EXPECT_EQ(caught.size(), 2);
    EXPECT_EQ(receiver.handled, 2);
    app->setExceptionHandler(nullptr);
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
