#include "QKEvents.h"
#include "QKTestSupport.h"

#include <QKeyEvent>

TEST(QKEvents, charactersIgnoreModifiersAndSpecialKeysUseFunctionKeyCodes)
{
    const auto character = [](int key, Qt::KeyboardModifiers modifiers, const QString &text) {
        const QKeyEvent event(QEvent::KeyPress, key, modifiers, text);
        return QKEvents::characterForKeyEvent(&event);
    };
    EXPECT_EQ(character(Qt::Key_A, Qt::ControlModifier, u"\x01"_s), u'a');
    EXPECT_EQ(character(Qt::Key_Dollar, Qt::ShiftModifier, u"$"_s), u'$');
    EXPECT_EQ(character(Qt::Key_Shift, Qt::ShiftModifier, {}), 0);

    // One of each kind; the rest follow the same table.
    const std::pair<int, char16_t> table[] = {
        {Qt::Key_Up, 0xF700},   {Qt::Key_Right, 0xF703},   {Qt::Key_F1, 0xF704},
        {Qt::Key_F15, 0xF712},  {Qt::Key_Delete, 0xF728},  {Qt::Key_PageDown, 0xF72D},
        {Qt::Key_Enter, 0x03},  {Qt::Key_Return, 0x0D},    {Qt::Key_Backtab, 0x19},
        {Qt::Key_Escape, 0x1B}, {Qt::Key_Backspace, 0x7F}, {Qt::Key_Space, u' '},
    };
    for (const auto &[key, code] : table)
        EXPECT_EQ(QKEvents::characterForKey(key, QString()), code) << std::hex << key;
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
