#include "ShortcutTestHost.h"

#include <QKShortcutKey.h>

#include <QAction>
#include <QKeyEvent>
#include <QKeySequence>

#include <gtest/gtest.h>

#include <span>

namespace {

constexpr quint32 S = QKShortcutKey::Shift;
constexpr quint32 C = QKShortcutKey::Control;
constexpr quint32 O = QKShortcutKey::Option;
constexpr quint32 M = QKShortcutKey::Command;
constexpr quint32 Keypad = QKShortcutKey::NumericPad;

bool reserved(char16_t character, quint32 modifiers)
{
    return QKShortcutKey(character, modifiers).isReserved();
}

// The display string: four modifier slots (U+0000 where a modifier is absent), then the key.
QString glyphs(const char16_t (&modifierSlots)[4], const QString &keyText)
{
    QString text;
    for (char16_t slot : modifierSlots)
        text += QChar(slot);
    return text + keyText;
}

} // namespace

TEST(QKShortcutKey, reservedCombinationsNeedExactlyTheirModifiers)
{
    // A few rows of the table, each with and without the keypad bit, and the cases around
    // them: one modifier more or less is free; Command+Space is reserved with any other
    // modifiers; Command+Shift+4 arrives as "$" with Shift and misses the "$" row; an
    // upper-case letter is another key; a clear key is never reserved.
    const std::pair<char16_t, quint32> reservedKeys[] = {
        {0x09, M | S},     {0x09, C | S},         {0x1B, 0},
        {u'$', M},         {0xF704, C},           {0xF709, C | S},
        {u'.', M | O | C}, {u'4', M | S | C},     {u'q', M | O | S | C},
        {u'h', M},         {u'd', M | O},         {u' ', M},
        {u' ', M | S},     {u' ', M | O | C | S},
    };
    const std::pair<char16_t, quint32> freeKeys[] = {
        {u' ', O},     {u' ', 0},     {0x09, O}, {0x09, 0},          {0x09, O | S},
        {u'h', M | S}, {u'h', 0},     {u'q', M}, {0x1B, S},          {0xF704, C | S},
        {0xF70B, C},   {u'$', M | S}, {u'H', M}, {0, M | S | C | O},
    };
    for (const auto &[keys, isReserved] :
         {std::pair(std::span(reservedKeys), true), std::pair(std::span(freeKeys), false)}) {
        for (const auto &[character, modifiers] : keys) {
            EXPECT_EQ(reserved(character, modifiers), isReserved)
                << std::hex << int(character) << " " << modifiers;
            EXPECT_EQ(reserved(character, modifiers | Keypad), isReserved)
                << std::hex << int(character) << " keypad";
        }
    }
}

TEST(QKShortcutKey, displayStringKeepsEmptyModifierSlots)
{
    EXPECT_EQ(QKShortcutKey(u'a', S).displayString(), glyphs({0, 0, 0x21E7, 0}, "A"));
    EXPECT_EQ(QKShortcutKey(u'z', M | O | S | C).displayString(),
              glyphs({0x2303, 0x2325, 0x21E7, 0x2318}, "Z"));
    // On screen the empty slots are left out.
    EXPECT_EQ(QKShortcutKey(u'a', S).displayText(), u"\u21E7A"_s);
    EXPECT_EQ(QKShortcutKey(u' ', C | M).displayText(), u"\u2303\u2318[space]"_s);
    // A clear key shows nothing, whatever its modifiers.
    EXPECT_TRUE(QKShortcutKey(0, M | S).displayString().isEmpty());

    // Special keys show their symbols; one of each kind.
    const std::pair<char16_t, QString> keys[] = {
        {0xF700, u"\u2191"_s}, {0xF70D, u"F10"_s},
        {0xF728, u"\u2326"_s}, {0x03, u"\u2324"_s},
        {0x19, u"\u21E5"_s},   {0x20, u"[space]"_s},
        {0xE9, u"\u00E9"_s},   {0xF713, QString(QChar(0xF713))},
    };
    for (const auto &[character, text] : keys) {
        EXPECT_EQ(QKShortcutKey(character, M).displayString(), glyphs({0, 0, 0, 0x2318}, text))
            << std::hex << int(character);
    }
    // The keypad bit brackets plain characters only.
    EXPECT_EQ(QKShortcutKey(u'+', Keypad | S).displayString(), glyphs({0, 0, 0x21E7, 0}, "[+]"));
    EXPECT_EQ(QKShortcutKey(0x20, Keypad).displayString(), glyphs({0, 0, 0, 0}, "[space]"));
}

