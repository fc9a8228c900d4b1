#include "ShortcutTestHost.h"

#include <QKAboutPanel.h>
#include <QKEvents.h>
#include <QKKeyboardShortcutsExtensions.h>
#include <QKSplashScreen.h>

#include <QDialog>
#include <QFileDialog>
#include <QListView>
#include <QPushButton>
#include <QScreen>

using namespace ShortcutTestHost;

namespace {

void relaunch()
{
    QKUserDefaults::resetStandardUserDefaults();
    registry()->loadShortcutsFromPreferencesWithChanges(true);
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

// Counts the key events that reach a widget.
class KeySpy : public QObject
{
public:
    explicit KeySpy(QWidget *widget) { widget->installEventFilter(this); }
    QMap<QEvent::Type, int> seen;
    int presses() const { return seen.value(QEvent::KeyPress); }

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        ++seen[event->type()];
        return false;
    }
};

// The host window with the default list loaded, active, the table focused.
class Registry : public ::testing::Test
{
protected:
    void SetUp() override
    {
        loadBundle();
        host.activate();
    }
    Window host;
};
using ShortcutEvents = Registry;

void sendKey(QWidget *widget, Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier,
             const QString &text = QString(), bool autoRepeat = false)
{
    QKeyEvent press(QEvent::KeyPress, key, modifiers, text, autoRepeat);
    QApplication::sendEvent(widget, &press);
    QKeyEvent release(QEvent::KeyRelease, key, modifiers, text, autoRepeat);
    QApplication::sendEvent(widget, &release);
}

} // namespace

TEST(QKKeyboardShortcuts, nothingBeforeLoadingAndFramesRunUpFromTheScreenBottom)
{
    EXPECT_TRUE(registry()->groups().isEmpty());
    QKKeyboardShortcuts::openPanel();
    QKKeyboardShortcuts::togglePanel();
    EXPECT_EQ(registry()->editor(), nullptr);

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
    EXPECT_EQ(menuKey({"Delete Track"}), QKeySequence(Qt::CTRL | Qt::Key_Backspace));

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
        QByteArrayLiteral("\x00\x01 not a property list")};
    for (const QByteArray &contents : broken) {
        SCOPED_TRACE(contents.toStdString());
        loadBundle();
        ASSERT_EQ(registry()->groups().size(), 3);
        loadBundle(contents);
        EXPECT_TRUE(registry()->groups().isEmpty());
        EXPECT_EQ(registry()->shortcutWithKey(QKShortcutKey(u't', Command)), nullptr);
    }
    EXPECT_TRUE(logText().contains(u"shortcuts.xml is missing"_s));
    EXPECT_TRUE(logText().contains(u"not a property list array"_s));

    // Keys take the usual path then; modifier changes are still consumed.
    Window window;
    window.activate();
    KeySpy spy(window.table);
    QTest::keyClick(window.table, Qt::Key_T, Qt::ControlModifier);
    QTest::keyPress(window.table, Qt::Key_Control);
    EXPECT_EQ(spy.presses(), 1);
    EXPECT_EQ(window.totalCalls(), 0);
}

// Taking a key from its holder is checked at relaunch and import below.
TEST_F(Registry, loadChangesTakesOnlyTheKeyAndFreesKeysOfGoneActions)
{
    // Only the key is taken: name, tag, repeats and enabled of a change are ignored.
    registry()->loadChanges({shortcutState("Renamed", "nudgeLeft:", 0xF700, 0, false, true, 99)});
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
    EXPECT_EQ(storedChanges(), changes);

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
    const QByteArray garbage("bplist00 this is not what was archived");
    defaults()->setObject(garbage, QKKeyboardShortcuts::CustomKey);
    loadBundle();
    ASSERT_EQ(registry()->groups().size(), 3);
    EXPECT_TRUE(registry()->changedShortcuts().isEmpty());
    EXPECT_EQ(defaults()->dataForKey(QKKeyboardShortcuts::CustomKey), garbage);
    EXPECT_TRUE(logText().contains(u"undecodable shortcut changes"_s));
    // A stored value of another type is no change either.
    defaults()->setObject(u"text"_s, QKKeyboardShortcuts::CustomKey);
    registry()->loadShortcutsFromPreferencesWithChanges(true);
    EXPECT_TRUE(registry()->changedShortcuts().isEmpty());
}

