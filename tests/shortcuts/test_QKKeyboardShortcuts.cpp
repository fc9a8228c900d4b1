#include "QKTestEnvironment.h"
#include "ShortcutTestHost.h"

#include <QKAlert.h>
#include <QKKeyboardShortcuts.h>
#include <QKMainMenu.h>
#include <QKPanelFrame.h>
#include <QKPropertyList.h>
#include <QKShortcut.h>
#include <QKShortcutGroup.h>
#include <QKUserDefaults.h>

#include <QAction>
#include <QFile>
#include <QGuiApplication>
#include <QScreen>

#include <gtest/gtest.h>

using namespace ShortcutTestHost;

namespace {

// The stored changes as the registry will read them at the next launch.
QVariant storedChanges()
{
    return QKPropertyList::fromData(defaults()->dataForKey(QKKeyboardShortcuts::CustomKey));
}

void load()
{
    registry()->loadShortcutsFromPreferencesWithChanges(true);
}

void relaunch()
{
    QKUserDefaults::resetStandardUserDefaults();
    load();
}

// Answers the file panels with @p path (cancels when empty); records each request's file
// types, and whether it saves, in @p requests.
void answerPanels(const QString &path, QStringList *requests = nullptr)
{
    QKFilePanels::setAnswerer([=](const QKFilePanelRequest &request, bool save) {
        if (requests)
            *requests << request.fileTypes.join(u' ') + (save ? u" save"_s : u" open"_s);
        return path.isEmpty() ? QStringList() : QStringList{path};
    });
}

class Registry : public ::testing::Test
{
protected:
    void SetUp() override
    {
        installBundle();
        load();
    }
};

} // namespace

TEST(QKKeyboardShortcuts, panelDefaultsAndNothingBeforeLoading)
{
    EXPECT_TRUE(registry()->groups().isEmpty());
    // Opening the panel before loading does nothing.
    QKKeyboardShortcuts::openPanel();
    QKKeyboardShortcuts::togglePanel();
    EXPECT_EQ(registry()->editor(), nullptr);
    EXPECT_TRUE(defaults()->boolForKey(QKKeyboardShortcuts::OpenKey));
    const QRectF visible = QKPanelFrame::mainScreenVisibleFrame();
    EXPECT_EQ(NSRectFromString(defaults()->stringForKey(QKKeyboardShortcuts::FrameKey)),
              QRectF(visible.right() - 375 - 4, visible.y() + 32, 375, 259));

    // Panel frames run up from the bottom-left corner of the main screen.
    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    const QRect geometry(100, 50, 375, 259);
    const QRectF frame = QKPanelFrame::fromScreenGeometry(geometry);
    EXPECT_EQ(frame, QRectF(100 - screen.x(), screen.y() + screen.height() - 50 - 259, 375, 259));
    EXPECT_EQ(QKPanelFrame::toScreenGeometry(frame), geometry);
}

TEST_F(Registry, loadsGroupsAndFindsShortcutsByKeyInListOrder)
{
    const QList<QKShortcutGroup *> groups = registry()->groups();
    ASSERT_EQ(groups.size(), 3);
    EXPECT_EQ(registry()->shortcutWithAction("undoChange:"), groups.at(1)->shortcutAt(1));
    EXPECT_EQ(registry()->shortcutWithKey(QKShortcutKey(0xF703, 0)), groups.at(2)->shortcutAt(1));
    EXPECT_EQ(registry()->shortcutWithKey(QKShortcutKey(u'y', Command)), nullptr);
    EXPECT_EQ(registry()->shortcutWithAction("nothing:"), nullptr);
    // Loading shows the keys in the menus.
    Window window;
    window.activate();
    load();
    EXPECT_EQ(QKMainMenu::itemForPath({"Export", "As Text"})->shortcut(),
              QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_E));
    EXPECT_EQ(QKMainMenu::itemForPath({"Delete Track"})->shortcut(),
              QKeySequence(Qt::CTRL | Qt::Key_Backspace));

    QKShortcut *newTrack = registry()->shortcutWithAction("newTrack:");
    QKShortcut *undo = registry()->shortcutWithAction("undoChange:");
    const QKShortcutKey commandT(u't', Command);
    // A later shortcut with the same key does not win while the earlier one holds it.
    undo->setKey(commandT);
    EXPECT_EQ(registry()->shortcutWithKey(commandT), newTrack);
    // Changing a key object directly is seen as well.
    newTrack->key()->clear();
    EXPECT_EQ(registry()->shortcutWithKey(commandT), undo);
    EXPECT_EQ(registry()->shortcutWithKey(QKShortcutKey()), newTrack);
    undo->key()->setModifiers(Option);
    EXPECT_EQ(registry()->shortcutWithKey(commandT), nullptr);
}

