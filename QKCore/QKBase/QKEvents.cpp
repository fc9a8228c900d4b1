#include "QKEvents.h"

#include <QKeyEvent>

namespace {

// The keys whose character is not the text they type, both ways.
struct SpecialKey
{
    int qtKey;
    char16_t character;
};
constexpr SpecialKey SpecialKeys[] = {
    {Qt::Key_Up, QKEvents::UpArrowFunctionKey},
    {Qt::Key_Down, QKEvents::DownArrowFunctionKey},
    {Qt::Key_Left, QKEvents::LeftArrowFunctionKey},
    {Qt::Key_Right, QKEvents::RightArrowFunctionKey},
    {Qt::Key_Insert, QKEvents::InsertFunctionKey},
    {Qt::Key_Delete, QKEvents::DeleteFunctionKey},
    {Qt::Key_Home, QKEvents::HomeFunctionKey},
    {Qt::Key_End, QKEvents::EndFunctionKey},
    {Qt::Key_PageUp, QKEvents::PageUpFunctionKey},
    {Qt::Key_PageDown, QKEvents::PageDownFunctionKey},
    {Qt::Key_Print, QKEvents::PrintScreenFunctionKey},
    {Qt::Key_ScrollLock, QKEvents::ScrollLockFunctionKey},
    {Qt::Key_Pause, QKEvents::PauseFunctionKey},
    {Qt::Key_SysReq, QKEvents::SysReqFunctionKey},
    {Qt::Key_Stop, QKEvents::StopFunctionKey},
    {Qt::Key_Menu, QKEvents::MenuFunctionKey},
    {Qt::Key_Printer, QKEvents::PrintFunctionKey},
    {Qt::Key_Clear, QKEvents::ClearLineFunctionKey},
    {Qt::Key_Select, QKEvents::SelectFunctionKey},
    {Qt::Key_Execute, QKEvents::ExecuteFunctionKey},
    {Qt::Key_Undo, QKEvents::UndoFunctionKey},
    {Qt::Key_Redo, QKEvents::RedoFunctionKey},
    {Qt::Key_Find, QKEvents::FindFunctionKey},
    {Qt::Key_Help, QKEvents::HelpFunctionKey},
    {Qt::Key_Mode_switch, QKEvents::ModeSwitchFunctionKey},
    {Qt::Key_Enter, 0x03},
    {Qt::Key_Return, 0x0D},
    {Qt::Key_Tab, 0x09},
    {Qt::Key_Backtab, 0x19},
    {Qt::Key_Escape, 0x1B},
    {Qt::Key_Backspace, 0x7F},
    {Qt::Key_Space, 0x20},
};

bool isFunctionKeyRange(char16_t character)
{
    return character >= 0xF700 && character <= 0xF8FF;
}

} // namespace

char16_t QKEvents::characterForKey(int qtKey, const QString &text)
{
    for (const SpecialKey &key : SpecialKeys) {
        if (key.qtKey == qtKey)
            return key.character;
    }
    if (qtKey >= Qt::Key_F1 && qtKey <= Qt::Key_F35)
        return char16_t(F1FunctionKey + (qtKey - Qt::Key_F1));
    // Whatever text the rest of Qt's own keys carry (a dead key's accent, say), a character
    // of 0 keeps them from posing as a printable key.
    if (qtKey >= Qt::Key_Escape)
        return 0;
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
    char16_t character = 0;
    if (!text.isEmpty() && text.at(0).unicode() >= 0x20)
        character = text.at(0).unicode();
    else if (qtKey > 0 && qtKey < 0xFFFF)
        character = char16_t(qtKey);
    // Text never stands for a function key.
    return isFunctionKeyRange(character) ? 0 : character;
}

int QKEvents::keyForCharacter(char16_t character)
{
    for (const SpecialKey &key : SpecialKeys) {
        if (key.character == character)
            return key.qtKey;
    }
    if (character >= F1FunctionKey && character <= F35FunctionKey)
        return Qt::Key_F1 + (character - F1FunctionKey);
    if (character < 0x20 || isFunctionKeyRange(character))
        return 0;
    // Qt names letters by their capital; in Latin-1 only where the capital is Latin-1 too
    // (not "ÿ" or "µ").
    if (character >= u'a' && character <= u'z')
        return character - 0x20;
    if (character >= 0xE0 && character <= 0xFE && character != 0xF7)
        return character - 0x20;
    if (character <= 0xFF)
        return character;
    return QChar(character).toUpper().unicode();
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
