#pragma once

#include "QKBaseGlobal.h"

#include <Qt>

class QString;

class QKeyEvent;

/**
 * Key events in the terms shortcuts are stored in: a 16-bit key character (letters
 * lower-cased, special keys as the 0xF700 function-key codes) and a modifier mask
 * (Command 0x100000 for Qt's Control, Control 0x40000 for Meta, Option 0x80000 for Alt,
 * Shift 0x20000, keypad 0x200000), the same mapping Qt itself uses on macOS.
 */
class QKBASE_EXPORT QKEvents
{
public:
    enum ModifierFlag : quint32 {
        ShiftKeyMask = 0x20000,
        ControlKeyMask = 0x40000,
        AlternateKeyMask = 0x80000,
        CommandKeyMask = 0x100000,
        NumericPadKeyMask = 0x200000,
    };
    enum FunctionKey : char16_t {
        UpArrowFunctionKey = 0xF700,
        DownArrowFunctionKey = 0xF701,
        LeftArrowFunctionKey = 0xF702,
        RightArrowFunctionKey = 0xF703,
        F1FunctionKey = 0xF704,
        F35FunctionKey = 0xF726,
        InsertFunctionKey = 0xF727,
        DeleteFunctionKey = 0xF728,
        HomeFunctionKey = 0xF729,
        EndFunctionKey = 0xF72B,
        PageUpFunctionKey = 0xF72C,
        PageDownFunctionKey = 0xF72D,
        PrintScreenFunctionKey = 0xF72E,
        ScrollLockFunctionKey = 0xF72F,
        PauseFunctionKey = 0xF730,
        SysReqFunctionKey = 0xF731,
        StopFunctionKey = 0xF734,
        MenuFunctionKey = 0xF735,
        PrintFunctionKey = 0xF738,
        ClearLineFunctionKey = 0xF739,
        SelectFunctionKey = 0xF741,
        ExecuteFunctionKey = 0xF742,
        UndoFunctionKey = 0xF743,
        RedoFunctionKey = 0xF744,
        FindFunctionKey = 0xF745,
        HelpFunctionKey = 0xF746,
        ModeSwitchFunctionKey = 0xF747,
    };

    /** The key's character ignoring modifiers (Shift still chooses the symbol); 0 when the
     *  key has none: modifier, media and dead keys, and every other key of Qt's own range
     *  (0x01000000 and up) without a function-key code, whatever text it carries. */
    static char16_t characterForKey(int qtKey, const QString &text);
    static char16_t characterForKeyEvent(const QKeyEvent *event);
    /** The Qt key that types @p character, the reverse of characterForKey(); 0 for none. */
    static int keyForCharacter(char16_t character);
    /** The modifier mask of @p modifiers. */
    static quint32 modifierFlags(Qt::KeyboardModifiers modifiers);
    static quint32 modifierFlagsForKeyEvent(const QKeyEvent *event);

    /** A key press of one of the four arrow keys. */
    static bool isArrowKeyDown(const QKeyEvent *event);
    /** A key press of the up or down arrow. */
    static bool isVerticalArrowKeyDown(const QKeyEvent *event);
    /** The Option (Alt) key is held in @p flags. */
    static bool isOptionKeyDown(quint32 flags) { return flags & AlternateKeyMask; }
};
