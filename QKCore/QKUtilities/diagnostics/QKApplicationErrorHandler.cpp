#include "QKApplicationErrorHandler.h"

#include "QKHelpDesk.h"

#include <QKAlert.h>
#include <QKApplication.h>
#include <QKApplicationLog.h>
#include <QKException.h>

#include <QThread>

const char *const QKApplicationErrorHandler::AccessibilityErrorKey =
    "NSAccessibilityErrorCodeExceptionInfo";

namespace {

void offerReport(const QString &reason, const QString &stackTrace)
{
    const int answer = QKAlert::runModal(
        QStringLiteral("An application error occurred. Do you want to report this to the "
                       "HelpDesk?"),
        QStringLiteral("The application may be unstable from this point on until you quit and "
                       "relaunch."),
        {QStringLiteral("Yes"), QStringLiteral("No")});
    if (answer == 0)
        QKHelpDesk::applicationErrorWithReason(reason, stackTrace);
}

// Installs the handler unless the host has set its own; false while the application object
// is not (yet) a QKApplication.
bool installUnlessHandled()
{
    const QKApplication *application = QKApplication::sharedApplication();
    if (!application)
        return false;
    if (!application->exceptionHandler())
        QKApplicationErrorHandler::install();
    return true;
}

/**
 * Waits for the application object to be complete. The library's start-up routine runs
 * inside QCoreApplication's constructor, before the QKApplication part of the object
 * exists; the first event that object dispatches, or the first pass of its event loop,
 * comes after it does.
 */
class ApplicationWatcher : public QObject
{
public:
    explicit ApplicationWatcher(QCoreApplication *application) : QObject(application)
    {
        application->installEventFilter(this);
        QMetaObject::invokeMethod(
            this, [this] { finish(); }, Qt::QueuedConnection);
    }

protected:
    bool eventFilter(QObject *, QEvent *) override
    {
        if (installUnlessHandled())
            finish();
        return false;
    }

private:
    void finish()
    {
        if (m_finished)
            return;
        m_finished = true;
        installUnlessHandled();
        QCoreApplication::instance()->removeEventFilter(this);
        deleteLater();
    }

    bool m_finished = false;
};

void installWhenApplicationIsComplete()
{
    if (!installUnlessHandled())
        new ApplicationWatcher(QCoreApplication::instance());
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(installWhenApplicationIsComplete)

bool QKApplicationErrorHandler::install()
{
    QKApplication *application = QKApplication::sharedApplication();
    if (!application)
        return false;
    application->setExceptionHandler(
        [](const QKException &exception) { exceptionHandler(exception); });
    return true;
}

bool QKApplicationErrorHandler::exceptionHandler(const QKException &exception)
{
    if (exception.userInfo().contains(QLatin1String(AccessibilityErrorKey)))
        return false;
    const QString reason = exception.reason();
    const QString stackTrace = exception.stackTrace();
    QKApplicationLog::sharedLog()->log(QKApplicationLog::Error, nullptr,
                                       reason + QLatin1Char('\n') + stackTrace);
    QCoreApplication *application = QCoreApplication::instance();
    if (!application || QThread::currentThread() == application->thread())
        offerReport(reason, stackTrace);
    else
        QMetaObject::invokeMethod(
            application, [reason, stackTrace] { offerReport(reason, stackTrace); },
            Qt::QueuedConnection);
    return true;
}
