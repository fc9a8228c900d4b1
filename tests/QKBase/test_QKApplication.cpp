#include "QKApplication.h"
#include "QKApplicationLog.h"
#include "QKException.h"
#include "QKTestEnvironment.h"
#include "QKTestSupport.h"

#include <QDir>
#include <QPointer>

#include <stdexcept>

#include <sys/stat.h>
#include <unistd.h>

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

QString applicationLog()
{
    return QString::fromUtf8(
        QKTestEnvironment::readAll(QKApplicationLog::sharedLog()->logFilePath()));
}

// The folder tempDirectory() falls back to when there is no runtime folder.
QString sharedTemporaryFolder()
{
    return QDir::tempPath() + u"/TSTH-"_s + QString::number(::geteuid());
}

// tempDirectory() refuses what is at its path: answers empty and says why in the log.
void expectRefused(const QString &reason)
{
    EXPECT_EQ(QKApplication::sharedApplication()->tempDirectory(), QString());
    const QStringList entries = applicationLog().split(u'\n', Qt::SkipEmptyParts);
    const QString entry = entries.value(entries.size() - 1);
    EXPECT_TRUE(entry.contains(u"Not using the temporary folder: "_s) &&
                entry.contains(sharedTemporaryFolder()) && entry.contains(reason))
        << entry.toStdString();
}

} // namespace

TEST(QKApplication, temporaryFolderIsTheUsersOwnAndPrivate)
{
    const QKApplication *app = QKApplication::sharedApplication();
    const auto expectPrivateFolder = [app](const QString &path) {
        EXPECT_EQ(app->tempDirectory(), path);
        struct stat status;
        ASSERT_EQ(::lstat(QFile::encodeName(path).constData(), &status), 0);
        EXPECT_TRUE(S_ISDIR(status.st_mode));
        EXPECT_EQ(status.st_mode & 0777, 0700u);
    };
    expectPrivateFolder(sharedTemporaryFolder());
    // A relative runtime folder is ignored, as the XDG rules demand.
    qputenv("XDG_RUNTIME_DIR", "run/user");
    EXPECT_EQ(app->tempDirectory(), sharedTemporaryFolder());

    const QString runtime = QKTestEnvironment::homeFile(u"run"_s);
    ASSERT_TRUE(QDir().mkpath(runtime));
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime));
    expectPrivateFolder(runtime + u"/TSTH"_s);
    EXPECT_EQ(QKApplication::currentTempDirectory(), runtime + u"/TSTH"_s);
}

TEST(QKApplication, temporaryFolderThatOthersCouldTamperWithIsRefused)
{
    const QString path = sharedTemporaryFolder();
    const QString elsewhere = QKTestEnvironment::homeFile(u"Documents"_s);
    ASSERT_TRUE(QKTestEnvironment::writeAll(elsewhere + u"/keep"_s, "precious"));
    ASSERT_TRUE(QFile::link(elsewhere, path));
    expectRefused(u"is a symbolic link"_s);
    // Asked again for the same reason, it does not say so again.
    const qsizetype logged = applicationLog().size();
    EXPECT_EQ(QKApplication::sharedApplication()->tempDirectory(), QString());
    EXPECT_EQ(applicationLog().size(), logged);

    ASSERT_TRUE(QFile::remove(path));
    ASSERT_TRUE(QDir().mkdir(path));
    ASSERT_EQ(::chmod(QFile::encodeName(path).constData(), 0770), 0);
    expectRefused(u"others may write in"_s);
    EXPECT_EQ(QKTestEnvironment::readAll(elsewhere + u"/keep"_s), "precious");
}

TEST(QKApplication, temporaryFolderOfAnotherUserIsRefused)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can give a folder to another user";
    const QString path = sharedTemporaryFolder();
    ASSERT_TRUE(QDir().mkdir(path));
    ASSERT_EQ(::chmod(QFile::encodeName(path).constData(), 0700), 0);
    ASSERT_EQ(::chown(QFile::encodeName(path).constData(), 65534, 65534), 0);
    expectRefused(u"belongs to user 65534"_s);
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
