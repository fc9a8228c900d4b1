#include "ShortcutTestHost.h"

#include <QKeyEvent>

#include <span>

using namespace ShortcutTestHost;

namespace {

// Short names for the tables of keys.
constexpr quint32 S = Shift, C = Control, O = Option, M = Command;
constexpr quint32 Keypad = QKShortcutKey::NumericPad;

std::unique_ptr<QKShortcutGroup> groupAt(int index)
{
    return QKShortcutGroup::shortcutGroupWithState(defaultList().at(index).toMap());
}

std::unique_ptr<QKShortcutGroup> fileGroup(const QVariantList &shortcuts, bool isMenu = true)
{
    return QKShortcutGroup::shortcutGroupWithState(
        {{"name", "File"}, {"isMenu", isMenu}, {"shortcuts", shortcuts}});
}

// The host window, shown and active, and a key-down event.
class QKShortcutInHost : public ::testing::Test
{
protected:
    void SetUp() override { window.activate(); }
    Window window;
    const QKeyEvent keyDown{QEvent::KeyPress, Qt::Key_T, Qt::ControlModifier, u"t"_s};
};

} // namespace

TEST(QKShortcutKey, reservedCombinationsNeedExactlyTheirModifiers)
{
    // A few rows of the table and the cases around them: one modifier more or less is free;
    // Command+Space is reserved with any other modifiers; Command+Shift+4 arrives as "$" with
    // Shift and misses the "$" row; an upper-case letter is another key; a clear key is free.
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
    using Keys = std::span<const std::pair<char16_t, quint32>>;
    for (const auto &[keys, reserved] :
         {std::pair(Keys(reservedKeys), true), std::pair(Keys(freeKeys), false)}) {
        // The keypad bit plays no part.
        for (const auto &[character, modifiers] : keys) {
            for (quint32 keypad : {0u, Keypad}) {
                EXPECT_EQ(QKShortcutKey(character, modifiers | keypad).isReserved(), reserved)
                    << std::hex << int(character) << " " << (modifiers | keypad);
            }
        }
    }
}