TEST(QKShortcutKey, takesCharacterAndModifiersFromEvents)
{
    const QKeyEvent shiftA(QEvent::KeyPress, Qt::Key_A, Qt::ShiftModifier, u"A"_s);
    EXPECT_EQ(QKShortcutKey::shortcutKeyForEvent(&shiftA), QKShortcutKey(u'a', S));
    // Qt's Control is Command, Meta is Control, Alt is Option; the keypad bit is dropped.
    const QKeyEvent all(
        QEvent::KeyPress, Qt::Key_5,
        Qt::ControlModifier | Qt::MetaModifier | Qt::AltModifier | Qt::KeypadModifier, u"5"_s);
    EXPECT_EQ(QKShortcutKey::shortcutKeyForEvent(&all), QKShortcutKey(u'5', M | C | O));
    const QKeyEvent left(QEvent::KeyPress, Qt::Key_Left, Qt::NoModifier);
    EXPECT_EQ(QKShortcutKey::shortcutKeyForEvent(&left), QKShortcutKey(0xF702, 0));
    // Only A to Z are lower-cased.
    const QKeyEvent eacute(QEvent::KeyPress, Qt::Key_Eacute, Qt::ShiftModifier, u"\u00C9"_s);
    EXPECT_EQ(QKShortcutKey::shortcutKeyForEvent(&eacute).character(), 0xC9);

    QKShortcutKey cleared(u'x', M);
    cleared.setFromEvent(nullptr);
    EXPECT_TRUE(cleared.isClear());
}

TEST(QKShortcutKey, clearIgnoresModifiersAndStateSetsOnlyPresentFields)
{
    // Clear means no character; modifiers do not count for that, but do for equality.
    const QKShortcutKey modifiersOnly(0, M);
    EXPECT_TRUE(modifiersOnly.isClear());
    EXPECT_NE(modifiersOnly, QKShortcutKey());
    QKShortcutKey key = modifiersOnly.copy();
    key.clear();
    EXPECT_EQ(key, QKShortcutKey());

    const QKShortcutKey home(0xF729, M | O);
    EXPECT_EQ(home.state(), QVariantMap({{"character", 0xF729}, {"modifiers", qint64(M | O)}}));
    key.setState(home.state());
    EXPECT_EQ(key, home);
    key.setState({{"character", int(u'q')}});
    EXPECT_EQ(key, QKShortcutKey(u'q', M | O));
    key.setState({{"modifiers", qint64(C)}});
    key.setState({});
    EXPECT_EQ(key, QKShortcutKey(u'q', C));
}

TEST(QKShortcutKeyMenuItem, setShortcutKeyShowsTheKeyWithoutBindingIt)
{
    QAction item(u"Zoom"_s);
    const auto expectEquivalent = [&item](const QString &key, quint32 modifiers) {
        EXPECT_EQ(item.property(QKKeyEquivalentProperty).toString(), key);
        EXPECT_EQ(item.property(QKKeyEquivalentModifierMaskProperty).toLongLong(), modifiers);
    };
    setShortcutKey(&item, QKShortcutKey(u'z', M | S));
    expectEquivalent(u"z"_s, M | S);
    EXPECT_EQ(item.shortcut(), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z));
    EXPECT_EQ(item.shortcutContext(), Qt::WidgetShortcut);
    setShortcutKey(&item, QKShortcutKey(0xF70D, C | O));
    EXPECT_EQ(item.shortcut(), QKeySequence(Qt::META | Qt::ALT | Qt::Key_F10));

    // Clearing keeps the modifier mask.
    clearKeyEquivalent(&item);
    expectEquivalent(QString(), C | O);
    EXPECT_TRUE(item.shortcut().isEmpty());
    // A clear key still sets a key equivalent: the single character U+0000.
    setShortcutKey(&item, QKShortcutKey(0, M));
    expectEquivalent(QString(QChar(0)), M);
    EXPECT_TRUE(item.shortcut().isEmpty());
}
