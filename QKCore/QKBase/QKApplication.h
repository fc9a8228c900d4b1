#pragma once

#include "QKBaseGlobal.h"

#include <QApplication>

#include <functional>
#include <memory>

class QKApplication;
class QKException;

/**
 * The host's application delegate. Its invokable methods take part in action dispatch
 * (after the application itself); isBetaVersion tells the help desk which update feed to use.
 */
class QKBASE_EXPORT QKApplicationDelegate : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;
    /** True for a pre-release build; by default when the short version string holds a
     *  lower-case letter ("3.1b2", "2.5rc1"). */
    virtual bool isBetaVersion() const;
};

/**
 * The application object of every host. It carries the host's identity from its bundle,
 * owns the application's temporary folder and is the single entry point of every event:
 * notify() offers each event to the installed event hooks first and turns exceptions that
 * escape an event handler into a call of the exception handler instead of a crash.
 */
class QKBASE_EXPORT QKApplication : public QApplication
{
    Q_OBJECT
public:
    /** Sees an event before its receiver; true consumes it. */
    using EventHook = std::function<bool(QObject *receiver, QEvent *event)>;
    /** Called with every exception that escapes an event handler. */
    using ExceptionHandler = std::function<void(const QKException &exception)>;
    /** Runs the host's launch work with something around it (the splash screen). */
    using LaunchWrapper = std::function<void(const std::function<void()> &launchWork)>;

    QKApplication(int &argc, char **argv);
    ~QKApplication() override;

    /** The running QKApplication; null when the application object is not one. */
    static QKApplication *sharedApplication();

    /** Display name: "CFBundleName" of the host's info dictionary, else Qt's application name. */
    QString name() const;
    /** The same name, for code that runs whatever the application object is (or before it). */
    static QString currentName();
    /** Short application code: "QKApplicationCode", else "CFBundleSignature", else the name. */
    QString code() const;
    /** The same code, for code that runs whatever the application object is. */
    static QString currentCode();
    /**
     * The application's own temporary folder, "$XDG_RUNTIME_DIR/<code>", else
     * "<QDir::tempPath()>/<code>-<user id>", created with mode 0700 when missing. Empty, with
     * a warning in the application log, when the folder there is a link, belongs to another
     * user or may be written by others: nothing may be put in or removed from it then.
     */
    QString tempDirectory() const;
    /** The same folder, for code that runs whatever the application object is. */
    static QString currentTempDirectory();

    QKApplicationDelegate *delegate() const;
    /** Sets the delegate; not owned. Null restores the built-in one. */
    void setDelegate(QKApplicationDelegate *delegate);

    /** Installs a hook that sees every event first, after those installed before it. */
    void installEventHook(EventHook hook);
    void setExceptionHandler(ExceptionHandler handler);
    /** The handler set with setExceptionHandler(); empty when none is. */
    ExceptionHandler exceptionHandler() const;

    bool notify(QObject *receiver, QEvent *event) override;

    /** True when the host shows a splash screen while it launches; false here, a host's
     *  subclass answers true to get one. */
    virtual bool usesSplashScreen() const;
    /** Runs @p launchWork, the host's start-up before its event loop. When usesSplashScreen()
     *  is true and a launch wrapper is installed, the work runs inside that wrapper. */
    void finishLaunching(const std::function<void()> &launchWork);
    /** Installs the wrapper finishLaunching() uses for hosts with a splash screen. The
     *  utilities library installs its splash screen here when it is loaded, so this
     *  library does not depend on it. An empty wrapper removes it. */
    static void setLaunchWrapper(LaunchWrapper wrapper);

Q_SIGNALS:
    /** The application is about to quit normally. */
    void willTerminate();

private:
    void handleException(const QKException &exception);

    struct Private;
    std::unique_ptr<Private> d;
};
