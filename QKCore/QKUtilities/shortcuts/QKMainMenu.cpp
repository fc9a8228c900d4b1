#include "QKMainMenu.h"

#include <QKMenus.h>

#include <QAction>
#include <QApplication>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QMouseEvent>
#include <QPointer>
#include <QTimer>

#include <functional>

namespace {

QPointer<QMenuBar> s_registeredMenuBar;

QMenuBar *menuBarOf(QWidget *window)
{
    auto *mainWindow = qobject_cast<QMainWindow *>(window);
    // menuWidget(), unlike menuBar(), does not create a menu bar as a side effect.
    return mainWindow ? qobject_cast<QMenuBar *>(mainWindow->menuWidget()) : nullptr;
}

QAction *resolve(QAction *topLevel, const QStringList &path)
{
    QAction *item = topLevel;
    for (const QString &title : path) {
        item = QKMenus::itemWithTitle(item->menu(), title);
        if (!item)
            return nullptr;
    }
    return item;
}

// The first non-null answer of @p find for the top-level items of the main menu bar.
QAction *findInMenuBar(const std::function<QAction *(QAction *)> &find)
{
    const QMenuBar *bar = QKMainMenu::menuBar();
    const QList<QAction *> topLevel = bar ? bar->actions() : QList<QAction *>();
    for (QAction *item : topLevel) {
        if (QAction *found = find(item))
            return found;
    }
    return nullptr;
}

} // namespace

QMenuBar *QKMainMenu::menuBar()
{
    if (s_registeredMenuBar)
        return s_registeredMenuBar;
    QMenuBar *fallback = nullptr;
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget *window : windows) {
        QMenuBar *bar = menuBarOf(window);
        if (!bar)
            continue;
        if (window->isVisible())
            return bar;
        if (!fallback)
            fallback = bar;
    }
    return fallback;
}

void QKMainMenu::setMenuBar(QMenuBar *menuBar)
{
    s_registeredMenuBar = menuBar;
}

QAction *QKMainMenu::itemForPath(const QStringList &path)
{
    return findInMenuBar([&path](QAction *item) { return resolve(item, path); });
}

QAction *QKMainMenu::topLevelItem(const QString &title)
{
    return findInMenuBar([&title](QAction *item) {
        return QKMenus::plainTitle(item->text()) == title ? item : nullptr;
    });
}

void QKMainMenu::flashTitle(QAction *item)
{
    QMenuBar *bar = menuBar();
    if (!item || !bar || !bar->actions().contains(item) || bar->isNativeMenuBar() ||
        QApplication::activePopupWidget())
        return;
    const QRect title = bar->actionGeometry(item);
    if (title.isEmpty())
        return;
    // A pointer resting on a title highlights it without opening its menu; leaving takes
    // the highlight away. Both go straight to the menu bar, so the pointer does not move.
    const QPointF centre = title.center();
    QMouseEvent hover(QEvent::MouseMove, centre, bar->mapToGlobal(centre), Qt::NoButton,
                      Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(bar, &hover);
    bar->repaint(title);
    QPointer<QMenuBar> guard(bar);
    QTimer::singleShot(FlashDuration, bar, [guard] {
        if (!guard || QApplication::activePopupWidget())
            return;
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(guard, &leave);
    });
}