TEST(QKKeyboardShortcuts, missingOrMalformedResourceGivesNoGroups)
{
    const QByteArray broken[] = {
        QByteArray(), "<?xml version=\"1.0\"?><plist><array><dict><key>name",
        "<plist version=\"1.0\"><dict><key>name</key><string>File</string></dict></plist>",
        QByteArray("\x00\x01 not a property list", 24)};
    for (const QByteArray &contents : broken) {
        SCOPED_TRACE(contents.toStdString());
        installBundle();
        load();
        ASSERT_EQ(registry()->groups().size(), 3);
        installBundle(contents);
        load();
        EXPECT_TRUE(registry()->groups().isEmpty());
        EXPECT_EQ(registry()->shortcutWithKey(QKShortcutKey(u't', Command)), nullptr);
    }
    EXPECT_TRUE(logText().contains(u"shortcuts.xml is missing"_s));
    EXPECT_TRUE(logText().contains(u"not a property list array"_s));
}

TEST_F(Registry, loadChangesTakesTheKeyFromItsHolder)
{
    // ⌘T moves from New Track to Undo Change.
    registry()->loadChanges({shortcutState("Undo Change", "undoChange:", u't', Command)});
    EXPECT_EQ(keyOf("undoChange:"), QKShortcutKey(u't', Command));
    EXPECT_TRUE(keyOf("newTrack:").isClear());
    EXPECT_EQ(registry()->shortcutWithKey(QKShortcutKey(u't', Command)),
              registry()->shortcutWithAction("undoChange:"));

    // Only the key is taken: name, tag, repeats and enabled of a change are ignored.
    registry()->loadChanges({QVariantMap{{"name", "Renamed"},
                                         {"action", "nudgeLeft:"},
                                         {"tag", 99},
                                         {"enabled", false},
                                         {"character", 0xF700},
                                         {"modifiers", 0}}});
    EXPECT_EQ(registry()->shortcutWithAction("nudgeLeft:")->state(),
              shortcutState("Nudge Left", "nudgeLeft:", 0xF700, 0));

    // A change for an action that no longer exists still frees its key; entries that are not
    // dictionaries are skipped.
    registry()->loadChanges({u"junk"_s, shortcutState("Gone", "removedAction:", u'r', Command)});
    EXPECT_TRUE(keyOf("showResume:").isClear());
    EXPECT_EQ(registry()->shortcutWithAction("removedAction:"), nullptr);
}

TEST_F(Registry, changedKeysAreStoredAndComeBackAtTheNextLaunch)
{
    // Switching off is not a change, and does not outlive the next load.
    registry()->groups().at(0)->setEnabled(false);
    registry()->saveToDefaults();
    EXPECT_FALSE(defaults()->hasKey(QKKeyboardShortcuts::CustomKey));

    registry()->shortcutWithAction("nudgeRight:")->setKey(QKShortcutKey(u'.', Command));
    registry()->shortcutWithAction("exportText:")->clearKey();
    registry()->shortcutWithAction("undoChange:")->setKey(QKShortcutKey(u't', Command));
    // In the order of the default list, each the full current state.
    const QVariantList changes = registry()->changedShortcuts();
    ASSERT_EQ(changes.size(), 3);
    EXPECT_EQ(changes.at(0).toMap(), registry()->shortcutWithAction("exportText:")->state());
    EXPECT_EQ(changes.at(2).toMap(), registry()->shortcutWithAction("nudgeRight:")->state());
    // Kept as a binary property list in a data value.
    registry()->saveToDefaults();
    EXPECT_TRUE(defaults()->dataForKey(QKKeyboardShortcuts::CustomKey).startsWith("bplist"));
    EXPECT_EQ(storedChanges().toList(), changes);

    // At the next launch the other holder of a key ends up without it.
    relaunch();
    EXPECT_EQ(registry()->groups().at(0)->enabledState(), 1);
    EXPECT_EQ(keyOf("undoChange:"), QKShortcutKey(u't', Command));
    EXPECT_TRUE(keyOf("newTrack:").isClear());
    EXPECT_TRUE(keyOf("exportText:").isClear());

    // Restoring the defaults forgets every change, stored ones too.
    registry()->loadDefaultShortcuts(nullptr);
    EXPECT_EQ(keyOf("newTrack:"), QKShortcutKey(u't', Command));
    EXPECT_FALSE(defaults()->hasKey(QKKeyboardShortcuts::CustomKey));
    relaunch();
    EXPECT_EQ(keyOf("undoChange:"), QKShortcutKey(u'z', Command));
}

