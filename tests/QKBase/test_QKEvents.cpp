#include "QKEvents.h"

#include <QKeyEvent>

#include <gtest/gtest.h>

namespace {
char16_t character(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier,
                   const QString &text = {})
{
    const QKeyEvent event(QEvent::KeyPress, key, modifiers, text);
    return QKEvents::characterForKeyEvent(&event);
}

bool arrowDown(int key, bool verticalOnly, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    const QKeyEvent event(QEvent::KeyPress, key, modifiers);
    return verticalOnly ? QKEvents::isVerticalArrowKeyDown(&event)
                        : QKEvents::isArrowKeyDown(&event);
}
} // namespace

TEST(QKEvents, charactersIgnoreModifiersAndLowerCaseLetters)
{
    EXPECT_EQ(character(Qt::Key_A, Qt::ShiftModifier, "A"), u'a');
    EXPECT_EQ(character(Qt::Key_A, Qt::ControlModifier, "\x01"), u'a');
    EXPECT_EQ(character(Qt::Key_Dollar, Qt::ShiftModifier, "$"), u'$');
    EXPECT_EQ(character(Qt::Key_Space), u' ');
    EXPECT_EQ(character(Qt::Key_Shift, Qt::ShiftModifier), 0);
    EXPECT_EQ(character(Qt::Key_Eacute, Qt::NoModifier, QStringLiteral("é")), u'\u00E9');
    EXPECT_EQ(character(Qt::Key_Eacute, Qt::ShiftModifier, QStringLiteral("É")), u'\u00C9');
    EXPECT_EQ(character(Qt::Key_multiply, Qt::NoModifier, QStringLiteral("×")), u'\u00D7');
}

TEST(QKEvents, specialKeysUseTheFunctionKeyCodes)
{
    const std::pair<int, char16_t> table[] = {
        {Qt::Key_Up, 0xF700},     {Qt::Key_Down, 0xF701},     {Qt::Key_Left, 0xF702},
        {Qt::Key_Right, 0xF703},  {Qt::Key_F1, 0xF704},       {Qt::Key_F15, 0xF712},
        {Qt::Key_Delete, 0xF728}, {Qt::Key_Home, 0xF729},     {Qt::Key_End, 0xF72B},
        {Qt::Key_PageUp, 0xF72C}, {Qt::Key_PageDown, 0xF72D}, {Qt::Key_Clear, 0xF739},
        {Qt::Key_Enter, 0x03},    {Qt::Key_Return, 0x0D},     {Qt::Key_Tab, 0x09},
        {Qt::Key_Backtab, 0x19},  {Qt::Key_Escape, 0x1B},     {Qt::Key_Backspace, 0x7F},
    };
    for (const auto &[key, character] : table)
        EXPECT_EQ(QKEvents::characterForKey(key, QString()), character) << std::hex << key;
}

TEST(QKEvents, modifiersMapLikeQtOnMac)
{
    EXPECT_EQ(QKEvents::modifierFlags(Qt::ControlModifier), 0x100000u);
    EXPECT_EQ(QKEvents::modifierFlags(Qt::MetaModifier), 0x40000u);
    EXPECT_EQ(QKEvents::modifierFlags(Qt::AltModifier), 0x80000u);
    EXPECT_EQ(QKEvents::modifierFlags(Qt::ShiftModifier), 0x20000u);
    EXPECT_EQ(QKEvents::modifierFlags(Qt::KeypadModifier | Qt::ShiftModifier), 0x220000u);
    EXPECT_TRUE(QKEvents::isOptionKeyDown(QKEvents::modifierFlags(Qt::AltModifier)));
    EXPECT_FALSE(QKEvents::isOptionKeyDown(QKEvents::modifierFlags(Qt::ControlModifier)));
}

TEST(QKEvents, arrowRecognisersOnlyTakeKeyPresses)
{
    EXPECT_TRUE(arrowDown(Qt::Key_Left, false));
    EXPECT_FALSE(arrowDown(Qt::Key_Left, true));
    EXPECT_TRUE(arrowDown(Qt::Key_Down, true, Qt::ShiftModifier));
    EXPECT_FALSE(arrowDown(Qt::Key_PageUp, false));
    const QKeyEvent release(QEvent::KeyRelease, Qt::Key_Up, Qt::NoModifier);
    EXPECT_FALSE(QKEvents::isArrowKeyDown(&release));
}
