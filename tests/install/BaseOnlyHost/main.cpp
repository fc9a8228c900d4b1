#include <QKApplication.h>
#include <QKMenus.h>

#include <QMainWindow>
#include <QMenuBar>
#include <QTimer>

#include <cstdio>

int main(int argc, char **argv)
{
    QKApplication app(argc, argv);
    QMainWindow window;
    QKMenus::addItemWithTitle(window.menuBar()->addMenu(QStringLiteral("File")),
                              QStringLiteral("Quit"), "quit");
    window.show();
    QTimer::singleShot(0, &app, [] {
        std::printf("ready %s\n", qPrintable(QKApplication::currentName()));
        QCoreApplication::quit();
    });
    return app.exec();
}
