#pragma once

#include "QKBaseGlobal.h"

#include <QByteArray>
#include <QList>
#include <QVariant>

class QAction;
class QObject;
class QWidget;

/**
 * Action dispatch along the responder chain: from the focus widget of the active window up
 * its parents to the window, then the main window's chain when another window is active,
 * then the application and its delegate.
 *
 * An action is named by its selector, colons included ("saveDocument:"). An object responds
 * to it when it has an invokable method (or slot) named by the selector's first keyword
 * taking nothing, one QObject* (the sender) or one value (the argument, e.g. "zoom:" ->
 * zoom(double)). A widget inside a window does not answer QWidget's and QObject's own
 * slots (showMinimized, close, raise...): window actions go on to the window. Menu
 * validation is an invokable bool validateMenuItem(QAction*).
 */
class QKBASE_EXPORT QKResponderChain
{
public:
    /** The chain as it stands now, first responder first. */
    static QList<QObject *> responders();

    /** True when @p object has a method for @p action. */
    static bool respondsToAction(const QObject *object, const QByteArray &action);

    /** @p target when it responds to @p action, else the first responder in the chain that
     *  does; null when nobody does. */
    static QObject *targetForAction(const QByteArray &action, QObject *target = nullptr);

    /** Sends @p action to @p target, or along the chain when @p target is null. The method
     *  receives @p sender, or @p argument when it takes a value. False when nobody
     *  handled it. */
    static bool sendAction(const QByteArray &action, QObject *target, QObject *sender,
                           const QVariant &argument = QVariant());

    /** Asks @p target's validateMenuItem(QAction*); @p answered says whether it has one.
     *  True when it has none. */
    static bool validateMenuItem(QObject *target, QAction *item, bool *answered = nullptr);
};
