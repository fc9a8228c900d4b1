#include "QKTestEnvironment.h"
#include "ShortcutTestHost.h"

#include <QKAlert.h>
#include <QKKeyboardShortcuts.h>
#include <QKKeyboardShortcutsEditor.h>
#include <QKMainMenu.h>
#include <QKPanelFrame.h>
#include <QKPropertyList.h>
#include <QKShortcut.h>
#include <QKShortcutGroup.h>
#include <QKShortcutsModel.h>
#include <QKUserDefaults.h>

#include <QAction>
#include <QApplication>
#include <QColor>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableView>
#include <QTest>
#include <QTreeView>

#include <gtest/gtest.h>

using namespace ShortcutTestHost;

namespace {

QKKeyboardShortcuts *registry()
{
    return QKKeyboardShortcuts::sharedInstance();
}

QKUserDefaults *defaults()
{
    return QKUserDefaults::standardUserDefaults();
}

// The host window with the shortcuts loaded through the editor, as a host starts up.
struct Editor
{
    Window window;
    QKKeyboardShortcutsEditor *editor = nullptr;
    QKShortcutsModel *model = nullptr;
    QTreeView *table = nullptr;

    Editor()
    {
        installDefaultList();
        window.activate();
        QKKeyboardShortcuts::loadShortcuts();
        editor = registry()->editor();
        model = editor->model();
        table = editor->shortcutsTable();
        // The offscreen platform does not activate windows itself; the window system would.
        if (editor->panel()->isVisible())
            QApplication::setActiveWindow(editor->panel());
    }

    QModelIndex groupRow(const QString &title) const
    {
        for (int row = 0; row < model->rowCount(); ++row) {
            if (model->index(row, QKShortcutsModel::NameColumn).data().toString() == title)
                return model->index(row, 0);
        }
        return QModelIndex();
    }

    QModelIndex shortcutRow(const QString &group, int row, int column = 0) const
    {
        return model->index(row, column, groupRow(group));
    }

    QStringList rowTitles() const
    {
        QStringList titles;
        for (int row = 0; row < model->rowCount(); ++row) {
            const QModelIndex group = model->index(row, QKShortcutsModel::NameColumn);
            titles << group.data().toString();
            for (int child = 0; child < model->rowCount(model->index(row, 0)); ++child)
                titles << QStringLiteral("  ") + model
                                                     ->index(child, QKShortcutsModel::NameColumn,
                                                             group.siblingAtColumn(0))
                                                     .data()
                                                     .toString();
        }
        return titles;
    }

    // Opens the sheet the way the user does: a double-click on the row.
    void doubleClick(const QString &group, int row)
    {
        table->expand(groupRow(group));
        const QModelIndex index = shortcutRow(group, row, QKShortcutsModel::NameColumn);
        table->scrollTo(index);
        // A click first: the double-click needs the pressed row.
        const QPoint point = table->visualRect(index).center();
        QTest::mouseClick(table->viewport(), Qt::LeftButton, Qt::NoModifier, point);
        QTest::mouseDClick(table->viewport(), Qt::LeftButton, Qt::NoModifier, point);
        if (editor->isSettingShortcut())
            QApplication::setActiveWindow(sheet());
    }

    QWidget *sheet() const { return editor->setShortcutPanel(); }
    QString message() const { return editor->setShortcutOutroText()->text(); }
    QString keyLabel() const { return editor->shortcutText()->text(); }

    void type(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QTest::keyClick(sheet()->windowHandle(), key, modifiers);
    }
};

QKShortcutKey keyOf(const QByteArray &action)
{
    return *registry()->shortcutWithAction(action)->key();
}

} // namespace

TEST(QKKeyboardShortcutsEditor, opensAtTheRegisteredFrameOnFirstLaunch)
{
    Editor host;
    QWidget *panel = host.editor->panel();
    EXPECT_TRUE(panel->isVisible());
    EXPECT_EQ(panel->windowType(), Qt::Tool);
    EXPECT_EQ(panel->windowTitle(), QStringLiteral("Keyboard Shortcuts"));
    const QRectF visible = QKPanelFrame::mainScreenVisibleFrame();
    EXPECT_EQ(QKPanelFrame::frameOf(panel),
              QRectF(visible.right() - 375 - 4, visible.y() + 32, 375, 259));
    EXPECT_TRUE(defaults()->boolForKey(QKKeyboardShortcuts::OpenKey));
    EXPECT_EQ(host.model->rowCount(), 3);
}

