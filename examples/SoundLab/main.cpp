#include "SoundLabWindow.h"

#include <QKApplication.h>

int main(int argc, char **argv)
{
    QKApplication app(argc, argv);
    SoundLabWindow window;
    window.show();
    return app.exec();
}