TEST_F(Registry, exportWritesTheChangesAndImportAddsToThem)
{
    // Cancelled: nothing written. An unwritable place is logged.
    answerPanels(QString());
    registry()->saveShortcuts(nullptr);
    answerPanels(QKTestEnvironment::homeFile(u"no/such/folder/x.qkshortcuts"_s));
    registry()->saveShortcuts(nullptr);
    EXPECT_TRUE(logText().contains(u"Could not export the shortcuts"_s));
    EXPECT_EQ(QDir(QKTestEnvironment::homePath()).entryList({u"*.qkshortcuts"_s}), QStringList());

    // No changes: an empty array, as XML.
    const QString path = QKTestEnvironment::homeFile(u"mine.qkshortcuts"_s);
    QStringList requests;
    answerPanels(path, &requests);
    registry()->saveShortcuts(nullptr);
    EXPECT_TRUE(QKTestEnvironment::readAll(path).startsWith("<?xml"));
    EXPECT_EQ(QKPropertyList::readFile(path), QVariant(QVariantList()));
    registry()->shortcutWithAction("nudgeLeft:")->setKey(QKShortcutKey(u'[', Command));
    registry()->saveShortcuts(nullptr);
    EXPECT_EQ(QKPropertyList::readFile(path).toList(), registry()->changedShortcuts());

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
    EXPECT_EQ(storedChanges().size(), 3);
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

TEST_F(ShortcutEvents, consumedShortcutFiresOnceOnEveryDeliveryPath)
{
    KeySpy spy(host.table);
    // A window action with the same key: what Qt would fire itself.
    QAction qtShortcut;
    qtShortcut.setShortcut(QKeySequence(Qt::CTRL | Qt::Key_T));
    host.addAction(&qtShortcut);
    int qtFired = 0;
    QObject::connect(&qtShortcut, &QAction::triggered, [&qtFired] { ++qtFired; });

    // As the window system delivers it: override to the window, then the press.
    QTest::keyClick(host.windowHandle(), Qt::Key_T, Qt::ControlModifier);
    // As QTest delivers to a widget: override first, then a spontaneous press.
    QTest::keyClick(host.table, Qt::Key_T, Qt::ControlModifier);
    // Sent straight to the widget: the press first, the override inside its delivery.
    sendKey(host.table, Qt::Key_T, Qt::ControlModifier, u"\x14"_s);
    EXPECT_EQ(host.calls.value("newTrack:"), 3);
    EXPECT_EQ(host.totalCalls(), 3);
    EXPECT_EQ(qtFired, 0);
    EXPECT_EQ(spy.presses(), 0);
    // The menu item shows the key but did not fire either.
    EXPECT_EQ(host.lastSender, registry()->shortcutWithAction("newTrack:"));

    // Unmatched keys reach the widget and Qt unchanged.
    qtShortcut.setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Y));
    QTest::keyClick(host.windowHandle(), Qt::Key_Y, Qt::ControlModifier);
    EXPECT_EQ(qtFired, 1);
    QTest::keyClick(host.table, Qt::Key_K, Qt::ControlModifier);
    sendKey(host.table, Qt::Key_J, Qt::ControlModifier);
    EXPECT_EQ(spy.presses(), 2);
    EXPECT_EQ(host.totalCalls(), 3);
}

TEST_F(ShortcutEvents, keysWithoutACharacterNeverFireNotEvenClearedShortcuts)
{
    // Clear keys that such a press would equal: "Unbound" has none (and, a plain shortcut,
    // consumes a key even though nobody takes its action), Play none with Command.
    registry()->shortcutWithAction("play:")->setKey(QKShortcutKey(0, Command));
    KeySpy spy(host.table);
    const QMetaEnum keys = QMetaEnum::fromType<Qt::Key>();
    int sent = 0;
    for (int index = 0; index < keys.keyCount(); ++index) {
        const auto key = Qt::Key(keys.value(index));
        const QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier);
        if (QKEvents::characterForKey(key, QString()) != 0 ||
            QKKeyboardShortcutsExtensions::isFlagsChanged(&press))
            continue;
        for (Qt::KeyboardModifier modifier : {Qt::NoModifier, Qt::ControlModifier}) {
            sendKey(host.table, key, modifier);
            ++sent;
        }
    }
    EXPECT_GT(sent, 300);
    EXPECT_EQ(spy.presses(), sent);
    EXPECT_EQ(host.totalCalls(), 0);

    // Keys with a function-key code are keys like any other.
    registry()->shortcutWithAction("play:")->setKey(QKShortcutKey(0xF727, 0));
    QTest::keyClick(host.table, Qt::Key_Insert);
    EXPECT_EQ(host.calls.value("play:"), 1);
}

