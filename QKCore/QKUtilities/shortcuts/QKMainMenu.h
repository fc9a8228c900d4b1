#pragma once

#include "QKUtilitiesGlobal.h"

#include <QStringList>

class QAction;
class QMenuBar;

/**
 * The application's main menu: the menu bar of the host's main window. Shortcuts of menu
 * groups find their items here by title and flash the top-level title when they fire.
 */
class QKUTILITIES_EXPORT QKMainMenu
{
public:
    /** The menu bar the host registered, else that of the first visible QMainWindow, else
     *  that of the first QMainWindow that has one; null when there is none. */
    static QMenuBar *menuBar();
    /** Registers the main menu; null returns to finding it through the main window. */
    static void setMenuBar(QMenuBar *menuBar);

    /** The item reached from a top-level item through submenus by the exact (plain) titles in
     *  @p path, trying the top-level items in order; null when no top-level item resolves
     *  the whole path. An empty path gives the first top-level item. */
    static QAction *itemForPath(const QStringList &path);

    /** The top-level item titled @p title; null when none. */
    static QAction *topLevelItem(const QString &title);

    /** Highlights the title of the top-level @p item in the menu bar without opening its
     *  menu, and takes the highlight away again after a short moment. Does nothing for an
     *  item that is not in the menu bar or when a menu is open. */
    static void flashTitle(QAction *item);

    /** How long the title stays highlighted, in milliseconds. */
    static constexpr int FlashDuration = 120;
};
