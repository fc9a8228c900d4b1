#include <QKShortcutKey.h>

#include <QAction>
#include <QKeyEvent>
#include <QKeySequence>

#include <gtest/gtest.h>

#include <algorithm>

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

QString glyphs(const char16_t (&modifierSlots)[4], const QString &keyText)
{
    QString text;
    for (char16_t slot : modifierSlots)
        text += QChar(slot);
    return text + keyText;
}

} // namespace

TEST(QKShortcutKey, everyReservedRowNeedsExactlyItsModifiers)
{
    const std::pair<char16_t, quint32> rows[] = {
        {0x09, S},       {0x09, M},         {0x09, M | S},     {0x09, C},
        {0x09, C | S},   {0x1B, 0},         {0x1B, M | O},     {u'$', M},
        {0xF704, C},     {0xF705, C},       {0xF706, C},       {0xF707, C},
        {0xF707, C | S}, {0xF708, C},       {0xF709, C},       {0xF709, C | S},
        {0xF70A, C},     {u'`', M},         {u'`', M | S},     {u'-', M},
        {u'-', M | O},   {u'.', M | O | C}, {u',', M | O | C}, {u'/', M | O},
        {u'=', M | S},   {u'=', M | O},     {u'3', M | S},     {u'3', M | S | C},
        {u'4', M | S},   {u'4', M | S | C}, {u'8', M | O},     {u'8', M | O | C},
        {u'd', M | O},   {u'q', M | S},     {u'q', M | O | S}, {u'q', M | O | S | C},
        {u'h', M},       {u'h', M | O},
    };
    const auto isRow = [&rows](char16_t character, quint32 modifiers) {
        return std::find(std::begin(rows), std::end(rows), std::pair(character, modifiers)) !=
               std::end(rows);
    };
    for (const auto &[character, modifiers] : rows) {
        EXPECT_TRUE(reserved(character, modifiers)) << std::hex << int(character);
        // The keypad bit plays no part.
        EXPECT_TRUE(reserved(character, modifiers | Keypad)) << std::hex << int(character);
        // One modifier more or one less leaves the row, unless it lands on another row.
        for (quint32 modifier : {S, C, O, M}) {
            const quint32 other = modifiers ^ modifier;
            EXPECT_EQ(reserved(character, other), isRow(character, other))
                << std::hex << int(character) << " " << other;
        }
    }
}

TEST(QKShortcutKey, reservedEdgeCases)
{
    // Command+Space is reserved with any other modifiers; without Command it is free.
    EXPECT_TRUE(reserved(u' ', M));
    EXPECT_TRUE(reserved(u' ', M | S));
    EXPECT_TRUE(reserved(u' ', M | O | C | S));
    EXPECT_FALSE(reserved(u' ', O));
    EXPECT_FALSE(reserved(u' ', 0));
    // Shift+Tab with Control is the Control+Shift row; Option+Tab is free.
    EXPECT_TRUE(reserved(0x09, C | S));
    EXPECT_FALSE(reserved(0x09, O));
    EXPECT_FALSE(reserved(0x09, 0));
    EXPECT_FALSE(reserved(0x09, O | S));
    // Exact sets: one modifier more or less is free.
    EXPECT_FALSE(reserved(u'h', M | S));
    EXPECT_FALSE(reserved(u'h', 0));
    EXPECT_FALSE(reserved(u'q', M));
    EXPECT_FALSE(reserved(0x1B, S));
    EXPECT_FALSE(reserved(0xF704, C | S));
    EXPECT_FALSE(reserved(0xF70B, C));
    // Command+Shift+4 arrives as "$" with Shift and so misses the "$" row.
    EXPECT_FALSE(reserved(u'$', M | S));
    // Characters compare as stored: an upper-case letter is another key.
    EXPECT_FALSE(reserved(u'H', M));
    // A clear key is never reserved, whatever its modifiers.
    EXPECT_FALSE(reserved(0, M | S | C | O));
}

