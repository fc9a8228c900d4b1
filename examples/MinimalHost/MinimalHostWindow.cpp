#include "MinimalHostWindow.h"

#include <QKHelpDesk.h>
#include <QKMenus.h>

#include <QLabel>
#include <QMenuBar>

MinimalHostWindow::MinimalHostWindow(QWidget *parent) : QMainWindow(parent)
{
    setWindowTitle(tr("Minimal Host"));
    setCentralWidget(new QLabel(tr("Press Ctrl+H for the help desk.")));
    resize(480, 320);

    // Every item needs an entry of the same action in :/shortcuts.xml, under a group named
    // like this menu; its key shows here but reaches the action through the registry.
    QMenu *menu = menuBar()->addMenu(tr("Minimal Host"));
    QKMenus::addItemWithTitle(menu, tr("Help Desk"), "openHelpDesk:");
    menu->addSeparator();
    QKMenus::addItemWithTitle(menu, tr("Quit"), "quit");
}

void MinimalHostWindow::openHelpDesk(QObject *sender)
{
    QKHelpDesk::openWindow(sender);
}