TEST(QKKeyboardShortcutsEditor, storedFramesAreWidenedAndZeroFramesReplaced)
{
    defaults()->setObject(NSStringFromRect(QRectF(10, 20, 300, 280)),
                          QKKeyboardShortcuts::FrameKey);
    defaults()->setBool(false, QKKeyboardShortcuts::OpenKey);
    Editor host;
    EXPECT_FALSE(host.editor->panel()->isVisible());
    EXPECT_EQ(host.editor->panel()->geometry(),
              QKPanelFrame::toScreenGeometry(QRectF(10, 20, 375, 280)));
}

TEST(QKKeyboardShortcutsEditor, zeroFrameFallsBackToAFixedPlace)
{
    defaults()->setObject(QStringLiteral("{{0, 0}, {0, 0}}"), QKKeyboardShortcuts::FrameKey);
    Editor host;
    EXPECT_EQ(host.editor->panel()->geometry(),
              QKPanelFrame::toScreenGeometry(QRectF(613, 97, 375, 259)));
}

TEST(QKKeyboardShortcutsEditor, togglingAndMovingAreRemembered)
{
    Editor host;
    QWidget *panel = host.editor->panel();
    QApplication::setActiveWindow(panel);
    QKKeyboardShortcuts::togglePanel();
    EXPECT_FALSE(panel->isVisible());
    EXPECT_FALSE(defaults()->boolForKey(QKKeyboardShortcuts::OpenKey));

    QKKeyboardShortcuts::togglePanel();
    EXPECT_TRUE(panel->isVisible());
    EXPECT_TRUE(defaults()->boolForKey(QKKeyboardShortcuts::OpenKey));

    // Visible but another window is active: toggling brings it forward instead.
    QApplication::setActiveWindow(&host.window);
    QKKeyboardShortcuts::togglePanel();
    EXPECT_TRUE(panel->isVisible());

    // Moves are stored; a resize waits for the next move.
    panel->setGeometry(40, 60, 400, 300);
    QCoreApplication::processEvents();
    const QRectF stored = NSRectFromString(defaults()->stringForKey(QKKeyboardShortcuts::FrameKey));
    EXPECT_EQ(stored, QKPanelFrame::frameOf(panel));
    EXPECT_EQ(QKPanelFrame::toScreenGeometry(stored), QRect(40, 60, 400, 300));
    panel->resize(420, 300);
    QCoreApplication::processEvents();
    EXPECT_EQ(NSRectFromString(defaults()->stringForKey(QKKeyboardShortcuts::FrameKey)), stored);
}

TEST(QKKeyboardShortcutsEditor, outlineShowsGroupsAndShortcuts)
{
    Editor host;
    EXPECT_EQ(host.rowTitles(),
              (QStringList{"File Menu", "  New Track", "  Export>As Text", "  Delete Track",
                           "Edit Menu", "  Résumé", "  Undo Change", "Nudge", "  Nudge Left",
                           "  Nudge Right", "  Unbound", "  Play"}));
    for (int column = 0; column < QKShortcutsModel::ColumnCount; ++column)
        EXPECT_EQ(host.model->headerData(column, Qt::Horizontal, QKShortcutsModel::ObjectValueRole)
                      .toString(),
                  QKShortcutsModel::columnIdentifier(column));
    EXPECT_EQ(QKShortcutsModel::columnIdentifier(QKShortcutsModel::EnabledColumn), "enabled");
    EXPECT_EQ(QKShortcutsModel::columnIdentifier(QKShortcutsModel::ShortcutColumn), "shortcut");

    const QModelIndex file = host.groupRow("File Menu");
    EXPECT_TRUE(host.model->hasChildren(file));
    EXPECT_FALSE(host.model->hasChildren(host.shortcutRow("File Menu", 0)));
    EXPECT_FALSE(file.siblingAtColumn(QKShortcutsModel::ShortcutColumn).data().isValid());
    // Shown without the empty modifier slots, which the cell value keeps.
    const QModelIndex exportKey =
        host.shortcutRow("File Menu", 1, QKShortcutsModel::ShortcutColumn);
    EXPECT_EQ(exportKey.data().toString(), QStringLiteral("\u21E7\u2318E"));
    EXPECT_EQ(exportKey.data(QKShortcutsModel::ObjectValueRole).toString(),
              QKShortcutKey(u'e', Command | Shift).displayString());
    EXPECT_EQ(host.shortcutRow("Nudge", 2, QKShortcutsModel::ShortcutColumn).data().toString(),
              QString());
    EXPECT_EQ(host.shortcutRow("File Menu", 0, QKShortcutsModel::ShortcutColumn)
                  .data(Qt::ForegroundRole)
                  .value<QColor>(),
              QColor(Qt::black));
    EXPECT_EQ(file.data(Qt::CheckStateRole).toInt(), Qt::Checked);
    EXPECT_TRUE(host.model->flags(file) & Qt::ItemIsUserCheckable);
}

