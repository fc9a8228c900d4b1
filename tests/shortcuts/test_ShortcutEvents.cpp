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
    int presses = 0;
    int releases = 0;
    int overrides = 0;

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        switch (event->type()) {
        case QEvent::KeyPress:
            ++presses;
            break;
        case QEvent::KeyRelease:
            ++releases;
            break;
        case QEvent::ShortcutOverride:
            ++overrides;
            break;
        default:
            break;
        }
        return false;
    }
};

// A window action with an application-wide shortcut: what Qt would fire itself.
struct QtShortcut
{
    QAction action;
    int fired = 0;
    QtShortcut(QWidget *window, const QKeySequence &key)
    {
        action.setShortcut(key);
        action.setShortcutContext(Qt::WindowShortcut);
        window->addAction(&action);
        QObject::connect(&action, &QAction::triggered, [this] { ++fired; });
    }
};

struct Host
{
    Window window;
    Host()
    {
        installDefaultList();
        QKKeyboardShortcuts::sharedInstance()->loadShortcutsFromPreferencesWithChanges(true);
        window.activate();
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
    KeySpy spy(host.window.table);
    QtShortcut qtShortcut(&host.window, QKeySequence(Qt::CTRL | Qt::Key_T));

    // As the window system delivers it: override to the window, then the press.
    QTest::keyClick(host.window.windowHandle(), Qt::Key_T, Qt::ControlModifier);
    EXPECT_EQ(host.window.calls.value("newTrack:"), 1);
    // As QTest delivers to a widget: override first, then a spontaneous press.
    QTest::keyClick(host.window.table, Qt::Key_T, Qt::ControlModifier);
    EXPECT_EQ(host.window.calls.value("newTrack:"), 2);
    // Sent straight to the widget: the press first, the override inside its delivery.
    sendKey(host.window.table, Qt::Key_T, Qt::ControlModifier, QStringLiteral("\x14"));
    EXPECT_EQ(host.window.calls.value("newTrack:"), 3);

    EXPECT_EQ(host.window.totalCalls(), 3);
    EXPECT_EQ(qtShortcut.fired, 0);
    EXPECT_EQ(spy.presses, 0);
    EXPECT_EQ(spy.overrides, 0);
    // The menu item shows the key but did not fire either.
    EXPECT_EQ(host.window.lastSender,
              QKKeyboardShortcuts::sharedInstance()->shortcutWithAction("newTrack:"));
}

TEST(ShortcutEvents, unmatchedKeysReachTheWidgetAndQtUnchanged)
{
    Host host;
    KeySpy spy(host.window.table);
    QtShortcut qtShortcut(&host.window, QKeySequence(Qt::CTRL | Qt::Key_Y));
    QTest::keyClick(host.window.windowHandle(), Qt::Key_Y, Qt::ControlModifier);
    EXPECT_EQ(qtShortcut.fired, 1);
    QTest::keyClick(host.window.table, Qt::Key_K, Qt::ControlModifier);
    sendKey(host.window.table, Qt::Key_J, Qt::ControlModifier);
    EXPECT_EQ(spy.presses, 2);
    EXPECT_EQ(host.window.totalCalls(), 0);
}

TEST(ShortcutEvents, menuShortcutThatDoesNotValidatePassesTheKeyOn)
{
    Host host;
    KeySpy spy(host.window.table);
    host.window.allowDelete = false;
    QTest::keyClick(host.window.table, Qt::Key_Backspace, Qt::ControlModifier);
    EXPECT_EQ(host.window.calls.value("deleteTrack:"), 0);
    EXPECT_EQ(spy.presses, 1);
    host.window.allowDelete = true;
    QTest::keyClick(host.window.table, Qt::Key_Backspace, Qt::ControlModifier);
    EXPECT_EQ(host.window.calls.value("deleteTrack:"), 1);
    EXPECT_EQ(spy.presses, 1);
}

TEST(ShortcutEvents, textFieldsGetTheirTextAndNeverFire)
{
    Host host;
    QLineEdit *field = host.window.field;
    host.window.activate(field);
    QTest::keyClicks(field, QStringLiteral("a b"));
    EXPECT_EQ(field->text(), QStringLiteral("a b"));
    QTest::keyClick(field, Qt::Key_Left);
    QTest::keyClick(field, Qt::Key_T, Qt::ControlModifier);
    QTest::keyClick(host.window.windowHandle(), Qt::Key_R, Qt::ControlModifier);
    sendKey(field, Qt::Key_Space, Qt::NoModifier, QStringLiteral(" "));
    EXPECT_EQ(field->text(), QStringLiteral("a  b"));
    EXPECT_EQ(host.window.totalCalls(), 0);

    // The same space in the table plays.
    host.window.activate(host.window.table);
    QTest::keyClick(host.window.table, Qt::Key_Space);
    EXPECT_EQ(host.window.calls.value("play:"), 1);
}

TEST(ShortcutEvents, tablesKeepVerticalArrowsOnly)
{
    Host host;
    QTableView *table = host.window.table;
    table->setCurrentIndex(host.window.rows->index(0, 0));
    QTest::keyClick(table, Qt::Key_Down);
    EXPECT_EQ(table->currentIndex().row(), 1);
    QTest::keyClick(host.window.windowHandle(), Qt::Key_Down);
    EXPECT_EQ(table->currentIndex().row(), 2);
    QTest::keyClick(table, Qt::Key_Up);
    EXPECT_EQ(table->currentIndex().row(), 1);
    EXPECT_EQ(host.window.totalCalls(), 0);

    QTest::keyClick(table, Qt::Key_Left);
    EXPECT_EQ(host.window.calls.value("nudgeLeft:"), 1);
    EXPECT_EQ(table->currentIndex().column(), 0);

    // A list view counts as a table.
    QListView list;
    list.setModel(host.window.rows);
    host.window.centralWidget()->layout()->addWidget(&list);
    host.window.activate(&list);
    list.setCurrentIndex(host.window.rows->index(0, 0));
    QTest::keyClick(&list, Qt::Key_Down);
    EXPECT_EQ(list.currentIndex().row(), 1);
    QTest::keyClick(&list, Qt::Key_Right);
    EXPECT_EQ(host.window.calls.value("nudgeRight:"), 1);
}

TEST(ShortcutEvents, outlinesKeepEveryArrow)
{
    Host host;
    QTreeView *tree = host.window.tree;
    host.window.activate(tree);
    tree->setCurrentIndex(host.window.rows->index(0, 0));
    QTest::keyClick(tree, Qt::Key_Right);
    EXPECT_TRUE(tree->isExpanded(host.window.rows->index(0, 0)));
    QTest::keyClick(tree, Qt::Key_Left);
    EXPECT_FALSE(tree->isExpanded(host.window.rows->index(0, 0)));
    QTest::keyClick(tree, Qt::Key_Down);
    EXPECT_EQ(tree->currentIndex().row(), 1);
    EXPECT_EQ(host.window.totalCalls(), 0);
    // Other keys still fire there.
    QTest::keyClick(tree, Qt::Key_T, Qt::ControlModifier);
    EXPECT_EQ(host.window.calls.value("newTrack:"), 1);
}

TEST(ShortcutEvents, dialogsThatAreNotFloatingKeepTheirKeys)
{
    Host host;
    QDialog dialog(&host.window);
    auto *button = new QPushButton(QStringLiteral("Go"), &dialog);
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
    EXPECT_EQ(spy.presses, 3);
    EXPECT_EQ(host.window.totalCalls(), 0);
    dialog.hide();

    // A floating panel lets them through to the shortcuts.
    QDialog panel(&host.window, Qt::Tool);
    auto *panelButton = new QPushButton(QStringLiteral("Go"), &panel);
    panel.show();
    QApplication::setActiveWindow(&panel);
    panelButton->setFocus();
    QTest::keyClick(panelButton, Qt::Key_T, Qt::ControlModifier);
    EXPECT_EQ(host.window.calls.value("newTrack:"), 1);
}

TEST(ShortcutEvents, fileDialogsKeepTheirKeys)
{
    Host host;
    QFileDialog dialog(&host.window);
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    dialog.setWindowFlag(Qt::Tool);
    dialog.show();
    QApplication::setActiveWindow(&dialog);
    auto *list = dialog.findChild<QListView *>(QStringLiteral("listView"));
    ASSERT_NE(list, nullptr);
    list->setFocus();
    QTest::keyClick(list, Qt::Key_T, Qt::ControlModifier);
    EXPECT_EQ(host.window.totalCalls(), 0);
}

TEST(ShortcutEvents, modifierChangesAreConsumedOutsideTextFields)
{
    Host host;
    KeySpy tableSpy(host.window.table);
    QTest::keyPress(host.window.table, Qt::Key_Shift);
    QTest::keyRelease(host.window.table, Qt::Key_Shift);
    sendKey(host.window.table, Qt::Key_Alt, Qt::AltModifier);
    EXPECT_EQ(tableSpy.presses, 0);
    EXPECT_EQ(tableSpy.releases, 0);

    host.window.activate(host.window.field);
    KeySpy fieldSpy(host.window.field);
    QTest::keyPress(host.window.field, Qt::Key_Shift);
    QTest::keyRelease(host.window.field, Qt::Key_Shift);
    EXPECT_EQ(fieldSpy.presses, 1);
    EXPECT_EQ(fieldSpy.releases, 1);
    EXPECT_EQ(host.window.totalCalls(), 0);
}

TEST(ShortcutEvents, heldKeysRepeatUnlessProhibited)
{
    Host host;
    KeySpy spy(host.window.table);
    for (bool repeat : {false, true, true}) {
        sendKey(host.window.table, Qt::Key_Right, Qt::NoModifier, QString(), repeat);
        sendKey(host.window.table, Qt::Key_Left, Qt::NoModifier, QString(), repeat);
    }
    EXPECT_EQ(host.window.calls.value("nudgeRight:"), 1);
    EXPECT_EQ(host.window.calls.value("nudgeLeft:"), 3);
    // Repeats that do not fire go on to the widget.
    EXPECT_EQ(spy.presses, 2);
}

TEST(ShortcutEvents, openMenusAndDisabledShortcutsLetKeysPass)
{
    Host host;
    QMenu *file = host.window.menuBar()->actions().at(0)->menu();
    file->popup(QPoint(10, 10));
    ASSERT_EQ(QApplication::activePopupWidget(), file);
    QTest::keyClick(file, Qt::Key_T, Qt::ControlModifier);
    file->hide();
    EXPECT_EQ(host.window.totalCalls(), 0);

    QKKeyboardShortcuts::sharedInstance()->shortcutWithAction("newTrack:")->setEnabled(false);
    KeySpy spy(host.window.table);
    QTest::keyClick(host.window.table, Qt::Key_T, Qt::ControlModifier);
    EXPECT_EQ(host.window.totalCalls(), 0);
    EXPECT_EQ(spy.presses, 1);
}

TEST(ShortcutEvents, withoutDefaultListKeysTakeTheUsualPath)
{
    installEmptyBundle();
    QKKeyboardShortcuts::sharedInstance()->loadShortcutsFromPreferencesWithChanges(true);
    Window window;
    window.activate();
    KeySpy spy(window.table);
    QTest::keyClick(window.table, Qt::Key_T, Qt::ControlModifier);
    QTest::keyPress(window.table, Qt::Key_Control);
    EXPECT_EQ(spy.presses, 1);
    EXPECT_EQ(window.totalCalls(), 0);
}
