#include "SoundLabApplication.h"
#include "SoundLabInfraredRemote.h"
#include "SoundLabPlugins.h"
#include "SoundLabSettings.h"
#include "SoundLabWiiRemote.h"
#include "SoundLabWindow.h"

#include <QKHelpDesk.h>
#include <QKKeyboardShortcuts.h>
#include <QKScrollWheelManager.h>
#include <QKSplashScreen.h>

#include <QThread>

#include <memory>

int main(int argc, char **argv)
{
    SoundLabApplication app(argc, argv);
    // For trying the Devices menu without the hardware.
    if (app.arguments().contains(QStringLiteral("--fake-infrared")))
        SoundLabInfraredRemote::useFakeReceiver(&app);
    if (app.arguments().contains(QStringLiteral("--fake-wii-remote")))
        SoundLabWiiRemote::useFakeRemote(&app);
    // Before the window, so that it outlives the window's menus.
    SoundLabPlugins plugins;
    std::unique_ptr<SoundLabWindow> window;
    app.finishLaunching([&window, &plugins] {
        // Sound Lab starts in no time; the pauses let the splash screen be read.
        QKSplashScreen::setAction(QObject::tr("Reading preferences"));
        SoundLabSettings::registerDefaults();
        QThread::msleep(400);
        QKSplashScreen::setAction(QObject::tr("Tuning the signal generator"));
        QThread::msleep(400);
        plugins.validate();
        QKSplashScreen::setAction(QObject::tr("Opening the session"));
        window = std::make_unique<SoundLabWindow>();
        window->addPluginMenus(&plugins);
        QThread::msleep(300);
    });
    window->show();
    // After show(): the shortcuts mirror their keys into the visible main window's menus.
    QKKeyboardShortcuts::loadShortcuts();
    QKScrollWheelManager::loadActions();
    // After a crash or a kill, this offers to report it.
    QKHelpDesk::startup();
    SoundLabWindow::trace(QStringLiteral("ready"));
    return app.exec();
}
