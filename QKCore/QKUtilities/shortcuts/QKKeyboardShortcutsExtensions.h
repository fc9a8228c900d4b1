#pragma once

#include "QKUtilitiesGlobal.h"

#include <QtGlobal>

class QEvent;
class QKeyEvent;
class QObject;

/**
 * Puts the keyboard shortcuts in front of Qt's event dispatch: an event hook of
 * QKApplication that offers every key press and modifier change to
 * QKKeyboardShortcuts::performShortcut() before Qt's shortcut map and the focus widget.
 *
 * Qt delivers one key press as a ShortcutOverride (to the window, then the focus widget) and
 * then as a KeyPress (again to the window, then the focus widget), or, for a key press sent
 * straight to a widget, as the KeyPress first with the ShortcutOverride inside its delivery.
 * The first of these decides for the whole press: a consumed press is accepted as an
 * override, so Qt fires none of its own shortcuts, and its KeyPress never reaches a widget;
 * a press that is not consumed passes through untouched.
 */
class QKUTILITIES_EXPORT QKKeyboardShortcutsExtensions
{
public:
    /** Installs the hook into the running QKApplication, once; nothing without one. */
    static void install();

    /** The hook: true when @p event is consumed and must not be delivered. */
    static bool sendEvent(QObject *receiver, QEvent *event);

    /** A key press that is not of a modifier key (KeyPress or ShortcutOverride). */
    static bool isKeyDown(const QEvent *event);
    /** A press or release of a modifier key (Shift, Control, Meta, Alt, AltGr, Caps Lock,
     *  Super, Hyper): the modifier flags changed. */
    static bool isFlagsChanged(const QEvent *event);
    /** The modifier mask after @p event: for a modifier key, its own bit is set on a press
     *  and cleared on a release, as the flags stand once the key changed. */
    static quint32 modifierFlags(const QKeyEvent *event);
};
