#pragma once

#include "QKUtilitiesGlobal.h"

#include <QKEvents.h>

#include <QVariantMap>

class QAction;
class QKeyEvent;
class QKeySequence;
class QKShortcut;

/**
 * The key a shortcut is bound to: one 16-bit key character (0 when the key is clear,
 * letters lower-cased, special keys as the 0xF700 function-key codes) and a modifier mask of
 * QKEvents' bits (the keypad bit only the display string reads). See QKEvents for how Qt key
 * events map to these.
 *
 * Copying a key copies its two fields only.
 */
class QKUTILITIES_EXPORT QKShortcutKey
{
public:
    /** QKEvents' modifier masks under the names shortcuts use. */
    enum Modifier : quint32 {
        Shift = QKEvents::ShiftKeyMask,
        Control = QKEvents::ControlKeyMask,
        Option = QKEvents::AlternateKeyMask,
        Command = QKEvents::CommandKeyMask,
        NumericPad = QKEvents::NumericPadKeyMask,
    };

    QKShortcutKey() = default;
    QKShortcutKey(char16_t character, quint32 modifiers);
    QKShortcutKey(const QKShortcutKey &other);
    QKShortcutKey &operator=(const QKShortcutKey &other);

    /** A new key taken from @p event (see setFromEvent). */
    static QKShortcutKey shortcutKeyForEvent(const QKeyEvent *event);

    /** Takes the character ignoring modifiers, lower-cased (A to Z only), and the Shift,
     *  Control, Option and Command bits of @p event; Caps Lock and keypad are dropped. A null
     *  event clears the key. */
    void setFromEvent(const QKeyEvent *event);

    /** A new key with the same character and modifiers. */
    QKShortcutKey copy() const { return QKShortcutKey(*this); }

    /** True when both the character and the modifiers are equal. */
    bool isEqualToShortcutKey(const QKShortcutKey &other) const;
    bool operator==(const QKShortcutKey &other) const { return isEqualToShortcutKey(other); }

    /** Sets both fields to 0. */
    void clear();
    /** True when there is no character; the modifiers are not looked at. */
    bool isClear() const { return m_character == 0; }

    char16_t character() const { return m_character; }
    void setCharacter(char16_t character);
    quint32 modifiers() const { return m_modifiers; }
    void setModifiers(quint32 modifiers);

    /** {"character": number, "modifiers": number}. */
    QVariantMap state() const;
    /** Sets each field whose key is present in @p state; others keep their value. */
    void setState(const QVariantMap &state);

    /** True for the combinations the desktop or the toolkit keep for themselves. */
    bool isReserved() const;

    /** The key as the desktop's menus show it, Qt's native key-sequence text ("Ctrl+Shift+B",
     *  "Num+5", "Home"): the same text as the menu item of keySequence(). Empty when the key is
     *  clear. */
    QString displayString() const;

    /** The Qt key combination that shows this key in a menu; empty when the key is clear or
     *  has no Qt key. */
    QKeySequence keySequence() const;

private:
    friend class QKShortcut;
    void changed();

    char16_t m_character = 0;
    quint32 m_modifiers = 0;
    // Set for a key owned by a shortcut, whose changes invalidate key indexes.
    QKShortcut *m_owner = nullptr;
};

/** The dynamic properties of a menu item that hold its key equivalent: a one-character
 *  string (possibly U+0000) or empty, and the modifier mask in the terms above. */
QKUTILITIES_EXPORT extern const char *const QKKeyEquivalentProperty;
QKUTILITIES_EXPORT extern const char *const QKKeyEquivalentModifierMaskProperty;

/** Makes @p key the key equivalent of @p item: the one-character string of its character
 *  and its modifiers unchanged. The item shows the key but never fires it itself (shortcut
 *  context Qt::WidgetShortcut): keys reach actions through the shortcut registry only. */
QKUTILITIES_EXPORT void setShortcutKey(QAction *item, const QKShortcutKey &key);

/** Empties the key equivalent of @p item and leaves its modifier mask as it was. */
QKUTILITIES_EXPORT void clearKeyEquivalent(QAction *item);
