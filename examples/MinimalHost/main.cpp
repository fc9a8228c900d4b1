#include "MinimalHostWindow.h"

#include <QKApplication.h>
#include <QKHelpDesk.h>
#include <QKKeyboardShortcuts.h>

#include <QKeyEvent>
#include <QTimer>

#include <cstdio>

int main(int argc, char **argv)
{
    QKApplication app(argc, argv);
    MinimalHostWindow window;
    window.show();
    // After show(): the registry mirrors its keys into the visible window's menus.
    QKKeyboardShortcuts::loadShortcuts();
    // After a crash at the last launch, this offers to report it.
    QKHelpDesk::startup();

    // With --quit-when-ready (or MINIMALHOST_QUIT_WHEN_READY set) the host presses its own
    // Quit key once it runs, so an unattended run also shows that keys reach the registry.
    const bool quitWhenReady = app.arguments().contains(QStringLiteral("--quit-when-ready")) ||
                               qEnvironmentVariableIsSet("MINIMALHOST_QUIT_WHEN_READY");
    QTimer::singleShot(0, &window, [&window, quitWhenReady] {
        std::puts("ready");
        std::fflush(stdout);
        if (quitWhenReady) {
            QKeyEvent quit(QEvent::KeyPress, Qt::Key_Q, Qt::ControlModifier, QStringLiteral("q"));
            QCoreApplication::sendEvent(&window, &quit);
        }
    });
    return app.exec();
}