TEST_F(ShortcutEvents, shortcutsThatCannotFireLetTheKeyPass)
{
    KeySpy spy(host.table);
    // A menu shortcut whose target does not validate it.
    host.allowDelete = false;
    QTest::keyClick(host.table, Qt::Key_Backspace, Qt::ControlModifier);
    EXPECT_EQ(spy.presses(), 1);
    host.allowDelete = true;
    QTest::keyClick(host.table, Qt::Key_Backspace, Qt::ControlModifier);
    EXPECT_EQ(host.calls.value("deleteTrack:"), 1);
    EXPECT_EQ(spy.presses(), 1);

    // A held key repeats unless its shortcut prohibits repeats; those repeats go on.
    for (bool repeat : {false, true, true}) {
        sendKey(host.table, Qt::Key_Right, Qt::NoModifier, QString(), repeat);
        sendKey(host.table, Qt::Key_Left, Qt::NoModifier, QString(), repeat);
    }
    EXPECT_EQ(host.calls.value("nudgeRight:"), 1);
    EXPECT_EQ(host.calls.value("nudgeLeft:"), 3);
    EXPECT_EQ(spy.presses(), 3);

    // An open menu, and a disabled shortcut.
    QMenu *file = host.menuBar()->actions().at(0)->menu();
    file->popup(QPoint(10, 10));
    ASSERT_EQ(QApplication::activePopupWidget(), file);
    QTest::keyClick(file, Qt::Key_T, Qt::ControlModifier);
    file->hide();
    registry()->shortcutWithAction("newTrack:")->setEnabled(false);
    QTest::keyClick(host.table, Qt::Key_T, Qt::ControlModifier);
    EXPECT_EQ(host.calls.value("newTrack:"), 0);
    EXPECT_EQ(spy.presses(), 4);
}

TEST_F(ShortcutEvents, textFieldsGetTheirTextAndModifiersAndNeverFire)
{
    host.activate(host.field);
    QTest::keyClicks(host.field, u"a b"_s);
    QTest::keyClick(host.field, Qt::Key_Left);
    QTest::keyClick(host.field, Qt::Key_T, Qt::ControlModifier);
    QTest::keyClick(host.windowHandle(), Qt::Key_R, Qt::ControlModifier);
    sendKey(host.field, Qt::Key_Space, Qt::NoModifier, u" "_s);
    EXPECT_EQ(host.field->text(), u"a  b"_s);
    KeySpy fieldSpy(host.field);
    QTest::keyPress(host.field, Qt::Key_Shift);
    QTest::keyRelease(host.field, Qt::Key_Shift);
    EXPECT_EQ(fieldSpy.presses(), 1);
    EXPECT_EQ(fieldSpy.seen.value(QEvent::KeyRelease), 1);
    EXPECT_EQ(host.totalCalls(), 0);

    // Elsewhere, modifier changes are consumed and the same space plays.
    host.activate(host.table);
    KeySpy tableSpy(host.table);
    QTest::keyPress(host.table, Qt::Key_Shift);
    QTest::keyRelease(host.table, Qt::Key_Shift);
    sendKey(host.table, Qt::Key_Alt, Qt::AltModifier);
    EXPECT_EQ(tableSpy.presses(), 0);
    EXPECT_EQ(tableSpy.seen.value(QEvent::KeyRelease), 0);
    QTest::keyClick(host.table, Qt::Key_Space);
    EXPECT_EQ(host.calls.value("play:"), 1);
}

