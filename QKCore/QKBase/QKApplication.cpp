#include "QKApplication.h"

#include "QKApplicationLog.h"
#include "QKBundle.h"
#include "QKException.h"
#include "QKFile.h"

#include <QDir>
#include <QPointer>
#include <QRegularExpression>

#include <mutex>
#include <utility>
#include <vector>

#include <unistd.h>

bool QKApplicationDelegate::isBetaVersion() const
{
    static const QRegularExpression preRelease(QStringLiteral("[a-z]"));
    const QString version =
        QKBundle::mainBundle()
            ->objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString"))
            .toString();
    return version.contains(preRelease);
}

struct QKApplication::Private
{
    QKApplicationDelegate builtInDelegate;
    QPointer<QKApplicationDelegate> delegate;
    std::vector<EventHook> eventHooks;
    ExceptionHandler exceptionHandler;
};

QKApplication::QKApplication(int &argc, char **argv)
    : QApplication(argc, argv), d(std::make_unique<Private>())
{
    const QString version =
        QKBundle::mainBundle()
            ->objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString"))
            .toString();
    if (!version.isEmpty())
        setApplicationVersion(version);
    connect(this, &QCoreApplication::aboutToQuit, this, &QKApplication::willTerminate);
}

QKApplication::~QKApplication() = default;

QKApplication *QKApplication::sharedApplication()
{
    return qobject_cast<QKApplication *>(QCoreApplication::instance());
}

QString QKApplication::name() const
{
    return currentName();
}

QString QKApplication::currentName()
{
    const QString name = QKBundle::mainBundle()
                             ->objectForInfoDictionaryKey(QStringLiteral("CFBundleName"))
                             .toString();
    return name.isEmpty() ? QCoreApplication::applicationName() : name;
}

QString QKApplication::code() const
{
    return currentCode();
}

QString QKApplication::currentCode()
{
    const QKBundle *bundle = QKBundle::mainBundle();
    for (const char *key : {"QKApplicationCode", "CFBundleSignature"}) {
        const QString code =
            bundle->objectForInfoDictionaryKey(QString::fromLatin1(key)).toString();
        if (!code.isEmpty() && code != QLatin1String("????"))
            return code;
    }
    return currentName();
}

QString QKApplication::tempDirectory() const
{
    return currentTempDirectory();
}

namespace {

// Every archive and download asks for the temporary folder: a refusal is logged when it
// differs from the last answer (a usable folder being an empty one), not at each call.
bool changesLastRefusal(const QString &error)
{
    static std::mutex mutex;
    static QString last;
    const std::lock_guard lock(mutex);
    return std::exchange(last, error) != error;
}

} // namespace

QString QKApplication::currentTempDirectory()
{
    // The shared temporary folder is open to every user: the name carries the user id so
    // that another user's folder is never taken for ours.
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    const QString path =
        !runtime.isEmpty() && QDir::isAbsolutePath(runtime)
            ? QDir(runtime).filePath(currentCode())
            : QDir(QDir::tempPath())
                  .filePath(currentCode() + QLatin1Char('-') + QString::number(::geteuid()));
    QString error;
    if (QKFile::createPrivateDirectoryAtPath(path, &error)) {
        changesLastRefusal(QString());
        return path;
    }
    if (!changesLastRefusal(error))
        return QString();
    QKApplicationLog::sharedLog()->warning(
        QKApplicationLogContext(QStringLiteral("QKApplication")),
        QStringLiteral("Not using the temporary folder: %1").arg(error));
    return QString();
}

QKApplicationDelegate *QKApplication::delegate() const
{
    return d->delegate ? d->delegate.data() : &d->builtInDelegate;
}

void QKApplication::setDelegate(QKApplicationDelegate *delegate)
{
    d->delegate = delegate;
}

void QKApplication::installEventHook(EventHook hook)
{
    if (hook)
        d->eventHooks.push_back(std::move(hook));
}

void QKApplication::setExceptionHandler(ExceptionHandler handler)
{
    d->exceptionHandler = std::move(handler);
}

QKApplication::ExceptionHandler QKApplication::exceptionHandler() const
{
    return d->exceptionHandler;
}

bool QKApplication::notify(QObject *receiver, QEvent *event)
{
    // Qt cannot unwind through its event dispatch, so every exception that escapes a
    // handler is stopped here and reported instead of terminating the host.
    try {
        for (const EventHook &hook : d->eventHooks) {
            if (hook(receiver, event))
                return true;
        }
        return QApplication::notify(receiver, event);
    } catch (const QKException &exception) {
        handleException(exception);
    } catch (const std::exception &exception) {
        handleException(QKException(QString::fromLocal8Bit(exception.what()), {},
                                    QStringLiteral("std::exception")));
    } catch (...) {
        handleException(
            QKException(QStringLiteral("Unknown exception"), {}, QStringLiteral("unknown")));
    }
    return false;
}

bool QKApplication::usesSplashScreen() const
{
    return false;
}

namespace {

QKApplication::LaunchWrapper &launchWrapperSlot()
{
    // Function-local, so a library that installs its wrapper while it is being loaded
    // never finds the slot unconstructed.
    static QKApplication::LaunchWrapper wrapper;
    return wrapper;
}
} // namespace

void QKApplication::setLaunchWrapper(LaunchWrapper wrapper)
{
    launchWrapperSlot() = std::move(wrapper);
}

void QKApplication::finishLaunching(const std::function<void()> &launchWork)
{
    const LaunchWrapper wrapper = launchWrapperSlot();
    if (usesSplashScreen() && wrapper)
        wrapper(launchWork ? launchWork : [] {});
    else if (launchWork)
        launchWork();
}

void QKApplication::handleException(const QKException &exception)
{
    if (d->exceptionHandler) {
        try {
            d->exceptionHandler(exception);
        } catch (...) {
            // A failing handler must not take the host down with it.
        }
        return;
    }
    QKApplicationLog::sharedLog()->log(QKApplicationLog::Error, nullptr,
                                       exception.reason() + QLatin1Char('\n') +
                                           exception.stackTrace());
}