// A key reads as the desktop's menus show it, so the editor and the menus agree.
TEST(QKShortcutKey, displayStringIsTheMenuItemsText)
{
    const std::tuple<char16_t, quint32, QString> keys[] = {
        {u't', M, u"Ctrl+T"_s},
        {u'b', M | S, u"Ctrl+Shift+B"_s},
        {u'k', M | O, u"Ctrl+Alt+K"_s},
        {u'z', M | O | S | C, u"Meta+Ctrl+Alt+Shift+Z"_s},
        {0x7F, M, u"Ctrl+Backspace"_s},
        {0xF728, 0, u"Del"_s},
        {0xF729, 0, u"Home"_s},
        {0xF700, O, u"Alt+Up"_s},
        {0xF703, 0, u"Right"_s},
        {0xF70D, 0, u"F10"_s},
        {0xF726, S, u"Shift+F35"_s},
        {0xF727, 0, u"Ins"_s},
        {0xF735, 0, u"Menu"_s},
        {u'5', M | Keypad, u"Ctrl+Num+5"_s},
        {u'+', Keypad, u"Num++"_s},
        {0x03, 0, u"Enter"_s},
        {0x0D, 0, u"Return"_s},
        {0x1B, 0, u"Esc"_s},
        {0x09, 0, u"Tab"_s},
        {u' ', C | M, u"Meta+Ctrl+Space"_s},
        {u'$', M | S, u"Ctrl+Shift+$"_s},
        {u'=', M | S, u"Ctrl+Shift+="_s},
        {0xE9, 0, u"\u00C9"_s},
    };
    for (const auto &[character, modifiers, text] : keys) {
        const QKShortcutKey key(character, modifiers);
        QAction item;
        setShortcutKey(&item, key);
        EXPECT_EQ(key.displayString(), text) << std::hex << int(character);
        EXPECT_EQ(item.shortcut().toString(QKeySequence::NativeText), text);
    }
    // A clear key reads as nothing, whatever its modifiers; a stored code no Qt key types
    // still shows its modifiers.
    EXPECT_TRUE(QKShortcutKey(0, M | S).displayString().isEmpty());
    EXPECT_TRUE(QKShortcutKey(0xF72A, M).displayString().startsWith(u"Ctrl+"_s));
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
    // Clear means no character; modifiers do not count for that, but do for equality.
    EXPECT_TRUE(QKShortcutKey(0, M).isClear());
    EXPECT_NE(QKShortcutKey(0, M), QKShortcutKey());
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

TEST(QKShortcut, stateRoundTripsAndMissingEntriesKeepValues)
{
    const QVariantMap source =
        shortcutState("Export>As Text", "exportText:", u'e', Command | Shift, true, true, 7);
    EXPECT_EQ(QKShortcut::shortcutWithState(source)->state(), source);

    // New shortcuts are disabled and keyless; a partial state changes only what it holds.
    const auto play = QKShortcut::shortcutWithState({{"name", "Play"}, {"action", "play:"}});
    EXPECT_FALSE(play->enabled());
    EXPECT_TRUE(play->key()->isClear());
    play->setState({{"character", int(u'p')}, {"modifiers", qint64(Command)}, {"tag", 3}});
    play->setState({{"character", int(u'q')}});
    play->setState({{"modifiers", qint64(Control)}});
    play->setState({});
    EXPECT_EQ(play->state(), shortcutState("Play", "play:", u'q', Control, false, false, 3));
}

TEST(QKShortcutGroup, stateCopyLookupsAndThreeValuedEnabled)
{
    const auto group = groupAt(0);
    ASSERT_EQ(group->count(), 3);
    EXPECT_EQ(group->state(), defaultList().at(0).toMap());

    // A copy is deep: new shortcuts and keys.
    const auto copy = group->copy();
    EXPECT_EQ(copy->state(), group->state());
    copy->shortcutAt(0)->key()->clear();
    EXPECT_FALSE(group->shortcutAt(0)->key()->isClear());

    EXPECT_EQ(group->shortcutWithAction("deleteTrack:"), group->shortcutAt(2));
    EXPECT_EQ(group->shortcutWithKey(QKShortcutKey(u'e', Command | Shift)), group->shortcutAt(1));
    EXPECT_EQ(group->shortcutWithKey(QKShortcutKey(u'e', Command)), nullptr);
    // First hit in list order; a clear key finds the first shortcut without a key.
    group->shortcutAt(2)->key()->clear();
    group->shortcutAt(1)->key()->clear();
    EXPECT_EQ(group->shortcutWithKey(QKShortcutKey()), group->shortcutAt(1));

    EXPECT_EQ(group->enabled(), Qt::Checked);
    group->shortcutAt(1)->setEnabled(false);
    EXPECT_EQ(group->enabledState(), -1);
    group->setEnabled(false);
    EXPECT_EQ(group->enabledState(), 0);
    EXPECT_EQ(QKShortcutGroup().enabled(), Qt::PartiallyChecked);

    // A display group shares the shortcuts without taking them over.
    QKShortcutGroup display;
    display.setShortcuts({group->sharedShortcuts().at(2)});
    EXPECT_EQ(display.shortcutAt(0)->group(), group.get());
    display.setEnabled(true);
    EXPECT_EQ(group->enabledState(), -1);

    // A state without "shortcuts" keeps the list; one with it rebuilds it.
    group->setState({{"name", "Track"}});
    EXPECT_EQ(group->count(), 3);
    group->setState({{"shortcuts", QVariantList{}}});
    EXPECT_EQ(group->count(), 0);
}

TEST_F(QKShortcutInHost, menuItemsFollowKeyEnabledStateActionAndTag)
{
    auto file = groupAt(0);
    file->refreshMenu();
    QAction *asText = QKMainMenu::itemForPath({"Export", "As Text"});
    ASSERT_NE(asText, nullptr);

    EXPECT_EQ(asText->shortcut(), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_E));
    // Disabled: no key equivalent, but action and tag stay.
    file->shortcutAt(1)->setEnabled(false);
    EXPECT_TRUE(asText->shortcut().isEmpty());
    EXPECT_EQ(asText->property(QKMenus::ActionProperty), QByteArray("exportText:"));
    EXPECT_EQ(asText->property("tag"), 7);

    // The menu item sends the action that the shortcut names.
    file->shortcutAt(0)->setState({{"action", "deleteTrack:"}});
    file->shortcutAt(0)->refreshMenuItem();
    QKMainMenu::itemForPath({"New Track"})->trigger();
    EXPECT_EQ(window.calls.value("deleteTrack:"), 1);
}