TEST_F(ShortcutEvents, tablesKeepVerticalArrowsAndOutlinesEveryArrow)
{
    host.table->setCurrentIndex(host.rows->index(0, 0));
    QTest::keyClick(host.table, Qt::Key_Down);
    QTest::keyClick(host.windowHandle(), Qt::Key_Down);
    EXPECT_EQ(host.table->currentIndex().row(), 2);
    QTest::keyClick(host.table, Qt::Key_Up);
    EXPECT_EQ(host.table->currentIndex().row(), 1);
    EXPECT_EQ(host.totalCalls(), 0);
    QTest::keyClick(host.table, Qt::Key_Left);
    EXPECT_EQ(host.calls.value("nudgeLeft:"), 1);
    EXPECT_EQ(host.table->currentIndex().column(), 0);

    // A list view counts as a table.
    QListView list;
    list.setModel(host.rows);
    host.centralWidget()->layout()->addWidget(&list);
    host.activate(&list);
    list.setCurrentIndex(host.rows->index(0, 0));
    QTest::keyClick(&list, Qt::Key_Down);
    EXPECT_EQ(list.currentIndex().row(), 1);
    QTest::keyClick(&list, Qt::Key_Right);
    EXPECT_EQ(host.calls.value("nudgeRight:"), 1);

    // Outlines keep every arrow; other keys still fire there.
    host.activate(host.tree);
    const QModelIndex first = host.rows->index(0, 0);
    host.tree->setCurrentIndex(first);
    QTest::keyClick(host.tree, Qt::Key_Right);
    EXPECT_TRUE(host.tree->isExpanded(first));
    QTest::keyClick(host.tree, Qt::Key_Left);
    EXPECT_FALSE(host.tree->isExpanded(first));
    QTest::keyClick(host.tree, Qt::Key_Down);
    EXPECT_EQ(host.tree->currentIndex().row(), 1);
    EXPECT_EQ(host.totalCalls(), 2);
    QTest::keyClick(host.tree, Qt::Key_T, Qt::ControlModifier);
    EXPECT_EQ(host.calls.value("newTrack:"), 1);
}

TEST_F(ShortcutEvents, dialogsKeepTheirKeysUnlessFloating)
{
    QDialog dialog(&host);
    auto *button = new QPushButton(u"Go"_s, &dialog);
    dialog.setModal(true);
    activate(&dialog, button);
    KeySpy spy(button);
    QTest::keyClick(button, Qt::Key_T, Qt::ControlModifier);
    QTest::keyClick(dialog.windowHandle(), Qt::Key_Left);
    // Control, T and Left: modifier changes pass as well.
    EXPECT_EQ(spy.presses(), 3);
    dialog.hide();

    // File dialogs keep their keys even when floating.
    QFileDialog files(&host);
    files.setOption(QFileDialog::DontUseNativeDialog);
    files.setWindowFlag(Qt::Tool);
    auto *filesList = files.findChild<QListView *>(u"listView"_s);
    ASSERT_NE(filesList, nullptr);
    activate(&files, filesList);
    QTest::keyClick(filesList, Qt::Key_T, Qt::ControlModifier);
    files.hide();
    EXPECT_EQ(host.totalCalls(), 0);

    // A floating panel lets them through to the shortcuts.
    dialog.setModal(false);
    dialog.setWindowFlag(Qt::Tool);
    activate(&dialog, button);
    QTest::keyClick(button, Qt::Key_T, Qt::ControlModifier);
    EXPECT_EQ(host.calls.value("newTrack:"), 1);
}

TEST_F(ShortcutEvents, aboutAndTheSplashScreenAreWindowsNotPanels)
{
    QKAboutPanel::setFadeDuration(0);
    QKSplashScreen::setFadeDuration(0);
    QKAboutPanel::openPanel();
    QKSplashScreen::splashScreen()->open();
    int fired = 0;
    for (QWidget *window :
         {QKAboutPanel::aboutPanel()->window(), QKSplashScreen::splashScreen()->window()}) {
        ASSERT_TRUE(window->isVisible());
        QApplication::setActiveWindow(window);
        QTest::keyClick(window->windowHandle(), Qt::Key_T, Qt::ControlModifier);
        EXPECT_EQ(host.calls.value("newTrack:"), ++fired) << qPrintable(window->objectName());
    }
}
