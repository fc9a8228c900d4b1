#include "SoundLabWindow.h"

#include <QKApplication.h>
#include <QKKeyboardShortcuts.h>

int main(int argc, char **argv)
{
    QKApplication app(argc, argv);
    SoundLabWindow window;
    window.show();
    // After show(): the shortcuts mirror their keys into the visible main window's menus.
    QKKeyboardShortcuts::loadShortcuts();
    SoundLabWindow::trace(QStringLiteral("ready"));
    return app.exec();
}