TEST(QKShortcutKey, displayStringKeepsEmptyModifierSlots)
{
    EXPECT_EQ(QKShortcutKey(u'a', S).displayString(), glyphs({0, 0, 0x21E7, 0}, "A"));
    EXPECT_EQ(QKShortcutKey(u'a', S).displayString().size(), 5);
    // On screen the empty slots are left out.
    EXPECT_EQ(QKShortcutKey(u'a', S).displayText(), QStringLiteral("\u21E7A"));
    EXPECT_EQ(QKShortcutKey(u' ', C | M).displayText(), QStringLiteral("\u2303\u2318[space]"));
    EXPECT_EQ(QKShortcutKey(u'z', M | O | S | C).displayString(),
              glyphs({0x2303, 0x2325, 0x21E7, 0x2318}, "Z"));
    EXPECT_EQ(QKShortcutKey(u'1', C | M).displayString(), glyphs({0x2303, 0, 0, 0x2318}, "1"));
    // A clear key shows nothing, whatever its modifiers.
    EXPECT_EQ(QKShortcutKey(0, M | S).displayString(), QString());
    EXPECT_TRUE(QKShortcutKey(0, M | S).displayString().isEmpty());
}

TEST(QKShortcutKey, displayStringKeyTexts)
{
    const std::pair<char16_t, QString> table[] = {
        {0xF700, QStringLiteral("\u2191")}, {0xF701, QStringLiteral("\u2193")},
        {0xF702, QStringLiteral("\u2190")}, {0xF703, QStringLiteral("\u2192")},
        {0xF704, QStringLiteral("F1")},     {0xF70D, QStringLiteral("F10")},
        {0xF712, QStringLiteral("F15")},    {0xF728, QStringLiteral("\u2326")},
        {0xF729, QStringLiteral("\u21F1")}, {0xF72B, QStringLiteral("\u21F2")},
        {0xF72C, QStringLiteral("\u21DE")}, {0xF72D, QStringLiteral("\u21DF")},
        {0xF739, QStringLiteral("\u2327")}, {0x03, QStringLiteral("\u2324")},
        {0x09, QStringLiteral("\u21E5")},   {0x19, QStringLiteral("\u21E5")},
        {0x0D, QStringLiteral("\u23CE")},   {0x1B, QStringLiteral("\u238B")},
        {0x7F, QStringLiteral("\u232B")},   {0x20, QStringLiteral("[space]")},
        {u'q', QStringLiteral("Q")},        {u'$', QStringLiteral("$")},
        {0xE9, QStringLiteral("\u00E9")},   {0xF713, QString(QChar(0xF713))},
        {0xF72A, QString(QChar(0xF72A))},
    };
    for (const auto &[character, text] : table) {
        EXPECT_EQ(QKShortcutKey(character, M).displayString(), glyphs({0, 0, 0, 0x2318}, text))
            << std::hex << int(character);
    }
    // The keypad bit brackets plain characters only.
    EXPECT_EQ(QKShortcutKey(u'5', Keypad).displayString(), glyphs({0, 0, 0, 0}, "[5]"));
    EXPECT_EQ(QKShortcutKey(u'+', Keypad | S).displayString(), glyphs({0, 0, 0x21E7, 0}, "[+]"));
    EXPECT_EQ(QKShortcutKey(0x03, Keypad).displayString(), glyphs({0, 0, 0, 0}, "\u2324"));
    EXPECT_EQ(QKShortcutKey(0x20, Keypad).displayString(), glyphs({0, 0, 0, 0}, "[space]"));
}

TEST(QKShortcutKey, takesCharacterAndModifiersFromEvents)
{
    const QKeyEvent shiftA(QEvent::KeyPress, Qt::Key_A, Qt::ShiftModifier, QStringLiteral("A"));
    const QKShortcutKey key = QKShortcutKey::shortcutKeyForEvent(&shiftA);
    EXPECT_EQ(key.character(), u'a');
    EXPECT_EQ(key.modifiers(), S);
    EXPECT_EQ(key.displayString(), glyphs({0, 0, 0x21E7, 0}, "A"));

    // Qt's Control is Command, Meta is Control, Alt is Option; the keypad bit is dropped.
    const QKeyEvent all(QEvent::KeyPress, Qt::Key_5,
                        Qt::ControlModifier | Qt::MetaModifier | Qt::AltModifier |
                            Qt::KeypadModifier,
                        QStringLiteral("5"));
    EXPECT_EQ(QKShortcutKey::shortcutKeyForEvent(&all), QKShortcutKey(u'5', M | C | O));

    const QKeyEvent left(QEvent::KeyPress, Qt::Key_Left, Qt::NoModifier);
    EXPECT_EQ(QKShortcutKey::shortcutKeyForEvent(&left), QKShortcutKey(0xF702, 0));

    // Only A to Z are lower-cased.
    const QKeyEvent eacute(QEvent::KeyPress, Qt::Key_Eacute, Qt::ShiftModifier,
                           QStringLiteral("\u00C9"));
    EXPECT_EQ(QKShortcutKey::shortcutKeyForEvent(&eacute).character(), 0xC9);

    QKShortcutKey cleared(u'x', M);
    cleared.setFromEvent(nullptr);
    EXPECT_TRUE(cleared.isClear());
}

