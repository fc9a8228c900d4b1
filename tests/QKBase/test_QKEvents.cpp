#include "QKEvents.h"
#include "QKTestSupport.h"

#include <QKeyEvent>
#include <QMetaEnum>

#include <map>

TEST(QKEvents, charactersIgnoreModifiersAndKeysWithoutOneGetNone)
{
    const auto character = [](int key, Qt::KeyboardModifiers modifiers, const QString &text) {
        const QKeyEvent event(QEvent::KeyPress, key, modifiers, text);
        return QKEvents::characterForKeyEvent(&event);
    };
    EXPECT_EQ(character(Qt::Key_A, Qt::ControlModifier, u"\x01"_s), u'a');
    EXPECT_EQ(character(Qt::Key_Dollar, Qt::ShiftModifier, u"$"_s), u'$');
    EXPECT_EQ(character(0x416, Qt::NoModifier, u"\u0436"_s), 0x436);
    // Text does not give a key a character it does not have, nor pose as a function key.
    EXPECT_EQ(character(Qt::Key_Shift, Qt::ShiftModifier, {}), 0);
    EXPECT_EQ(character(Qt::Key_Dead_Acute, Qt::NoModifier, u"\u00B4"_s), 0);
    EXPECT_EQ(character(Qt::Key_VolumeUp, Qt::NoModifier, u"v"_s), 0);
    EXPECT_EQ(character(Qt::Key_unknown, Qt::NoModifier, u"\uF704"_s), 0);
    EXPECT_EQ(character(0, Qt::NoModifier, u"\uF704"_s), 0);
}

// Every key Qt names: the printable ones and those with a function-key code map there and
// back; every other one (modifiers, media keys, dead keys, ...) has no character.
TEST(QKEvents, everyQtKeyMapsBothWaysOrHasNoCharacter)
{
    std::map<int, char16_t> codes = {
        {Qt::Key_Up, 0xF700},          {Qt::Key_Down, 0xF701},    {Qt::Key_Left, 0xF702},
        {Qt::Key_Right, 0xF703},       {Qt::Key_Insert, 0xF727},  {Qt::Key_Delete, 0xF728},
        {Qt::Key_Home, 0xF729},        {Qt::Key_End, 0xF72B},     {Qt::Key_PageUp, 0xF72C},
        {Qt::Key_PageDown, 0xF72D},    {Qt::Key_Print, 0xF72E},   {Qt::Key_ScrollLock, 0xF72F},
        {Qt::Key_Pause, 0xF730},       {Qt::Key_SysReq, 0xF731},  {Qt::Key_Stop, 0xF734},
        {Qt::Key_Menu, 0xF735},        {Qt::Key_Printer, 0xF738}, {Qt::Key_Clear, 0xF739},
        {Qt::Key_Select, 0xF741},      {Qt::Key_Execute, 0xF742}, {Qt::Key_Undo, 0xF743},
        {Qt::Key_Redo, 0xF744},        {Qt::Key_Find, 0xF745},    {Qt::Key_Help, 0xF746},
        {Qt::Key_Mode_switch, 0xF747}, {Qt::Key_Enter, 0x03},     {Qt::Key_Return, 0x0D},
        {Qt::Key_Tab, 0x09},           {Qt::Key_Backtab, 0x19},   {Qt::Key_Escape, 0x1B},
        {Qt::Key_Backspace, 0x7F},     {Qt::Key_Space, u' '},
    };
    for (int number = 1; number <= 35; ++number)
        codes[Qt::Key_F1 + number - 1] = char16_t(0xF703 + number);

    const QMetaEnum keys = QMetaEnum::fromType<Qt::Key>();
    for (int index = 0; index < keys.keyCount(); ++index) {
        const int key = keys.value(index);
        const char16_t character = QKEvents::characterForKey(key, QString());
        if (codes.contains(key)) {
            EXPECT_EQ(character, codes.at(key)) << keys.key(index);
        } else {
            // Qt's Latin-1 keys are printable; the rest of its own range has no character.
            EXPECT_EQ(character != 0, key < Qt::Key_Escape) << keys.key(index);
        }
        if (character != 0) {
            EXPECT_EQ(QKEvents::keyForCharacter(character), key) << keys.key(index);
        }
    }
    // Codes without a Qt key, and characters no key types, have no key.
    for (char16_t character : {0xF72A, 0xF732, 0xF736, 0xF748, 0x01, 0x00})
        EXPECT_EQ(QKEvents::keyForCharacter(character), 0) << std::hex << int(character);
}

TEST(QKEvents, keypadAndOptionFlagsAndArrowsNeedKeyPresses)
{
    EXPECT_EQ(QKEvents::modifierFlags(Qt::KeypadModifier | Qt::ShiftModifier), 0x220000u);
    EXPECT_TRUE(QKEvents::isOptionKeyDown(QKEvents::modifierFlags(Qt::AltModifier)));
    EXPECT_FALSE(QKEvents::isOptionKeyDown(QKEvents::modifierFlags(Qt::ControlModifier)));

    const QKeyEvent left(QEvent::KeyPress, Qt::Key_Left, Qt::NoModifier);
    const QKeyEvent down(QEvent::KeyPress, Qt::Key_Down, Qt::ShiftModifier);
    const QKeyEvent pageUp(QEvent::KeyPress, Qt::Key_PageUp, Qt::NoModifier);
    const QKeyEvent release(QEvent::KeyRelease, Qt::Key_Up, Qt::NoModifier);
    EXPECT_TRUE(QKEvents::isArrowKeyDown(&left) && !QKEvents::isVerticalArrowKeyDown(&left));
    EXPECT_TRUE(QKEvents::isVerticalArrowKeyDown(&down));
    EXPECT_FALSE(QKEvents::isArrowKeyDown(&pageUp) || QKEvents::isArrowKeyDown(&release));
}
