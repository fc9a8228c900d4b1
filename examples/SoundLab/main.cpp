#include "SoundLabWindow.h"

#include <QKApplication.h>
#include <QKHelpDesk.h>

int main(int argc, char **argv)
{
    QKApplication app(argc, argv);
    SoundLabWindow window;
    window.show();
    // After a crash or a kill, this offers to report it.
    QKHelpDesk::startup();
    return app.exec();
}
