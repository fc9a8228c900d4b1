#include "ShortcutTestHost.h"

#include <QKKeyboardShortcuts.h>
#include <QKShortcut.h>

#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QFileDialog>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QStandardItemModel>
#include <QTableView>
#include <QTest>
#include <QTreeView>
#include <QVBoxLayout>

#include <gtest/gtest.h>

using namespace ShortcutTestHost;

namespace {

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
struct Host : Window
{
    Host()
    {
        installBundle();
        registry()->loadShortcutsFromPreferencesWithChanges(true);
        activate();
    }
};

void sendKey(QWidget *widget, Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier,
             const QString &text = QString(), bool autoRepeat = false)
{
    QKeyEvent press(QEvent::KeyPress, key, modifiers, text, autoRepeat);
    QApplication::sendEvent(widget, &press);
    QKeyEvent release(QEvent::KeyRelease, key, modifiers, text, autoRepeat);
    QApplication::sendEvent(widget, &release);
}

} // namespace

TEST(ShortcutEvents, consumedShortcutFiresOnceOnEveryDeliveryPath)
{
    Host host;
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
    EXPECT_EQ(spy.seen.value(QEvent::ShortcutOverride), 0);
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

TEST(ShortcutEvents, shortcutsThatCannotFireLetTheKeyPass)
{
    Host host;
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

TEST(ShortcutEvents, textFieldsGetTheirTextAndModifiersAndNeverFire)
{
    Host host;
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

TEST(ShortcutEvents, tablesKeepVerticalArrowsAndOutlinesEveryArrow)
{
    Host host;
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

TEST(ShortcutEvents, dialogsKeepTheirKeysUnlessFloating)
{
    Host host;
    QDialog dialog(&host);
    auto *button = new QPushButton(u"Go"_s, &dialog);
    new QVBoxLayout(&dialog);
    dialog.layout()->addWidget(button);
    dialog.setModal(true);
    dialog.show();
    QApplication::setActiveWindow(&dialog);
    button->setFocus();
    KeySpy spy(button);
    QTest::keyClick(button, Qt::Key_T, Qt::ControlModifier);
    QTest::keyClick(dialog.windowHandle(), Qt::Key_Left);
    // Control, T and Left: modifier changes pass as well.
    EXPECT_EQ(spy.presses(), 3);
    dialog.hide();

    QFileDialog files(&host);
    files.setOption(QFileDialog::DontUseNativeDialog);
    files.setWindowFlag(Qt::Tool);
    files.show();
    QApplication::setActiveWindow(&files);
    auto *filesList = files.findChild<QListView *>(u"listView"_s);
    ASSERT_NE(filesList, nullptr);
    filesList->setFocus();
    QTest::keyClick(filesList, Qt::Key_T, Qt::ControlModifier);
    files.hide();
    EXPECT_EQ(host.totalCalls(), 0);

    // A floating panel lets them through to the shortcuts.
    QDialog panel(&host, Qt::Tool);
    auto *panelButton = new QPushButton(u"Go"_s, &panel);
    panel.show();
    QApplication::setActiveWindow(&panel);
    panelButton->setFocus();
    QTest::keyClick(panelButton, Qt::Key_T, Qt::ControlModifier);
    EXPECT_EQ(host.calls.value("newTrack:"), 1);
}

TEST(ShortcutEvents, withoutDefaultListKeysTakeTheUsualPath)
{
    installBundle(QByteArray());
    registry()->loadShortcutsFromPreferencesWithChanges(true);
    Window window;
    window.activate();
    KeySpy spy(window.table);
    QTest::keyClick(window.table, Qt::Key_T, Qt::ControlModifier);
    QTest::keyPress(window.table, Qt::Key_Control);
    EXPECT_EQ(spy.presses(), 1);
    EXPECT_EQ(window.totalCalls(), 0);
}