TEST(QKKeyboardShortcutsEditor, searchIgnoresCaseAndAccents)
{
    Editor host;
    QLineEdit *search = host.editor->searchText();
    QTest::keyClicks(search, QStringLiteral("resume"));
    EXPECT_EQ(host.rowTitles(), (QStringList{"Edit Menu", "  Résumé"}));
    EXPECT_TRUE(host.table->isExpanded(host.groupRow("Edit Menu")));
    // The rows are the registry's own shortcuts.
    EXPECT_EQ(host.model->shortcutForIndex(host.shortcutRow("Edit Menu", 0)),
              registry()->shortcutWithAction("showResume:"));

    search->clear();
    QTest::keyClicks(search, QStringLiteral("NUDGE r"));
    EXPECT_EQ(host.rowTitles(), (QStringList{"Nudge", "  Nudge Right"}));

    // A group's own name does not match; nothing found shows nothing.
    search->clear();
    QTest::keyClicks(search, QStringLiteral("Edit"));
    EXPECT_EQ(host.model->rowCount(), 0);

    // Emptying the field shows everything, collapsed.
    search->clear();
    QTest::keyClicks(search, QStringLiteral("x"));
    QTest::keyClick(search, Qt::Key_Backspace);
    EXPECT_EQ(host.model->rowCount(), 3);
    EXPECT_FALSE(host.table->isExpanded(host.groupRow("File Menu")));
}

TEST(QKKeyboardShortcutsEditor, enableCheckBoxesFollowGroupsAndShortcuts)
{
    Editor host;
    const QModelIndex file = host.groupRow("File Menu");
    ASSERT_TRUE(host.model->setData(file, Qt::Unchecked, Qt::CheckStateRole));
    for (QKShortcut *shortcut : registry()->groups().at(0)->shortcuts())
        EXPECT_FALSE(shortcut->enabled());
    EXPECT_EQ(file.data(QKShortcutsModel::ObjectValueRole).toInt(), 0);
    EXPECT_TRUE(QKMainMenu::itemForPath({"New Track"})->shortcut().isEmpty());
    EXPECT_EQ(host.shortcutRow("File Menu", 0, QKShortcutsModel::ShortcutColumn)
                  .data(Qt::ForegroundRole)
                  .value<QColor>(),
              QColor(Qt::lightGray));

    // One on, two off: mixed.
    host.model->setData(host.shortcutRow("File Menu", 1), Qt::Checked, Qt::CheckStateRole);
    EXPECT_EQ(file.data(Qt::CheckStateRole).toInt(), Qt::PartiallyChecked);
    EXPECT_EQ(file.data(QKShortcutsModel::ObjectValueRole).toInt(), -1);
    EXPECT_EQ(QKMainMenu::itemForPath({"Export", "As Text"})->shortcut(),
              QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_E));

    // Clicking a mixed box switches everything on.
    host.model->setData(file, Qt::PartiallyChecked, Qt::CheckStateRole);
    EXPECT_EQ(file.data(Qt::CheckStateRole).toInt(), Qt::Checked);

    // A real click on a shortcut's box in the outline.
    host.table->expand(file);
    const QModelIndex box = host.shortcutRow("File Menu", 2, QKShortcutsModel::EnabledColumn);
    QStyleOptionViewItem option;
    option.initFrom(host.table);
    option.rect = host.table->visualRect(box);
    option.features |= QStyleOptionViewItem::HasCheckIndicator;
    const QRect check = host.table->style()->subElementRect(QStyle::SE_ItemViewItemCheckIndicator,
                                                            &option, host.table);
    QTest::mouseClick(host.table->viewport(), Qt::LeftButton, Qt::NoModifier, check.center());
    EXPECT_FALSE(registry()->shortcutWithAction("deleteTrack:")->enabled());
    EXPECT_EQ(file.data(Qt::CheckStateRole).toInt(), Qt::PartiallyChecked);

    // Enabled states are never stored.
    EXPECT_FALSE(defaults()->hasKey(QKKeyboardShortcuts::CustomKey));
}

