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
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QScreen>

#include <gtest/gtest.h>

using namespace ShortcutTestHost;

namespace {

QKKeyboardShortcuts *registry()
{
    return QKKeyboardShortcuts::sharedInstance();
}

QKKeyboardShortcuts *loadedRegistry()
{
    installDefaultList();
    registry()->loadShortcutsFromPreferencesWithChanges(true);
    return registry();
}

QKShortcutKey keyOf(const QByteArray &action)
{
    const QKShortcut *shortcut = registry()->shortcutWithAction(action);
    return shortcut ? *shortcut->key() : QKShortcutKey(0xFFFF, 0xFFFF);
}

QKUserDefaults *defaults()
{
    return QKUserDefaults::standardUserDefaults();
}

// The stored changes as the registry will read them at the next launch.
QVariant storedChanges()
{
    return QKPropertyList::fromData(defaults()->dataForKey(QKKeyboardShortcuts::CustomKey));
}

void relaunch()
{
    QKUserDefaults::resetStandardUserDefaults();
    registry()->loadShortcutsFromPreferencesWithChanges(true);
}

QString writeExchangeFile(const QString &name, const QVariant &contents)
{
    const QString path = QDir(QKTestEnvironment::homePath()).filePath(name);
    QKPropertyList::writeFile(contents, path);
    return path;
}

void answerPanelsWith(const QString &path, QList<QKFilePanelRequest> *requests = nullptr,
                      QList<bool> *saves = nullptr)
{
    QKFilePanels::setAnswerer([=](const QKFilePanelRequest &request, bool save) {
        if (requests)
            requests->append(request);
        if (saves)
            saves->append(save);
        return path.isEmpty() ? QStringList() : QStringList{path};
    });
}

} // namespace

TEST(QKKeyboardShortcuts, oneSharedInstance)
{
    EXPECT_EQ(QKKeyboardShortcuts::sharedInstance(), QKKeyboardShortcuts::sharedInstance());
    EXPECT_TRUE(registry()->groups().isEmpty());
    EXPECT_EQ(registry()->editor(), nullptr);
    // Opening the panel before loading does nothing.
    QKKeyboardShortcuts::openPanel();
    QKKeyboardShortcuts::togglePanel();
    EXPECT_EQ(registry()->editor(), nullptr);
}

TEST(QKKeyboardShortcuts, registersPanelDefaults)
{
    registry();
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

TEST(QKKeyboardShortcuts, loadsGroupsFromTheBundleResource)
{
    loadedRegistry();
    const QList<QKShortcutGroup *> groups = registry()->groups();
    ASSERT_EQ(groups.size(), 3);
    EXPECT_EQ(groups.at(0)->name(), QStringLiteral("File"));
    EXPECT_EQ(groups.at(2)->name(), QStringLiteral("Nudge"));
    EXPECT_FALSE(groups.at(2)->isMenu());
    EXPECT_EQ(registry()->shortcutWithAction("undoChange:"), groups.at(1)->shortcutAt(1));
    EXPECT_EQ(registry()->shortcutWithKey(QKShortcutKey(0xF703, 0)), groups.at(2)->shortcutAt(1));
    EXPECT_EQ(registry()->shortcutWithKey(QKShortcutKey(u'y', Command)), nullptr);
    EXPECT_EQ(registry()->shortcutWithAction("nothing:"), nullptr);
}

TEST(QKKeyboardShortcuts, loadingShowsDefaultKeysInTheMenus)
{
    Window window;
    window.activate();
    loadedRegistry();
    EXPECT_EQ(QKMainMenu::itemForPath({"New Track"})->shortcut(),
              QKeySequence(Qt::CTRL | Qt::Key_T));
    EXPECT_EQ(QKMainMenu::itemForPath({"Export", "As Text"})->shortcut(),
              QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_E));
    EXPECT_EQ(QKMainMenu::itemForPath({"Delete Track"})->shortcut(),
              QKeySequence(Qt::CTRL | Qt::Key_Backspace));
}

TEST(QKKeyboardShortcuts, keyLookupsKeepFirstHitOrderAcrossKeyChanges)
{
    loadedRegistry();
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
    installEmptyBundle();
    registry()->loadShortcutsFromPreferencesWithChanges(true);
    EXPECT_TRUE(registry()->groups().isEmpty());
    EXPECT_TRUE(logText().contains(QStringLiteral("shortcuts.xml is missing")));

    for (const QByteArray &contents :
         {QByteArray("<?xml version=\"1.0\"?><plist><array><dict><key>name"),
          QByteArray("<plist version=\"1.0\"><dict><key>name</key><string>File</string></dict>"
                     "</plist>"),
          QByteArray("\x00\x01 not a property list")}) {
        installDefaultList();
        registry()->loadShortcutsFromPreferencesWithChanges(true);
        ASSERT_EQ(registry()->groups().size(), 3);
        installRawResource(contents);
        registry()->loadShortcutsFromPreferencesWithChanges(true);
        EXPECT_TRUE(registry()->groups().isEmpty()) << contents.constData();
        EXPECT_EQ(registry()->shortcutWithKey(QKShortcutKey(u't', Command)), nullptr);
    }
    EXPECT_TRUE(logText().contains(QStringLiteral("not a property list array")));
    EXPECT_TRUE(registry()->changedShortcuts().isEmpty());
}

