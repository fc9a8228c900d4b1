#include "QKEvents.h"

#include <QKeyEvent>

char16_t QKEvents::characterForKey(int qtKey, const QString &text)
{
    switch (qtKey) {
    case Qt::Key_Up:
        return UpArrowFunctionKey;
    case Qt::Key_Down:
        return DownArrowFunctionKey;
    case Qt::Key_Left:
        return LeftArrowFunctionKey;
    case Qt::Key_Right:
        return RightArrowFunctionKey;
    case Qt::Key_Delete:
        return DeleteFunctionKey;
    case Qt::Key_Home:
        return HomeFunctionKey;
    case Qt::Key_End:
        return EndFunctionKey;
    case Qt::Key_PageUp:
        return PageUpFunctionKey;
    case Qt::Key_PageDown:
        return PageDownFunctionKey;
    case Qt::Key_Clear:
        return ClearLineFunctionKey;
    case Qt::Key_Enter:
        return 0x03;
    case Qt::Key_Return:
        return 0x0D;
    case Qt::Key_Tab:
        return 0x09;
    case Qt::Key_Backtab:
        return 0x19;
    case Qt::Key_Escape:
        return 0x1B;
    case Qt::Key_Backspace:
        return 0x7F;
    case Qt::Key_Space:
        return 0x20;
    default:
        break;
    }
    if (qtKey >= Qt::Key_F1 && qtKey <= Qt::Key_F35)
        return char16_t(F1FunctionKey + (qtKey - Qt::Key_F1));
    // Qt names printable keys by their (upper-case) Latin-1 code, whatever the modifiers,
    // which is the character ignoring modifiers that shortcuts compare.
    if (qtKey >= 'A' && qtKey <= 'Z')
        return char16_t(qtKey + 0x20);
    // Qt names accented letters by their capital; the key itself types the small letter
    // unless Shift is down (stored keys lower-case A to Z only, so "É" stays a capital).
    if (qtKey >= 0xC0 && qtKey <= 0xDE && qtKey != 0xD7)
        return char16_t(!text.isEmpty() && text.at(0).isUpper() ? qtKey : qtKey + 0x20);
    if (qtKey > 0x20 && qtKey <= 0xFF)
        return char16_t(qtKey);
    if (qtKey >= Qt::Key_Shift && qtKey <= Qt::Key_ScrollLock)
        return 0;
    if (!text.isEmpty() && text.at(0).unicode() >= 0x20)
        return text.at(0).unicode();
    return qtKey > 0 && qtKey < 0xFFFF ? char16_t(qtKey) : 0;
}

char16_t QKEvents::characterForKeyEvent(const QKeyEvent *event)
{
    return event ? characterForKey(event->key(), event->text()) : 0;
}

quint32 QKEvents::modifierFlags(Qt::KeyboardModifiers modifiers)
{
    quint32 flags = 0;
    if (modifiers & Qt::ShiftModifier)
        flags |= ShiftKeyMask;
    if (modifiers & Qt::MetaModifier)
        flags |= ControlKeyMask;
    if (modifiers & Qt::AltModifier)
        flags |= AlternateKeyMask;
    if (modifiers & Qt::ControlModifier)
        flags |= CommandKeyMask;
    if (modifiers & Qt::KeypadModifier)
        flags |= NumericPadKeyMask;
    return flags;
}

quint32 QKEvents::modifierFlagsForKeyEvent(const QKeyEvent *event)
{
    return event ? modifierFlags(event->modifiers()) : 0;
}

bool QKEvents::isArrowKeyDown(const QKeyEvent *event)
{
    if (!event || event->type() != QEvent::KeyPress)
        return false;
    const char16_t character = characterForKeyEvent(event);
    return character >= UpArrowFunctionKey && character <= RightArrowFunctionKey;
}

bool QKEvents::isVerticalArrowKeyDown(const QKeyEvent *event)
{
    if (!event || event->type() != QEvent::KeyPress)
        return false;
    const char16_t character = characterForKeyEvent(event);
    return character == UpArrowFunctionKey || character == DownArrowFunctionKey;
}
