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

// Answers the next file panels with @p path (cancels when empty), recording the requests.
struct FilePanels
{
    QList<QKFilePanelRequest> requests;
    QList<bool> saves;

    void answer(const QString &path)
    {
        QKFilePanels::setAnswerer([=, this](const QKFilePanelRequest &request, bool save) {
            requests << request;
            saves << save;
            return path.isEmpty() ? QStringList() : QStringList{path};
        });
    }
};

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

TEST(QKKeyboardShortcuts, oneSharedInstanceWithPanelDefaults)
{
    EXPECT_EQ(QKKeyboardShortcuts::sharedInstance(), registry());
    EXPECT_TRUE(registry()->groups().isEmpty());
    // Opening the panel before loading does nothing.
    QKKeyboardShortcuts::openPanel();
    QKKeyboardShortcuts::togglePanel();
    EXPECT_EQ(registry()->editor(), nullptr);

    EXPECT_TRUE(defaults()->boolForKey(QKKeyboardShortcuts::OpenKey));
    const QRectF frame = NSRectFromString(defaults()->stringForKey(QKKeyboardShortcuts::FrameKey));
    const QRectF visible = QKPanelFrame::mainScreenVisibleFrame();
    ASSERT_FALSE(visible.isEmpty());
    EXPECT_EQ(frame, QRectF(visible.right() - 375 - 4, visible.y() + 32, 375, 259));
}

TEST(QKPanelFrame, framesRunUpFromTheBottomOfTheMainScreen)
{
    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    const QRect geometry(100, 50, 375, 259);
    const QRectF frame = QKPanelFrame::fromScreenGeometry(geometry);
    EXPECT_EQ(frame, QRectF(100 - screen.x(), screen.y() + screen.height() - 50 - 259, 375, 259));
    EXPECT_EQ(QKPanelFrame::toScreenGeometry(frame), geometry);
    // The bottom-left corner of the screen is the origin.
    EXPECT_EQ(QKPanelFrame::toScreenGeometry(QRectF(0, 0, 10, 10)),
              QRect(screen.x(), screen.y() + screen.height() - 10, 10, 10));
}

TEST_F(Registry, loadsGroupsFromTheBundleAndShowsTheirKeysInTheMenus)
{
    const QList<QKShortcutGroup *> groups = registry()->groups();
    ASSERT_EQ(groups.size(), 3);
    EXPECT_EQ(groups.at(0)->name(), u"File"_s);
    EXPECT_EQ(groups.at(2)->name(), u"Nudge"_s);
    EXPECT_FALSE(groups.at(2)->isMenu());
    EXPECT_EQ(registry()->shortcutWithAction("undoChange:"), groups.at(1)->shortcutAt(1));
    EXPECT_EQ(registry()->shortcutWithKey(QKShortcutKey(0xF703, 0)), groups.at(2)->shortcutAt(1));
    EXPECT_EQ(registry()->shortcutWithKey(QKShortcutKey(u'y', Command)), nullptr);
    EXPECT_EQ(registry()->shortcutWithAction("nothing:"), nullptr);

    Window window;
    window.activate();
    load();
    EXPECT_EQ(QKMainMenu::itemForPath({"New Track"})->shortcut(),
              QKeySequence(Qt::CTRL | Qt::Key_T));
    EXPECT_EQ(QKMainMenu::itemForPath({"Export", "As Text"})->shortcut(),
              QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_E));
    EXPECT_EQ(QKMainMenu::itemForPath({"Delete Track"})->shortcut(),
              QKeySequence(Qt::CTRL | Qt::Key_Backspace));
}

TEST_F(Registry, keyLookupsKeepFirstHitOrderAcrossKeyChanges)
{
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
    EXPECT_EQ(registry()->shortcutWithKey(QKShortcutKey(u't', Option)), undo);
}

