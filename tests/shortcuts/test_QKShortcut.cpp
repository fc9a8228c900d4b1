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

QAction *menuItem(const QStringList &path)
{
    return QKMainMenu::itemForPath(path);
}

QKeyEvent keyDown(bool autoRepeat = false)
{
    return QKeyEvent(QEvent::KeyPress, Qt::Key_T, Qt::ControlModifier, QStringLiteral("t"),
                     autoRepeat);
}

} // namespace

TEST(QKShortcut, stateWritesAllSevenEntries)
{
    const QVariantMap source =
        shortcutState("Export>As Text", "exportText:", u'e', Command | Shift, true, true, 7);
    const auto shortcut = QKShortcut::shortcutWithState(source);
    EXPECT_EQ(shortcut->name(), QStringLiteral("Export>As Text"));
    EXPECT_EQ(shortcut->action(), QByteArray("exportText:"));
    EXPECT_EQ(shortcut->tag(), 7);
    EXPECT_TRUE(shortcut->prohibitRepeats());
    EXPECT_TRUE(shortcut->enabled());
    EXPECT_EQ(*shortcut->key(), QKShortcutKey(u'e', Command | Shift));

    const QVariantMap state = shortcut->state();
    EXPECT_EQ(state.size(), 7);
    EXPECT_EQ(state.value("action").toString(), QStringLiteral("exportText:"));
    EXPECT_EQ(state.value("character").toInt(), int(u'e'));
    EXPECT_EQ(state.value("modifiers").toLongLong(), qint64(Command | Shift));
    EXPECT_EQ(QKShortcut::shortcutWithState(state)->state(), state);
}

TEST(QKShortcut, missingEntriesKeepValuesAndNewShortcutsAreDisabled)
{
    const auto shortcut = QKShortcut::shortcutWithState({{"name", "Play"}, {"action", "play:"}});
    EXPECT_FALSE(shortcut->enabled());
    EXPECT_TRUE(shortcut->key()->isClear());
    EXPECT_EQ(shortcut->tag(), 0);

    shortcut->setState({{"character", int(u'p')}, {"modifiers", qint64(Command)}, {"tag", 3}});
    shortcut->setState({{"character", int(u'q')}});
    EXPECT_EQ(shortcut->name(), QStringLiteral("Play"));
    EXPECT_EQ(*shortcut->key(), QKShortcutKey(u'q', Command));
    EXPECT_EQ(shortcut->tag(), 3);
}

TEST(QKShortcutGroup, stateCopyAndLookups)
{
    const auto group = groupAt(0);
    EXPECT_EQ(group->name(), QStringLiteral("File"));
    EXPECT_TRUE(group->isMenu());
    ASSERT_EQ(group->count(), 3);
    for (QKShortcut *shortcut : group->shortcuts())
        EXPECT_EQ(shortcut->group(), group.get());
    EXPECT_EQ(group->state(), defaultList().at(0).toMap());

    // A copy is deep: new shortcuts and keys.
    const auto copy = group->copy();
    EXPECT_EQ(copy->state(), group->state());
    EXPECT_NE(copy->shortcutAt(0), group->shortcutAt(0));
    copy->shortcutAt(0)->key()->clear();
    EXPECT_FALSE(group->shortcutAt(0)->key()->isClear());

    EXPECT_EQ(group->shortcutWithAction("deleteTrack:"), group->shortcutAt(2));
    EXPECT_EQ(group->shortcutWithAction("nothing:"), nullptr);
    EXPECT_EQ(group->shortcutWithKey(QKShortcutKey(u'e', Command | Shift)), group->shortcutAt(1));
    EXPECT_EQ(group->shortcutWithKey(QKShortcutKey(u'e', Command)), nullptr);

    // First hit in list order; a clear key finds the first shortcut without a key.
    group->shortcutAt(2)->key()->clear();
    group->shortcutAt(1)->key()->clear();
    EXPECT_EQ(group->shortcutWithKey(QKShortcutKey()), group->shortcutAt(1));

    // A state without "shortcuts" keeps the list; one with it rebuilds it.
    group->setState({{"name", "Track"}});
    EXPECT_EQ(group->count(), 3);
    EXPECT_EQ(group->name(), QStringLiteral("Track"));
    group->setState({{"shortcuts", QVariantList{}}});
    EXPECT_EQ(group->count(), 0);
}

TEST(QKShortcutGroup, enabledIsThreeValued)
{
    auto group = groupAt(2);
    EXPECT_EQ(group->enabled(), Qt::Checked);
    EXPECT_EQ(group->enabledState(), 1);
    group->shortcutAt(1)->setEnabled(false);
    EXPECT_EQ(group->enabledState(), -1);
    group->setEnabled(false);
    EXPECT_EQ(group->enabledState(), 0);
    EXPECT_FALSE(group->shortcutAt(0)->enabled());

    QKShortcutGroup empty;
    EXPECT_EQ(empty.enabled(), Qt::PartiallyChecked);
    EXPECT_EQ(empty.enabledState(), -1);

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
    Window window;
    window.activate();
    auto file = groupAt(0);
    file->refreshMenu();
    QAction *asText = menuItem({"Export", "As Text"});
    ASSERT_NE(asText, nullptr);
    EXPECT_EQ(asText->shortcut(), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_E));
    EXPECT_EQ(asText->shortcutContext(), Qt::WidgetShortcut);
    EXPECT_EQ(asText->property("tag").toInt(), 7);

    QKShortcut *shortcut = file->shortcutAt(1);
    shortcut->setKey(QKShortcutKey(u'x', Option));
    EXPECT_EQ(asText->shortcut(), QKeySequence(Qt::ALT | Qt::Key_X));

    // Disabled: no key equivalent, but action and tag stay.
    shortcut->setEnabled(false);
    EXPECT_TRUE(asText->shortcut().isEmpty());
    EXPECT_EQ(asText->property(QKMenus::ActionProperty).toByteArray(), QByteArray("exportText:"));
    EXPECT_EQ(asText->property("tag").toInt(), 7);

    shortcut->setEnabled(true);
    shortcut->clearKey();
    EXPECT_TRUE(asText->shortcut().isEmpty());
    EXPECT_EQ(asText->property(QKKeyEquivalentProperty).toString(), QString(QChar(0)));

    // The menu item sends the action that the shortcut names.
    file->shortcutAt(0)->setState({{"action", "deleteTrack:"}});
    file->shortcutAt(0)->refreshMenuItem();
    menuItem({"New Track"})->trigger();
    EXPECT_EQ(window.calls.value("deleteTrack:"), 1);
}