TEST_F(QKShortcutInHost, pathsResolveFromAnyTopLevelMenuAndOthersTouchNoItem)
{
    const auto menuKeys = [this] {
        QList<QKeySequence> keys;
        for (QAction *top : window.menuBar()->actions())
            for (QAction *item : top->menu()->actions())
                keys << item->shortcut();
        return keys;
    };
    const QList<QKeySequence> before = menuKeys();

    // Unresolved paths, and paths in a group that is not a menu, leave the menus alone.
    fileGroup({shortcutState("Export>As PDF", "exportPDF:", u'p', Command),
               shortcutState("Nowhere", "newTrack:", u'n', Command)})
        ->refreshMenu();
    const auto plain = fileGroup({shortcutState("New Track", "newTrack:", u'n', Command)}, false);
    plain->refreshMenu();
    plain->shortcutAt(0)->setKey(QKShortcutKey(u'm', Command));
    EXPECT_EQ(menuKeys(), before);

    // The group's name does not take part: "Résumé" lives under Edit.
    fileGroup({shortcutState("Résumé", "showResume:", u'j', Command)})->refreshMenu();
    EXPECT_EQ(menuKey({"Résumé"}), QKeySequence(Qt::CTRL | Qt::Key_J));
}

// Enabled state, repeats and validation are checked through key events in the registry tests.
TEST_F(QKShortcutInHost, performSendsTagOrSenderAndOnlyMenuShortcutsNeedATarget)
{
    auto nudge = groupAt(2);
    EXPECT_TRUE(nudge->shortcutAt(1)->perform(&keyDown));
    EXPECT_EQ(window.tags, QList<int>{5});
    EXPECT_TRUE(nudge->shortcutAt(0)->perform(&keyDown));
    EXPECT_EQ(window.lastSender, nudge->shortcutAt(0));
    // Nobody takes the action: true for a plain shortcut, false for a menu one.
    EXPECT_TRUE(nudge->shortcutAt(2)->perform(&keyDown));
    auto file = groupAt(0);
    file->shortcutAt(0)->setState({{"action", "noTarget:"}});
    EXPECT_FALSE(file->shortcutAt(0)->perform(&keyDown));
    EXPECT_EQ(window.totalCalls(), 2);
}

TEST_F(QKShortcutInHost, menuShortcutFlashesItsTitleWithoutOpeningTheMenu)
{
    QMenuBar *bar = window.menuBar();
    QAction *fileTitle = bar->actions().at(0);
    auto file = groupAt(0);

    ASSERT_TRUE(file->shortcutAt(0)->perform(&keyDown));
    // The title lit up before the action arrived.
    EXPECT_EQ(window.titleAtLastAction, fileTitle);
    EXPECT_EQ(bar->activeAction(), fileTitle);
    EXPECT_TRUE(QTest::qWaitFor([&] { return bar->activeAction() == nullptr; }, 2000));
    EXPECT_FALSE(fileTitle->menu()->isVisible());

    // A group without a top-level menu of its name sends the action without a flash.
    file->setName(u"Tracks"_s);
    ASSERT_TRUE(file->shortcutAt(0)->perform(&keyDown));
    EXPECT_EQ(window.titleAtLastAction, nullptr);
    EXPECT_EQ(window.calls.value("newTrack:"), 2);
}