TEST(QKKeyboardShortcutsEditor, doubleClickOpensTheSheetForShortcutsOnly)
{
    Editor host;
    host.editor->editShortcut(QModelIndex());
    host.editor->editShortcut(host.groupRow("File Menu"));
    EXPECT_FALSE(host.editor->isSettingShortcut());

    host.doubleClick("File Menu", 0);
    ASSERT_TRUE(host.editor->isSettingShortcut());
    EXPECT_EQ(host.editor->editingShortcut(), registry()->shortcutWithAction("newTrack:"));
    EXPECT_EQ(host.editor->setShortcutIntroText()->text(),
              QStringLiteral("Enter the key combination you would like to use as a shortcut "
                             "for \"New Track\"..."));
    EXPECT_EQ(host.keyLabel(), QStringLiteral("\u2318T"));
    EXPECT_EQ(host.message(), QString());
    EXPECT_TRUE(host.editor->clearButton()->isEnabled());
    // A floating window, modal to the panel only.
    EXPECT_EQ(host.sheet()->windowType(), Qt::Tool);
    EXPECT_EQ(host.sheet()->windowModality(), Qt::WindowModal);

    host.editor->confirmSetShortcut(host.editor->cancelButton());
    host.doubleClick("Nudge", 2);
    EXPECT_FALSE(host.editor->clearButton()->isEnabled());
}