TEST(QKKeyboardShortcuts, loadChangesTakesTheKeyFromItsHolder)
{
    loadedRegistry();
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
    EXPECT_EQ(left->name(), QStringLiteral("Nudge Left"));
    EXPECT_EQ(left->tag(), 0);
    EXPECT_TRUE(left->enabled());
    EXPECT_EQ(*left->key(), QKShortcutKey(0xF700, 0));

    // A change for an action that no longer exists still frees its key; entries that are not
    // dictionaries are skipped.
    registry()->loadChanges(
        {QStringLiteral("junk"), shortcutState("Gone", "removedAction:", u'r', Command)});
    EXPECT_TRUE(keyOf("showResume:").isClear());
    EXPECT_EQ(registry()->shortcutWithAction("removedAction:"), nullptr);
    EXPECT_EQ(keyOf("undoChange:"), QKShortcutKey(u't', Command));
}

TEST(QKKeyboardShortcuts, changedShortcutsListsKeysThatDifferFromTheDefaults)
{
    loadedRegistry();
    EXPECT_TRUE(registry()->changedShortcuts().isEmpty());

    // Switching off is not a change.
    registry()->shortcutWithAction("newTrack:")->setEnabled(false);
    EXPECT_TRUE(registry()->changedShortcuts().isEmpty());

    registry()->shortcutWithAction("nudgeRight:")->setKey(QKShortcutKey(u'.', Command));
    registry()->shortcutWithAction("exportText:")->clearKey();
    const QVariantList changes = registry()->changedShortcuts();
    ASSERT_EQ(changes.size(), 2);
    // In the order of the default list, each the full current state.
    EXPECT_EQ(changes.at(0).toMap(), registry()->shortcutWithAction("exportText:")->state());
    EXPECT_EQ(changes.at(1).toMap().value("action").toString(), QStringLiteral("nudgeRight:"));
    EXPECT_EQ(changes.at(1).toMap().value("character").toInt(), int(u'.'));
    EXPECT_EQ(changes.at(1).toMap().size(), 7);
}

TEST(QKKeyboardShortcuts, savedChangesComeBackAtTheNextLaunch)
{
    loadedRegistry();
    registry()->shortcutWithAction("undoChange:")->setKey(QKShortcutKey(u't', Command));
    registry()->saveToDefaults();
    const QVariant stored = storedChanges();
    ASSERT_EQ(stored.typeId(), QMetaType::QVariantList);
    EXPECT_EQ(stored.toList().size(), 1);
    // Kept as a binary property list in a data value.
    EXPECT_TRUE(defaults()->dataForKey(QKKeyboardShortcuts::CustomKey).startsWith("bplist"));

    // At the next launch the other holder of the key ends up without a key.
    relaunch();
    EXPECT_EQ(keyOf("undoChange:"), QKShortcutKey(u't', Command));
    EXPECT_TRUE(keyOf("newTrack:").isClear());

    // Without changes the key is removed.
    registry()->loadShortcutsFromPreferencesWithChanges(false);
    registry()->saveToDefaults();
    EXPECT_FALSE(defaults()->hasKey(QKKeyboardShortcuts::CustomKey));
}

TEST(QKKeyboardShortcuts, enabledChangesLastUntilTheNextLoad)
{
    loadedRegistry();
    registry()->groups().at(0)->setEnabled(false);
    registry()->saveToDefaults();
    EXPECT_FALSE(defaults()->hasKey(QKKeyboardShortcuts::CustomKey));
    relaunch();
    EXPECT_EQ(registry()->groups().at(0)->enabledState(), 1);
}