TEST(QKKeyboardShortcuts, undecodableStoredChangesApplyNothingAndLoseNothing)
{
    installBundle();
    const QByteArray garbage("bplist00 this is not what was archived");
    defaults()->setObject(garbage, QKKeyboardShortcuts::CustomKey);
    load();
    ASSERT_EQ(registry()->groups().size(), 3);
    EXPECT_TRUE(registry()->changedShortcuts().isEmpty());
    EXPECT_EQ(defaults()->dataForKey(QKKeyboardShortcuts::CustomKey), garbage);
    EXPECT_TRUE(logText().contains(u"undecodable shortcut changes"_s));
    // A stored value of another type is no change either.
    defaults()->setObject(u"text"_s, QKKeyboardShortcuts::CustomKey);
    load();
    EXPECT_TRUE(registry()->changedShortcuts().isEmpty());
}

TEST_F(Registry, exportWritesTheChangesAndImportAddsToThem)
{
    const QString path = QKTestEnvironment::homeFile(u"mine.qkshortcuts"_s);
    QStringList requests;
    answerPanels(path, &requests);
    // No changes: an empty array, as XML.
    registry()->saveShortcuts(nullptr);
    EXPECT_TRUE(QKTestEnvironment::readAll(path).startsWith("<?xml"));
    EXPECT_EQ(QKPropertyList::readFile(path), QVariant(QVariantList()));
    registry()->shortcutWithAction("nudgeLeft:")->setKey(QKShortcutKey(u'[', Command));
    registry()->saveShortcuts(nullptr);
    EXPECT_EQ(QKPropertyList::readFile(path).toList(), registry()->changedShortcuts());
    // Cancelled: nothing written. An unwritable place is logged.
    const QByteArray written = QKTestEnvironment::readAll(path);
    answerPanels(QString());
    registry()->shortcutWithAction("nudgeLeft:")->clearKey();
    registry()->saveShortcuts(nullptr);
    EXPECT_EQ(QKTestEnvironment::readAll(path), written);
    registry()->shortcutWithAction("nudgeLeft:")->setKey(QKShortcutKey(u'[', Command));
    answerPanels(QKTestEnvironment::homeFile(u"no/such/folder/x.qkshortcuts"_s));
    registry()->saveShortcuts(nullptr);
    EXPECT_TRUE(logText().contains(u"Could not export the shortcuts"_s));

    // Importing adds to the present changes and stores at once.
    QKPropertyList::writeFile(
        QVariantList{shortcutState("Undo Change", "undoChange:", u't', Command)}, path);
    answerPanels(path, &requests);
    registry()->loadShortcuts(static_cast<QObject *>(nullptr));
    EXPECT_EQ(requests, QStringList({"qkshortcuts save", "qkshortcuts save",
                                     "qkshortcuts lumoshortcuts open"}));
    EXPECT_EQ(keyOf("nudgeLeft:"), QKShortcutKey(u'[', Command));
    EXPECT_EQ(keyOf("undoChange:"), QKShortcutKey(u't', Command));
    EXPECT_TRUE(keyOf("newTrack:").isClear());
    EXPECT_EQ(storedChanges().toList().size(), 3);
}

TEST_F(Registry, importOfABadFileOrACancelChangesNothing)
{
    const QString dictionary = QKTestEnvironment::homeFile(u"dict.qkshortcuts"_s);
    QKPropertyList::writeFile(QVariantMap{{"action", "undoChange:"}}, dictionary);
    for (const QString &path :
         {dictionary, QKTestEnvironment::homeFile(u"missing.qkshortcuts"_s), QString()}) {
        answerPanels(path);
        registry()->loadShortcuts(static_cast<QObject *>(nullptr));
        EXPECT_TRUE(registry()->changedShortcuts().isEmpty()) << path.toStdString();
    }
    EXPECT_TRUE(logText().contains(u"Imported no shortcuts"_s));
    EXPECT_FALSE(defaults()->hasKey(QKKeyboardShortcuts::CustomKey));
}