TEST(QKKeyboardShortcutsEditor, sheetCapturesKeysAndWarnsAboutConflicts)
{
    Editor host;
    host.doubleClick("File Menu", 0);

    host.type(Qt::Key_H, Qt::ControlModifier);
    EXPECT_EQ(host.keyLabel(), QKShortcutKey(u'h', Command).displayText());
    EXPECT_EQ(host.message(), QStringLiteral("Sorry, that key combination is reserved."));
    EXPECT_FALSE(host.editor->okButton()->isEnabled());

    host.type(Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(host.message(),
              QStringLiteral("Sorry, that key combination is in use by 'Undo Change'."));
    EXPECT_FALSE(host.editor->okButton()->isEnabled());

    // Its own key is no conflict.
    host.type(Qt::Key_T, Qt::ControlModifier);
    EXPECT_EQ(host.message(), QString());
    EXPECT_TRUE(host.editor->okButton()->isEnabled());

    host.type(Qt::Key_Left);
    EXPECT_EQ(host.message(),
              QStringLiteral("Sorry, that key combination is in use by 'Nudge Left'."));
    host.type(Qt::Key_F5, Qt::MetaModifier | Qt::ShiftModifier);
    EXPECT_EQ(host.editor->editingKey(), QKShortcutKey(0xF708, Control | Shift));
    EXPECT_EQ(host.message(), QString());

    // Nothing fired while capturing.
    EXPECT_EQ(host.window.totalCalls(), 0);
    host.editor->confirmSetShortcut(host.editor->okButton());
    EXPECT_EQ(keyOf("newTrack:"), QKShortcutKey(0xF708, Control | Shift));
    EXPECT_FALSE(host.editor->isSettingShortcut());
    EXPECT_EQ(host.editor->editingShortcut(), nullptr);
    EXPECT_TRUE(host.editor->editingKey().isClear());
}

TEST(QKKeyboardShortcutsEditor, clearOtherFreesTheKeyForConfirmation)
{
    Editor host;
    host.doubleClick("File Menu", 0);
    host.type(Qt::Key_Z, Qt::ControlModifier);
    ASSERT_FALSE(host.editor->okButton()->isEnabled());

    QTest::keyPress(host.sheet()->windowHandle(), Qt::Key_Alt);
    EXPECT_EQ(host.editor->clearButton()->text(), QStringLiteral("Clear Other"));
    EXPECT_TRUE(host.editor->clearButton()->isEnabled());

    QTest::mouseClick(host.editor->clearButton(), Qt::LeftButton, Qt::AltModifier);
    EXPECT_TRUE(keyOf("undoChange:").isClear());
    // Saved at once, and the typed key stays for confirmation.
    const QVariantList stored =
        QKPropertyList::fromData(defaults()->dataForKey(QKKeyboardShortcuts::CustomKey)).toList();
    ASSERT_EQ(stored.size(), 1);
    EXPECT_EQ(stored.at(0).toMap().value("action").toString(), QStringLiteral("undoChange:"));
    EXPECT_EQ(stored.at(0).toMap().value("character").toInt(), 0);
    EXPECT_EQ(host.editor->editingKey(), QKShortcutKey(u'z', Command));
    EXPECT_TRUE(host.editor->okButton()->isEnabled());
    EXPECT_FALSE(host.editor->clearButton()->isEnabled());
    EXPECT_EQ(host.message(), QString());

    QTest::keyRelease(host.sheet()->windowHandle(), Qt::Key_Alt);
    EXPECT_EQ(host.editor->clearButton()->text(), QStringLiteral("Clear"));

    QTest::mouseClick(host.editor->okButton(), Qt::LeftButton);
    EXPECT_FALSE(host.editor->isSettingShortcut());
    EXPECT_EQ(keyOf("newTrack:"), QKShortcutKey(u'z', Command));
    EXPECT_EQ(QKMainMenu::itemForPath({"New Track"})->shortcut(),
              QKeySequence(Qt::CTRL | Qt::Key_Z));
    EXPECT_TRUE(QKMainMenu::itemForPath({"Undo Change"})->shortcut().isEmpty());
    EXPECT_EQ(registry()->changedShortcuts().size(), 2);
}

TEST(QKKeyboardShortcutsEditor, optionOnlyOffersClearOtherWhenSomeoneHoldsTheKey)
{
    Editor host;
    host.doubleClick("File Menu", 0);
    QTest::keyPress(host.sheet()->windowHandle(), Qt::Key_Alt);
    EXPECT_EQ(host.editor->clearButton()->text(), QStringLiteral("Clear Other"));
    EXPECT_FALSE(host.editor->clearButton()->isEnabled());
    QTest::keyRelease(host.sheet()->windowHandle(), Qt::Key_Alt);
    EXPECT_TRUE(host.editor->clearButton()->isEnabled());
}

TEST(QKKeyboardShortcutsEditor, clearThenOkLeavesTheShortcutWithoutAKey)
{
    Editor host;
    host.doubleClick("File Menu", 1);
    QTest::mouseClick(host.editor->clearButton(), Qt::LeftButton);
    EXPECT_EQ(host.keyLabel(), QString());
    EXPECT_TRUE(host.editor->okButton()->isEnabled());
    EXPECT_FALSE(host.editor->clearButton()->isEnabled());
    // Nothing is committed before OK.
    EXPECT_FALSE(keyOf("exportText:").isClear());
    QTest::mouseClick(host.editor->okButton(), Qt::LeftButton);
    EXPECT_TRUE(keyOf("exportText:").isClear());
    EXPECT_TRUE(QKMainMenu::itemForPath({"Export", "As Text"})->shortcut().isEmpty());
    EXPECT_EQ(host.shortcutRow("File Menu", 1, QKShortcutsModel::ShortcutColumn).data().toString(),
              QString());

    // Stored, so the next launch keeps it.
    QKUserDefaults::resetStandardUserDefaults();
    registry()->loadShortcutsFromPreferencesWithChanges(true);
    EXPECT_TRUE(keyOf("exportText:").isClear());
}

TEST(QKKeyboardShortcutsEditor, cancelCommitsNothing)
{
    Editor host;
    host.doubleClick("Edit Menu", 0);
    host.type(Qt::Key_J, Qt::ControlModifier);
    QTest::mouseClick(host.editor->cancelButton(), Qt::LeftButton);
    EXPECT_FALSE(host.editor->isSettingShortcut());
    EXPECT_EQ(keyOf("showResume:"), QKShortcutKey(u'r', Command));
    EXPECT_FALSE(defaults()->hasKey(QKKeyboardShortcuts::CustomKey));

    // Once the sheet is gone, keys fire shortcuts again.
    QApplication::setActiveWindow(&host.window);
    host.window.table->setFocus();
    QTest::keyClick(host.window.table, Qt::Key_R, Qt::ControlModifier);
    EXPECT_EQ(host.window.calls.value("showResume:"), 1);
}

TEST(QKKeyboardShortcutsEditor, editsWhileSearchingReachTheRegistry)
{
    Editor host;
    QTest::keyClicks(host.editor->searchText(), QStringLiteral("nudge"));
    host.doubleClick("Nudge", 1);
    host.type(Qt::Key_Period, Qt::ControlModifier);
    QTest::mouseClick(host.editor->okButton(), Qt::LeftButton);
    EXPECT_EQ(keyOf("nudgeRight:"), QKShortcutKey(u'.', Command));
    // The filtered rows stay as they were, with the new key.
    EXPECT_EQ(host.rowTitles(), (QStringList{"Nudge", "  Nudge Left", "  Nudge Right"}));
    EXPECT_TRUE(host.table->isExpanded(host.groupRow("Nudge")));
    EXPECT_EQ(host.shortcutRow("Nudge", 1, QKShortcutsModel::ShortcutColumn).data().toString(),
              QKShortcutKey(u'.', Command).displayText());
}

TEST(QKKeyboardShortcutsEditor, panelButtonsRestoreExportAndImport)
{
    Editor host;
    QList<QKFilePanelRequest> requests;
    const QString exported = QKTestEnvironment::homePath() + QStringLiteral("/keys.qkshortcuts");
    QKFilePanels::setAnswerer([&](const QKFilePanelRequest &request, bool) {
        requests << request;
        return QStringList{exported};
    });
    registry()->shortcutWithAction("undoChange:")->setKey(QKShortcutKey(u'u', Command));
    auto *exportButton = host.editor->panel()->findChild<QPushButton *>("exportButton");
    auto *importButton = host.editor->panel()->findChild<QPushButton *>("importButton");
    auto *restoreButton = host.editor->panel()->findChild<QPushButton *>("restoreDefaultsButton");
    ASSERT_TRUE(exportButton && importButton && restoreButton);

    QTest::mouseClick(exportButton, Qt::LeftButton);
    ASSERT_EQ(requests.size(), 1);
    EXPECT_EQ(requests.at(0).parent, host.editor->panel());
    EXPECT_EQ(QKPropertyList::readFile(exported).toList().size(), 1);

    QTest::keyClicks(host.editor->searchText(), QStringLiteral("undo"));
    QTest::mouseClick(restoreButton, Qt::LeftButton);
    EXPECT_EQ(keyOf("undoChange:"), QKShortcutKey(u'z', Command));
    EXPECT_TRUE(host.editor->searchText()->text().isEmpty());
    EXPECT_EQ(host.model->rowCount(), 3);

    QTest::keyClicks(host.editor->searchText(), QStringLiteral("undo"));
    QTest::mouseClick(importButton, Qt::LeftButton);
    EXPECT_EQ(requests.size(), 2);
    EXPECT_EQ(keyOf("undoChange:"), QKShortcutKey(u'u', Command));
    EXPECT_TRUE(host.editor->searchText()->text().isEmpty());
    EXPECT_EQ(host.model->rowCount(), 3);
    EXPECT_TRUE(defaults()->hasKey(QKKeyboardShortcuts::CustomKey));
}
