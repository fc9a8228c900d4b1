#include "ShortcutTestHost.h"

#include <QKMainMenu.h>
#include <QKMenus.h>
#include <QKShortcut.h>
#include <QKShortcutGroup.h>

#include <QAction>
#include <QKeyEvent>
#include <QMenu>
#include <QMenuBar>
#include <QTest>

#include <gtest/gtest.h>

using namespace ShortcutTestHost;

namespace {

std::unique_ptr<QKShortcutGroup> groupAt(int index)
{
    return QKShortcutGroup::shortcutGroupWithState(defaultList().at(index).toMap());
}

QKeyEvent keyDown(bool autoRepeat = false)
{
    return QKeyEvent(QEvent::KeyPress, Qt::Key_T, Qt::ControlModifier, u"t"_s, autoRepeat);
}

// The state of a group named @p name holding @p shortcuts.
QVariantMap menuGroup(const QString &name, bool isMenu, const QVariantList &shortcuts)
{
    return {{"name", name}, {"isMenu", isMenu}, {"shortcuts", shortcuts}};
}

// The host window, shown and active.
struct Host
{
    Window window;
    Host() { window.activate(); }
};

} // namespace

TEST(QKShortcut, stateRoundTripsAndMissingEntriesKeepValues)
{
    const QVariantMap source =
        shortcutState("Export>As Text", "exportText:", u'e', Command | Shift, true, true, 7);
    const auto shortcut = QKShortcut::shortcutWithState(source);
    EXPECT_EQ(shortcut->action(), "exportText:");
    EXPECT_TRUE(shortcut->prohibitRepeats());
    EXPECT_EQ(*shortcut->key(), QKShortcutKey(u'e', Command | Shift));
    EXPECT_EQ(shortcut->state(), source);

    // New shortcuts are disabled and keyless; a partial state changes only what it holds.
    const auto play = QKShortcut::shortcutWithState({{"name", "Play"}, {"action", "play:"}});
    EXPECT_FALSE(play->enabled());
    EXPECT_TRUE(play->key()->isClear());
    EXPECT_EQ(play->tag(), 0);
    play->setState({{"character", int(u'p')}, {"modifiers", qint64(Command)}, {"tag", 3}});
    play->setState({{"character", int(u'q')}});
    EXPECT_EQ(play->name(), u"Play"_s);
    EXPECT_EQ(*play->key(), QKShortcutKey(u'q', Command));
    EXPECT_EQ(play->tag(), 3);
}

TEST(QKShortcutGroup, stateCopyAndLookups)
{
    const auto group = groupAt(0);
    ASSERT_EQ(group->count(), 3);
    EXPECT_EQ(group->shortcutAt(2)->group(), group.get());
    EXPECT_EQ(group->state(), defaultList().at(0).toMap());

    // A copy is deep: new shortcuts and keys.
    const auto copy = group->copy();
    EXPECT_EQ(copy->state(), group->state());
    EXPECT_NE(copy->shortcutAt(0), group->shortcutAt(0));
    copy->shortcutAt(0)->key()->clear();
    EXPECT_FALSE(group->shortcutAt(0)->key()->isClear());

    EXPECT_EQ(group->shortcutWithAction("deleteTrack:"), group->shortcutAt(2));
    EXPECT_EQ(group->shortcutWithKey(QKShortcutKey(u'e', Command | Shift)), group->shortcutAt(1));
    EXPECT_EQ(group->shortcutWithKey(QKShortcutKey(u'e', Command)), nullptr);
    // First hit in list order; a clear key finds the first shortcut without a key.
    group->shortcutAt(2)->key()->clear();
    group->shortcutAt(1)->key()->clear();
    EXPECT_EQ(group->shortcutWithKey(QKShortcutKey()), group->shortcutAt(1));

    // A state without "shortcuts" keeps the list; one with it rebuilds it.
    group->setState({{"name", "Track"}});
    EXPECT_EQ(group->count(), 3);
    EXPECT_EQ(group->name(), u"Track"_s);
    group->setState({{"shortcuts", QVariantList{}}});
    EXPECT_EQ(group->count(), 0);
}

TEST(QKShortcutGroup, enabledIsThreeValued)
{
    auto group = groupAt(2);
    EXPECT_EQ(group->enabled(), Qt::Checked);
    group->shortcutAt(1)->setEnabled(false);
    EXPECT_EQ(group->enabled(), Qt::PartiallyChecked);
    EXPECT_EQ(group->enabledState(), -1);
    group->setEnabled(false);
    EXPECT_EQ(group->enabledState(), 0);
    EXPECT_FALSE(group->shortcutAt(0)->enabled());
    EXPECT_EQ(QKShortcutGroup().enabled(), Qt::PartiallyChecked);

    // A display group shares the shortcuts without taking them over.
    QKShortcutGroup display;
    display.setShortcuts({group->sharedShortcuts().at(2)});
    EXPECT_EQ(display.shortcutAt(0)->group(), group.get());
    display.setEnabled(true);
    EXPECT_TRUE(group->shortcutAt(2)->enabled());
    EXPECT_EQ(group->enabledState(), -1);
}

