#include "QKEvents.h"
#include "QKTestSupport.h"

#include <QKeyEvent>

TEST(QKEvents, charactersIgnoreModifiersAndLowerCaseLetters)
{
    const struct
    {
        int key;
        Qt::KeyboardModifiers modifiers;
        QString text;
        char16_t character;
    } cases[] = {
        {Qt::Key_A, Qt::ShiftModifier, u"A"_s, u'a'},
        {Qt::Key_A, Qt::ControlModifier, u"\x01"_s, u'a'},
        {Qt::Key_Dollar, Qt::ShiftModifier, u"$"_s, u'$'},
        {Qt::Key_Space, Qt::NoModifier, {}, u' '},
        {Qt::Key_Shift, Qt::ShiftModifier, {}, 0},
        {Qt::Key_Eacute, Qt::NoModifier, u"é"_s, u'\u00E9'},
        {Qt::Key_Eacute, Qt::ShiftModifier, u"É"_s, u'\u00C9'},
        {Qt::Key_multiply, Qt::NoModifier, u"×"_s, u'\u00D7'},
    };
    for (const auto &c : cases) {
        const QKeyEvent event(QEvent::KeyPress, c.key, c.modifiers, c.text);
        EXPECT_EQ(QKEvents::characterForKeyEvent(&event), c.character) << std::hex << c.key;
    }
}

TEST(QKEvents, specialKeysUseTheFunctionKeyCodes)
{
    // One of each kind; the rest follow the same table.
    const std::pair<int, char16_t> table[] = {
        {Qt::Key_Up, 0xF700},   {Qt::Key_Right, 0xF703},   {Qt::Key_F1, 0xF704},
        {Qt::Key_F15, 0xF712},  {Qt::Key_Delete, 0xF728},  {Qt::Key_PageDown, 0xF72D},
        {Qt::Key_Enter, 0x03},  {Qt::Key_Return, 0x0D},    {Qt::Key_Backtab, 0x19},
        {Qt::Key_Escape, 0x1B}, {Qt::Key_Backspace, 0x7F},
    };
    for (const auto &[key, character] : table)
        EXPECT_EQ(QKEvents::characterForKey(key, QString()), character) << std::hex << key;
}

TEST(QKEvents, modifiersMapLikeQtOnMacAndArrowsNeedKeyPresses)
{
    EXPECT_EQ(QKEvents::modifierFlags(Qt::ControlModifier), 0x100000u);
    EXPECT_EQ(QKEvents::modifierFlags(Qt::MetaModifier), 0x40000u);
    EXPECT_EQ(QKEvents::modifierFlags(Qt::AltModifier), 0x80000u);
    EXPECT_EQ(QKEvents::modifierFlags(Qt::ShiftModifier), 0x20000u);
    EXPECT_EQ(QKEvents::modifierFlags(Qt::KeypadModifier | Qt::ShiftModifier), 0x220000u);
    EXPECT_TRUE(QKEvents::isOptionKeyDown(QKEvents::modifierFlags(Qt::AltModifier)));
    EXPECT_FALSE(QKEvents::isOptionKeyDown(QKEvents::modifierFlags(Qt::ControlModifier)));

    const QKeyEvent left(QEvent::KeyPress, Qt::Key_Left, Qt::NoModifier);
    const QKeyEvent down(QEvent::KeyPress, Qt::Key_Down, Qt::ShiftModifier);
    const QKeyEvent pageUp(QEvent::KeyPress, Qt::Key_PageUp, Qt::NoModifier);
    const QKeyEvent release(QEvent::KeyRelease, Qt::Key_Up, Qt::NoModifier);
    EXPECT_TRUE(QKEvents::isArrowKeyDown(&left));
    EXPECT_FALSE(QKEvents::isVerticalArrowKeyDown(&left));
    EXPECT_TRUE(QKEvents::isVerticalArrowKeyDown(&down));
    EXPECT_FALSE(QKEvents::isArrowKeyDown(&pageUp));
    EXPECT_FALSE(QKEvents::isArrowKeyDown(&release));
}