TEST(QKKeyboardShortcuts, missingOrMalformedResourceGivesNoGroups)
{
    installBundle(QByteArray());
    load();
    EXPECT_TRUE(registry()->groups().isEmpty());
    EXPECT_TRUE(logText().contains(u"shortcuts.xml is missing"_s));

    for (const QByteArray &contents :
         {QByteArray("<?xml version=\"1.0\"?><plist><array><dict><key>name"),
          QByteArray("<plist version=\"1.0\"><dict><key>name</key><string>File</string></dict>"
                     "</plist>"),
          QByteArray("\x00\x01 not a property list")}) {
        SCOPED_TRACE(contents.toStdString());
        installBundle();
        load();
        ASSERT_EQ(registry()->groups().size(), 3);
        installBundle(contents);
        load();
        EXPECT_TRUE(registry()->groups().isEmpty());
        EXPECT_EQ(registry()->shortcutWithKey(QKShortcutKey(u't', Command)), nullptr);
    }
    EXPECT_TRUE(logText().contains(u"not a property list array"_s));
    EXPECT_TRUE(registry()->changedShortcuts().isEmpty());
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
    const QKShortcut *left = registry()->shortcutWithAction("nudgeLeft:");
    EXPECT_EQ(left->name(), u"Nudge Left"_s);
    EXPECT_EQ(left->tag(), 0);
    EXPECT_TRUE(left->enabled());
    EXPECT_EQ(*left->key(), QKShortcutKey(0xF700, 0));

    // A change for an action that no longer exists still frees its key; entries that are not
    // dictionaries are skipped.
    registry()->loadChanges({u"junk"_s, shortcutState("Gone", "removedAction:", u'r', Command)});
    EXPECT_TRUE(keyOf("showResume:").isClear());
    EXPECT_EQ(registry()->shortcutWithAction("removedAction:"), nullptr);
    EXPECT_EQ(keyOf("undoChange:"), QKShortcutKey(u't', Command));
}

TEST_F(Registry, changedKeysAreStoredAndComeBackAtTheNextLaunch)
{
    EXPECT_TRUE(registry()->changedShortcuts().isEmpty());
    // Switching off is not a change, and does not outlive the next load.
    registry()->groups().at(0)->setEnabled(false);
    EXPECT_TRUE(registry()->changedShortcuts().isEmpty());
    registry()->saveToDefaults();
    EXPECT_FALSE(defaults()->hasKey(QKKeyboardShortcuts::CustomKey));

    registry()->shortcutWithAction("nudgeRight:")->setKey(QKShortcutKey(u'.', Command));
    registry()->shortcutWithAction("exportText:")->clearKey();
    const QVariantList changes = registry()->changedShortcuts();
    // In the order of the default list, each the full current state.
    ASSERT_EQ(changes.size(), 2);
    EXPECT_EQ(changes.at(0).toMap(), registry()->shortcutWithAction("exportText:")->state());
    EXPECT_EQ(changes.at(1).toMap(), registry()->shortcutWithAction("nudgeRight:")->state());

    registry()->shortcutWithAction("undoChange:")->setKey(QKShortcutKey(u't', Command));
    registry()->saveToDefaults();
    // Kept as a binary property list in a data value.
    EXPECT_TRUE(defaults()->dataForKey(QKKeyboardShortcuts::CustomKey).startsWith("bplist"));
    EXPECT_EQ(storedChanges().toList().size(), 3);

    // At the next launch the other holder of a key ends up without it.
    relaunch();
    EXPECT_EQ(registry()->groups().at(0)->enabledState(), 1);
    EXPECT_EQ(keyOf("undoChange:"), QKShortcutKey(u't', Command));
    EXPECT_TRUE(keyOf("newTrack:").isClear());
    EXPECT_EQ(keyOf("nudgeRight:"), QKShortcutKey(u'.', Command));
    EXPECT_TRUE(keyOf("exportText:").isClear());

    // Without changes the stored value goes.
    registry()->loadShortcutsFromPreferencesWithChanges(false);
    registry()->saveToDefaults();
    EXPECT_FALSE(defaults()->hasKey(QKKeyboardShortcuts::CustomKey));
}

TEST(QKKeyboardShortcuts, undecodableStoredChangesApplyNothingAndLoseNothing)
{
    installBundle();
    const QByteArray garbage("bplist00 this is not what was archived");
    defaults()->setObject(garbage, QKKeyboardShortcuts::CustomKey);
    load();
    ASSERT_EQ(registry()->groups().size(), 3);
    EXPECT_EQ(keyOf("newTrack:"), QKShortcutKey(u't', Command));
    EXPECT_TRUE(registry()->changedShortcuts().isEmpty());
    EXPECT_EQ(defaults()->dataForKey(QKKeyboardShortcuts::CustomKey), garbage);
    EXPECT_TRUE(logText().contains(u"undecodable shortcut changes"_s));

    // A stored value of another type is no change either.
    defaults()->setObject(u"text"_s, QKKeyboardShortcuts::CustomKey);
    load();
    EXPECT_EQ(keyOf("newTrack:"), QKShortcutKey(u't', Command));
}