TEST(QKKeyboardShortcuts, undecodableStoredChangesApplyNothingAndLoseNothing)
{
    installDefaultList();
    const QByteArray garbage("bplist00 this is not what was archived");
    defaults()->setObject(garbage, QKKeyboardShortcuts::CustomKey);
    registry()->loadShortcutsFromPreferencesWithChanges(true);
    ASSERT_EQ(registry()->groups().size(), 3);
    EXPECT_EQ(keyOf("newTrack:"), QKShortcutKey(u't', Command));
    EXPECT_TRUE(registry()->changedShortcuts().isEmpty());
    EXPECT_EQ(defaults()->dataForKey(QKKeyboardShortcuts::CustomKey), garbage);
    EXPECT_TRUE(logText().contains(QStringLiteral("undecodable shortcut changes")));

    // A stored value of another type is no change either.
    defaults()->setObject(QStringLiteral("text"), QKKeyboardShortcuts::CustomKey);
    registry()->loadShortcutsFromPreferencesWithChanges(true);
    EXPECT_EQ(keyOf("newTrack:"), QKShortcutKey(u't', Command));
}

TEST(QKKeyboardShortcuts, exportWritesTheChangesAsAPropertyList)
{
    loadedRegistry();
    const QString path = QDir(QKTestEnvironment::homePath()).filePath("mine.qkshortcuts");
    QList<QKFilePanelRequest> requests;
    QList<bool> saves;
    answerPanelsWith(path, &requests, &saves);

    // No changes: an empty array.
    registry()->saveShortcuts(nullptr);
    ASSERT_EQ(requests.size(), 1);
    EXPECT_EQ(saves, QList<bool>{true});
    EXPECT_EQ(requests.at(0).fileTypes, QStringList{"qkshortcuts"});
    QVariant written = QKPropertyList::readFile(path);
    EXPECT_EQ(written.typeId(), QMetaType::QVariantList);
    EXPECT_TRUE(written.toList().isEmpty());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_TRUE(file.readAll().startsWith("<?xml"));

    registry()->shortcutWithAction("showResume:")->setKey(QKShortcutKey(0xF704, Option));
    registry()->saveShortcuts(nullptr);
    written = QKPropertyList::readFile(path);
    EXPECT_EQ(written.toList(), registry()->changedShortcuts());
    EXPECT_EQ(written.toList().size(), 1);

    // Cancelled: nothing written.
    QFile::remove(path);
    answerPanelsWith(QString());
    registry()->saveShortcuts(nullptr);
    EXPECT_FALSE(QFile::exists(path));

    // An unwritable place is logged.
    answerPanelsWith(QDir(QKTestEnvironment::homePath()).filePath("no/such/folder/x.qkshortcuts"));
    registry()->saveShortcuts(nullptr);
    EXPECT_TRUE(logText().contains(QStringLiteral("Could not export the shortcuts")));
}

TEST(QKKeyboardShortcuts, importAddsToThePresentChanges)
{
    loadedRegistry();
    registry()->shortcutWithAction("nudgeLeft:")->setKey(QKShortcutKey(u'[', Command));
    registry()->saveToDefaults();

    const QString path =
        writeExchangeFile("theirs.lumoshortcuts",
                          QVariantList{shortcutState("Undo Change", "undoChange:", u't', Command)});
    QList<QKFilePanelRequest> requests;
    QList<bool> saves;
    answerPanelsWith(path, &requests, &saves);
    registry()->loadShortcuts(static_cast<QObject *>(nullptr));
    ASSERT_EQ(requests.size(), 1);
    EXPECT_EQ(saves, QList<bool>{false});
    EXPECT_EQ(requests.at(0).fileTypes, (QStringList{"qkshortcuts", "lumoshortcuts"}));

    EXPECT_EQ(keyOf("nudgeLeft:"), QKShortcutKey(u'[', Command));
    EXPECT_EQ(keyOf("undoChange:"), QKShortcutKey(u't', Command));
    EXPECT_TRUE(keyOf("newTrack:").isClear());
    // Stored at once: three differences now.
    EXPECT_EQ(storedChanges().toList().size(), 3);
}

TEST(QKKeyboardShortcuts, importOfABadFileChangesNothing)
{
    loadedRegistry();
    for (const QString &path :
         {writeExchangeFile("dict.qkshortcuts", QVariantMap{{"action", "undoChange:"}}),
          QDir(QKTestEnvironment::homePath()).filePath("missing.qkshortcuts")}) {
        answerPanelsWith(path);
        registry()->loadShortcuts(static_cast<QObject *>(nullptr));
        EXPECT_EQ(keyOf("undoChange:"), QKShortcutKey(u'z', Command));
        EXPECT_TRUE(registry()->changedShortcuts().isEmpty());
    }
    EXPECT_TRUE(logText().contains(QStringLiteral("Imported no shortcuts")));

    answerPanelsWith(QString());
    registry()->loadShortcuts(static_cast<QObject *>(nullptr));
    EXPECT_FALSE(defaults()->hasKey(QKKeyboardShortcuts::CustomKey));
}

TEST(QKKeyboardShortcuts, restoreDefaultsForgetsEveryChange)
{
    loadedRegistry();
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