TEST(QKShortcutKey, equalityClearAndCopy)
{
    QKShortcutKey key(u'k', M);
    const QKShortcutKey copy = key.copy();
    EXPECT_TRUE(copy.isEqualToShortcutKey(key));
    EXPECT_FALSE(key.isEqualToShortcutKey(QKShortcutKey(u'k', M | S)));
    EXPECT_FALSE(key.isEqualToShortcutKey(QKShortcutKey(u'j', M)));
    key.setModifiers(S);
    EXPECT_FALSE(copy.isEqualToShortcutKey(key));

    // Clear means no character; modifiers do not count, but do count for equality.
    const QKShortcutKey modifiersOnly(0, M);
    EXPECT_TRUE(modifiersOnly.isClear());
    EXPECT_FALSE(modifiersOnly.isEqualToShortcutKey(QKShortcutKey()));
    key.clear();
    EXPECT_TRUE(key.isClear());
    EXPECT_EQ(key.modifiers(), 0u);
}

TEST(QKShortcutKey, stateRoundTripsAndSetsOnlyPresentKeys)
{
    const QKShortcutKey key(0xF729, M | O);
    const QVariantMap state = key.state();
    EXPECT_EQ(state.value("character").toInt(), 0xF729);
    EXPECT_EQ(state.value("modifiers").toLongLong(), qint64(M | O));
    EXPECT_EQ(state.size(), 2);

    QKShortcutKey restored;
    restored.setState(state);
    EXPECT_EQ(restored, key);

    QKShortcutKey partial(u'p', S);
    partial.setState({{"character", int(u'q')}});
    EXPECT_EQ(partial, QKShortcutKey(u'q', S));
    partial.setState({{"modifiers", qint64(C)}});
    EXPECT_EQ(partial, QKShortcutKey(u'q', C));
    partial.setState({});
    EXPECT_EQ(partial, QKShortcutKey(u'q', C));
}

TEST(QKShortcutKeyMenuItem, setShortcutKeyShowsTheKeyWithoutBindingIt)
{
    QAction item(QStringLiteral("Zoom"));
    setShortcutKey(&item, QKShortcutKey(u'z', M | S));
    EXPECT_EQ(item.property(QKKeyEquivalentProperty).toString(), QStringLiteral("z"));
    EXPECT_EQ(item.property(QKKeyEquivalentModifierMaskProperty).toLongLong(), qint64(M | S));
    EXPECT_EQ(item.shortcut(), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z));
    EXPECT_EQ(item.shortcutContext(), Qt::WidgetShortcut);

    setShortcutKey(&item, QKShortcutKey(0xF70D, C | O));
    EXPECT_EQ(item.shortcut(), QKeySequence(Qt::META | Qt::ALT | Qt::Key_F10));

    // Clearing keeps the modifier mask.
    clearKeyEquivalent(&item);
    EXPECT_EQ(item.property(QKKeyEquivalentProperty).toString(), QString());
    EXPECT_EQ(item.property(QKKeyEquivalentModifierMaskProperty).toLongLong(), qint64(C | O));
    EXPECT_TRUE(item.shortcut().isEmpty());

    // A clear key still sets a key equivalent: the single character U+0000.
    setShortcutKey(&item, QKShortcutKey(0, M));
    EXPECT_EQ(item.property(QKKeyEquivalentProperty).toString(), QString(QChar(0)));
    EXPECT_EQ(item.property(QKKeyEquivalentModifierMaskProperty).toLongLong(), qint64(M));
    EXPECT_TRUE(item.shortcut().isEmpty());
}