TEST(QKShortcut, unresolvedPathsAndPlainGroupsTouchNoMenuItem)
{
    Window window;
    window.activate();
    QList<QKeySequence> before;
    const auto collect = [&window] {
        QList<QKeySequence> keys;
        for (QAction *top : window.menuBar()->actions())
            for (QAction *item : top->menu()->actions())
                keys << item->shortcut();
        return keys;
    };
    before = collect();

    QKShortcutGroup group;
    group.setState(
        {{"name", "File"},
         {"isMenu", true},
         {"shortcuts", QVariantList{shortcutState("Export>As PDF", "exportPDF:", u'p', Command),
                                    shortcutState("Nowhere", "newTrack:", u'n', Command)}}});
    group.refreshMenu();
    EXPECT_EQ(collect(), before);

    // The same path in a group that is not a menu leaves the menus alone.
    QKShortcutGroup plain;
    plain.setState(
        {{"name", "File"},
         {"isMenu", false},
         {"shortcuts", QVariantList{shortcutState("New Track", "newTrack:", u'n', Command)}}});
    plain.refreshMenu();
    plain.shortcutAt(0)->setKey(QKShortcutKey(u'm', Command));
    EXPECT_EQ(collect(), before);
}

TEST(QKShortcut, pathsResolveFromAnyTopLevelMenu)
{
    Window window;
    window.activate();
    // The group's name does not take part: "Résumé" lives under Edit.
    QKShortcutGroup group;
    group.setState(
        {{"name", "File"},
         {"isMenu", true},
         {"shortcuts", QVariantList{shortcutState("Résumé", "showResume:", u'j', Command)}}});
    group.refreshMenu();
    EXPECT_EQ(menuItem({"Résumé"})->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_J));
}

TEST(QKShortcut, performChecksEnabledAndRepeats)
{
    Window window;
    window.activate();
    auto nudge = groupAt(2);
    QKShortcut *right = nudge->shortcutAt(1);
    const QKeyEvent first = keyDown();
    const QKeyEvent repeat = keyDown(true);
    EXPECT_TRUE(right->perform(&first));
    EXPECT_FALSE(right->perform(&repeat));
    EXPECT_EQ(window.calls.value("nudgeRight:"), 1);
    EXPECT_EQ(window.tags, QList<int>{5});

    QKShortcut *left = nudge->shortcutAt(0);
    EXPECT_TRUE(left->perform(&repeat));
    EXPECT_EQ(window.lastSender, left);
    left->setEnabled(false);
    EXPECT_FALSE(left->perform(&first));
    EXPECT_EQ(window.calls.value("nudgeLeft:"), 1);

    // A non-menu shortcut answers true even when nobody takes its action.
    EXPECT_TRUE(nudge->shortcutAt(2)->perform(&first));
}

TEST(QKShortcut, menuShortcutsNeedATargetThatValidates)
{
    Window window;
    window.activate();
    auto file = groupAt(0);
    const QKeyEvent event = keyDown();
    EXPECT_TRUE(file->shortcutAt(0)->perform(&event));
    EXPECT_EQ(window.calls.value("newTrack:"), 1);

    window.allowDelete = false;
    EXPECT_FALSE(file->shortcutAt(2)->perform(&event));
    window.allowDelete = true;
    EXPECT_TRUE(file->shortcutAt(2)->perform(&event));
    EXPECT_EQ(window.calls.value("deleteTrack:"), 1);

    file->shortcutAt(0)->setState({{"action", "noTarget:"}});
    EXPECT_FALSE(file->shortcutAt(0)->perform(&event));
    EXPECT_EQ(window.totalCalls(), 2);
}

TEST(QKShortcut, menuShortcutFlashesItsTitleWithoutOpeningTheMenu)
{
    Window window;
    window.activate();
    QMenuBar *bar = window.menuBar();
    QAction *fileTitle = bar->actions().at(0);
    auto file = groupAt(0);
    const QKeyEvent event = keyDown();

    ASSERT_TRUE(file->shortcutAt(0)->perform(&event));
    // The title lit up before the action arrived.
    EXPECT_EQ(window.titleAtLastAction, fileTitle);
    EXPECT_EQ(bar->activeAction(), fileTitle);
    EXPECT_FALSE(fileTitle->menu()->isVisible());
    EXPECT_TRUE(QTest::qWaitFor([&] { return bar->activeAction() == nullptr; }, 2000));
    EXPECT_FALSE(fileTitle->menu()->isVisible());

    // A group without a top-level menu of its name sends the action without a flash.
    file->setName(QStringLiteral("Tracks"));
    ASSERT_TRUE(file->shortcutAt(0)->perform(&event));
    EXPECT_EQ(window.titleAtLastAction, nullptr);
    EXPECT_EQ(window.calls.value("newTrack:"), 2);
}