TEST_F(Registry, exportWritesTheChangesAsAPropertyList)
{
    const QString path = QKTestEnvironment::homeFile(u"mine.qkshortcuts"_s);
    FilePanels panels;
    panels.answer(path);
    // No changes: an empty array.
    registry()->saveShortcuts(nullptr);
    EXPECT_EQ(panels.saves, QList<bool>{true});
    EXPECT_EQ(panels.requests.at(0).fileTypes, QStringList{"qkshortcuts"});
    EXPECT_TRUE(QKTestEnvironment::readAll(path).startsWith("<?xml"));
    EXPECT_EQ(QKPropertyList::readFile(path), QVariant(QVariantList()));

    registry()->shortcutWithAction("showResume:")->setKey(QKShortcutKey(0xF704, Option));
    registry()->saveShortcuts(nullptr);
    EXPECT_EQ(QKPropertyList::readFile(path).toList(), registry()->changedShortcuts());
    EXPECT_EQ(registry()->changedShortcuts().size(), 1);

    // Cancelled: nothing written. An unwritable place is logged.
    QFile::remove(path);
    panels.answer(QString());
    registry()->saveShortcuts(nullptr);
    EXPECT_FALSE(QFile::exists(path));
    panels.answer(QKTestEnvironment::homeFile(u"no/such/folder/x.qkshortcuts"_s));
    registry()->saveShortcuts(nullptr);
    EXPECT_TRUE(logText().contains(u"Could not export the shortcuts"_s));
}

TEST_F(Registry, importAddsToThePresentChangesAndBadFilesChangeNothing)
{
    const QString bad = QKTestEnvironment::homeFile(u"dict.qkshortcuts"_s);
    QKPropertyList::writeFile(QVariantMap{{"action", "undoChange:"}}, bad);
    FilePanels panels;
    for (const QString &path : {bad, QKTestEnvironment::homeFile(u"missing.qkshortcuts"_s)}) {
        panels.answer(path);
        registry()->loadShortcuts(static_cast<QObject *>(nullptr));
        EXPECT_EQ(keyOf("undoChange:"), QKShortcutKey(u'z', Command));
        EXPECT_TRUE(registry()->changedShortcuts().isEmpty());
    }
    EXPECT_TRUE(logText().contains(u"Imported no shortcuts"_s));
    panels.answer(QString());
    registry()->loadShortcuts(static_cast<QObject *>(nullptr));
    EXPECT_FALSE(defaults()->hasKey(QKKeyboardShortcuts::CustomKey));

    registry()->shortcutWithAction("nudgeLeft:")->setKey(QKShortcutKey(u'[', Command));
    registry()->saveToDefaults();
    const QString theirs = QKTestEnvironment::homeFile(u"theirs.lumoshortcuts"_s);
    QKPropertyList::writeFile(
        QVariantList{shortcutState("Undo Change", "undoChange:", u't', Command)}, theirs);
    panels.requests.clear();
    panels.saves.clear();
    panels.answer(theirs);
    registry()->loadShortcuts(static_cast<QObject *>(nullptr));
    EXPECT_EQ(panels.saves, QList<bool>{false});
    EXPECT_EQ(panels.requests.at(0).fileTypes, QStringList({"qkshortcuts", "lumoshortcuts"}));
    EXPECT_EQ(keyOf("nudgeLeft:"), QKShortcutKey(u'[', Command));
    EXPECT_EQ(keyOf("undoChange:"), QKShortcutKey(u't', Command));
    EXPECT_TRUE(keyOf("newTrack:").isClear());
    // Stored at once: three differences now.
    EXPECT_EQ(storedChanges().toList().size(), 3);
}

TEST_F(Registry, restoreDefaultsForgetsEveryChange)
{
    registry()->shortcutWithAction("undoChange:")->setKey(QKShortcutKey(u't', Command));
    registry()->saveToDefaults();
    ASSERT_TRUE(defaults()->hasKey(QKKeyboardShortcuts::CustomKey));
    registry()->loadDefaultShortcuts(nullptr);
    EXPECT_EQ(keyOf("newTrack:"), QKShortcutKey(u't', Command));
    EXPECT_EQ(keyOf("undoChange:"), QKShortcutKey(u'z', Command));
    EXPECT_FALSE(defaults()->hasKey(QKKeyboardShortcuts::CustomKey));
    relaunch();
    EXPECT_EQ(keyOf("undoChange:"), QKShortcutKey(u'z', Command));
}
