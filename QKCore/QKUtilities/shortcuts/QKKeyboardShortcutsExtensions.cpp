#include "QKKeyboardShortcutsExtensions.h"

#include "QKKeyboardShortcuts.h"

#include <QKApplication.h>
#include <QKEvents.h>

#include <QKeyEvent>

namespace {

bool isModifierKey(int key)
{
    switch (key) {
    case Qt::Key_Shift:
    case Qt::Key_Control:
    case Qt::Key_Meta:
    case Qt::Key_Alt:
    case Qt::Key_AltGr:
    case Qt::Key_CapsLock:
    case Qt::Key_Super_L:
    case Qt::Key_Super_R:
    case Qt::Key_Hyper_L:
    case Qt::Key_Hyper_R:
        return true;
    default:
        return false;
    }
}

quint32 flagOfModifierKey(int key)
{
    switch (key) {
    case Qt::Key_Shift:
        return QKEvents::ShiftKeyMask;
    case Qt::Key_Control:
        return QKEvents::CommandKeyMask;
    case Qt::Key_Meta:
        return QKEvents::ControlKeyMask;
    case Qt::Key_Alt:
        return QKEvents::AlternateKeyMask;
    default:
        return 0;
    }
}

// The press being delivered and what was decided for it, so that the later deliveries of
// the same press (see the class comment) follow the first one.
struct PendingPress
{
    bool active = false;
    int key = 0;
    Qt::KeyboardModifiers modifiers;
    bool autoRepeat = false;
    quint64 timestamp = 0;
    quint32 scanCode = 0;
    bool acceptsOverride = false;
    bool acceptsPress = false;
    bool consumed = false;

    bool follows(const QKeyEvent *event) const
    {
        if (!active || event->key() != key || event->modifiers() != modifiers ||
            event->isAutoRepeat() != autoRepeat || event->timestamp() != timestamp ||
            event->nativeScanCode() != scanCode)
            return false;
        return event->type() == QEvent::ShortcutOverride ? acceptsOverride : acceptsPress;
    }
};

PendingPress s_pending;
bool s_installed = false;

bool decide(QKeyEvent *event)
{
    if (event->type() != QEvent::ShortcutOverride)
        return QKKeyboardShortcuts::performShortcut(event);
    // The shortcuts see an override as the key press it announces.
    QKeyEvent press(QEvent::KeyPress, event->key(), event->modifiers(), event->nativeScanCode(),
                    event->nativeVirtualKey(), event->nativeModifiers(), event->text(),
                    event->isAutoRepeat(), event->count(), event->device());
    press.setTimestamp(event->timestamp());
    return QKKeyboardShortcuts::performShortcut(&press);
}

} // namespace

void QKKeyboardShortcutsExtensions::install()
{
    QKApplication *app = QKApplication::sharedApplication();
    if (s_installed || !app)
        return;
    s_installed = true;
    app->installEventHook(&QKKeyboardShortcutsExtensions::sendEvent);
}

bool QKKeyboardShortcutsExtensions::sendEvent(QObject *receiver, QEvent *event)
{
    const QEvent::Type type = event->type();
    if (type != QEvent::ShortcutOverride && type != QEvent::KeyPress && type != QEvent::KeyRelease)
        return false;
    auto *keyEvent = static_cast<QKeyEvent *>(event);
    if (type == QEvent::KeyRelease) {
        // A release ends every press; a modifier's release changes the flags.
        s_pending.active = false;
        if (!isModifierKey(keyEvent->key()))
            return false;
        return QKKeyboardShortcuts::performShortcut(event);
    }
    if (s_pending.follows(keyEvent)) {
        if (type == QEvent::KeyPress)
            s_pending.acceptsOverride = false;
        if (s_pending.consumed)
            event->accept();
        return s_pending.consumed;
    }

    PendingPress press;
    press.active = true;
    press.key = keyEvent->key();
    press.modifiers = keyEvent->modifiers();
    press.autoRepeat = keyEvent->isAutoRepeat();
    press.timestamp = keyEvent->timestamp();
    press.scanCode = keyEvent->nativeScanCode();
    if (type == QEvent::ShortcutOverride) {
        press.acceptsOverride = press.acceptsPress = true;
    } else if (!event->spontaneous() && receiver && receiver->isWidgetType()) {
        // Qt sends the override from within this press's delivery.
        press.acceptsOverride = true;
    } else {
        press.acceptsPress = true;
    }
    // Until decided, repeated deliveries of this press (an action may run a nested event
    // loop) are swallowed; afterwards this press is the pending one again.
    press.consumed = true;
    s_pending = press;
    press.consumed = decide(keyEvent);
    s_pending = press;
    if (press.consumed)
        event->accept();
    return press.consumed;
}

bool QKKeyboardShortcutsExtensions::isKeyDown(const QEvent *event)
{
    const QEvent::Type type = event ? event->type() : QEvent::None;
    return (type == QEvent::KeyPress || type == QEvent::ShortcutOverride) &&
           !isModifierKey(static_cast<const QKeyEvent *>(event)->key());
}

bool QKKeyboardShortcutsExtensions::isFlagsChanged(const QEvent *event)
{
    const QEvent::Type type = event ? event->type() : QEvent::None;
    return (type == QEvent::KeyPress || type == QEvent::ShortcutOverride ||
            type == QEvent::KeyRelease) &&
           isModifierKey(static_cast<const QKeyEvent *>(event)->key());
}

quint32 QKKeyboardShortcutsExtensions::modifierFlags(const QKeyEvent *event)
{
    if (!event)
        return 0;
    quint32 flags = QKEvents::modifierFlagsForKeyEvent(event);
    if (const quint32 own = flagOfModifierKey(event->key())) {
        if (event->type() == QEvent::KeyRelease)
            flags &= ~own;
        else
            flags |= own;
    }
    return flags;
}