TEST(QKShortcut, menuItemsFollowKeyEnabledStateActionAndTag)
{
    Host host;
    auto file = groupAt(0);
    file->refreshMenu();
    QAction *asText = QKMainMenu::itemForPath({"Export", "As Text"});
    ASSERT_NE(asText, nullptr);
    EXPECT_EQ(asText->shortcutContext(), Qt::WidgetShortcut);

    QKShortcut *shortcut = file->shortcutAt(1);
    shortcut->setKey(QKShortcutKey(u'x', Option));
    EXPECT_EQ(asText->shortcut(), QKeySequence(Qt::ALT | Qt::Key_X));
    // Disabled: no key equivalent, but action and tag stay.
    shortcut->setEnabled(false);
    EXPECT_TRUE(asText->shortcut().isEmpty());
    EXPECT_EQ(asText->property(QKMenus::ActionProperty), QByteArray("exportText:"));
    EXPECT_EQ(asText->property("tag"), 7);
    shortcut->setEnabled(true);
    shortcut->clearKey();
    EXPECT_TRUE(asText->shortcut().isEmpty());

    // The menu item sends the action that the shortcut names.
    file->shortcutAt(0)->setState({{"action", "deleteTrack:"}});
    file->shortcutAt(0)->refreshMenuItem();
    QKMainMenu::itemForPath({"New Track"})->trigger();
    EXPECT_EQ(host.window.calls.value("deleteTrack:"), 1);
}

TEST(QKShortcut, pathsResolveFromAnyTopLevelMenuAndOthersTouchNoItem)
{
    Host host;
    const auto menuKeys = [&host] {
        QList<QKeySequence> keys;
        for (QAction *top : host.window.menuBar()->actions())
            for (QAction *item : top->menu()->actions())
                keys << item->shortcut();
        return keys;
    };
    const QList<QKeySequence> before = menuKeys();

    // Unresolved paths, and paths in a group that is not a menu, leave the menus alone.
    const auto unresolved = QKShortcutGroup::shortcutGroupWithState(
        menuGroup("File", true,
                  {shortcutState("Export>As PDF", "exportPDF:", u'p', Command),
                   shortcutState("Nowhere", "newTrack:", u'n', Command)}));
    unresolved->refreshMenu();
    const auto plain = QKShortcutGroup::shortcutGroupWithState(
        menuGroup("File", false, {shortcutState("New Track", "newTrack:", u'n', Command)}));
    plain->refreshMenu();
    plain->shortcutAt(0)->setKey(QKShortcutKey(u'm', Command));
    EXPECT_EQ(menuKeys(), before);

    // The group's name does not take part: "Résumé" lives under Edit.
    const auto group = QKShortcutGroup::shortcutGroupWithState(
        menuGroup("File", true, {shortcutState("Résumé", "showResume:", u'j', Command)}));
    group->refreshMenu();
    EXPECT_EQ(QKMainMenu::itemForPath({"Résumé"})->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_J));
}

TEST(QKShortcut, performChecksEnabledRepeatsAndValidation)
{
    Host host;
    auto nudge = groupAt(2);
    QKShortcut *right = nudge->shortcutAt(1);
    const QKeyEvent first = keyDown();
    const QKeyEvent repeat = keyDown(true);
    EXPECT_TRUE(right->perform(&first));
    EXPECT_FALSE(right->perform(&repeat));
    EXPECT_EQ(host.window.tags, QList<int>{5});
    QKShortcut *left = nudge->shortcutAt(0);
    EXPECT_TRUE(left->perform(&repeat));
    EXPECT_EQ(host.window.lastSender, left);
    left->setEnabled(false);
    EXPECT_FALSE(left->perform(&first));
    EXPECT_EQ(host.window.calls.value("nudgeLeft:"), 1);
    // A non-menu shortcut answers true even when nobody takes its action.
    EXPECT_TRUE(nudge->shortcutAt(2)->perform(&first));

    // Menu shortcuts need a target that validates them.
    auto file = groupAt(0);
    EXPECT_TRUE(file->shortcutAt(0)->perform(&first));
    host.window.allowDelete = false;
    EXPECT_FALSE(file->shortcutAt(2)->perform(&first));
    host.window.allowDelete = true;
    EXPECT_TRUE(file->shortcutAt(2)->perform(&first));
    file->shortcutAt(0)->setState({{"action", "noTarget:"}});
    EXPECT_FALSE(file->shortcutAt(0)->perform(&first));
    EXPECT_EQ(host.window.calls.value("newTrack:"), 1);
    EXPECT_EQ(host.window.calls.value("deleteTrack:"), 1);
}

TEST(QKShortcut, menuShortcutFlashesItsTitleWithoutOpeningTheMenu)
{
    Host host;
    QMenuBar *bar = host.window.menuBar();
    QAction *fileTitle = bar->actions().at(0);
    auto file = groupAt(0);
    const QKeyEvent event = keyDown();

    ASSERT_TRUE(file->shortcutAt(0)->perform(&event));
    // The title lit up before the action arrived.
    EXPECT_EQ(host.window.titleAtLastAction, fileTitle);
    EXPECT_EQ(bar->activeAction(), fileTitle);
    EXPECT_FALSE(fileTitle->menu()->isVisible());
    EXPECT_TRUE(QTest::qWaitFor([&] { return bar->activeAction() == nullptr; }, 2000));
    EXPECT_FALSE(fileTitle->menu()->isVisible());

    // A group without a top-level menu of its name sends the action without a flash.
    file->setName(u"Tracks"_s);
    ASSERT_TRUE(file->shortcutAt(0)->perform(&event));
    EXPECT_EQ(host.window.titleAtLastAction, nullptr);
    EXPECT_EQ(host.window.calls.value("newTrack:"), 2);
}
