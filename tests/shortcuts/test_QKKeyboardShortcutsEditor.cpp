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

QKShortcutKey keyOf(const QByteArray &action)
{
    return *registry()->shortcutWithAction(action)->key();
}

QKeySequence menuKey(const QStringList &path)
{
    return QKMainMenu::itemForPath(path)->shortcut();
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
        installBundle();
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
        const QModelIndexList found = model->match(model->index(0, QKShortcutsModel::NameColumn),
                                                   Qt::DisplayRole, title, 1, Qt::MatchExactly);
        return found.isEmpty() ? QModelIndex() : found.first().siblingAtColumn(0);
    }

    QModelIndex cell(const QString &group, int row, int column = 0) const
    {
        return model->index(row, column, groupRow(group));
    }

    /** The rows as shown: group titles, and shortcut names indented below them. */
    QStringList rowTitles() const
    {
        QStringList titles;
        for (int row = 0; row < model->rowCount(); ++row) {
            const QModelIndex group = model->index(row, 0);
            titles << group.siblingAtColumn(QKShortcutsModel::NameColumn).data().toString();
            for (int child = 0; child < model->rowCount(group); ++child)
                titles << u"  "_s + model->index(child, QKShortcutsModel::NameColumn, group)
                                        .data()
                                        .toString();
        }
        return titles;
    }

    // Opens the sheet the way the user does: a click, then a double-click on the row.
    void doubleClick(const QString &group, int row)
    {
        table->expand(groupRow(group));
        const QModelIndex index = cell(group, row, QKShortcutsModel::NameColumn);
        table->scrollTo(index);
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
    QString keyText(const QString &group, int row) const
    {
        return cell(group, row, QKShortcutsModel::ShortcutColumn).data().toString();
    }
};

QRectF storedFrame()
{
    return NSRectFromString(defaults()->stringForKey(QKKeyboardShortcuts::FrameKey));
}

} // namespace

TEST(QKKeyboardShortcutsEditor, opensAtTheRegisteredFrameOnFirstLaunch)
{
    Editor host;
    QWidget *panel = host.editor->panel();
    EXPECT_TRUE(panel->isVisible());
    EXPECT_EQ(panel->windowType(), Qt::Tool);
    EXPECT_EQ(panel->windowTitle(), u"Keyboard Shortcuts"_s);
    const QRectF visible = QKPanelFrame::mainScreenVisibleFrame();
    EXPECT_EQ(QKPanelFrame::frameOf(panel),
              QRectF(visible.right() - 375 - 4, visible.y() + 32, 375, 259));
}

TEST(QKKeyboardShortcutsEditor, storedFramesAreWidenedAndClosedPanelsStayClosed)
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
    defaults()->setObject(u"{{0, 0}, {0, 0}}"_s, QKKeyboardShortcuts::FrameKey);
    Editor host;
    EXPECT_EQ(host.editor->panel()->geometry(),
              QKPanelFrame::toScreenGeometry(QRectF(613, 97, 375, 259)));
}

TEST(QKKeyboardShortcutsEditor, togglingAndMovingAreRemembered)
{
    Editor host;
    QWidget *panel = host.editor->panel();
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
    EXPECT_EQ(storedFrame(), QKPanelFrame::frameOf(panel));
    EXPECT_EQ(QKPanelFrame::toScreenGeometry(storedFrame()), QRect(40, 60, 400, 300));
    panel->resize(420, 300);
    QCoreApplication::processEvents();
    EXPECT_EQ(QKPanelFrame::toScreenGeometry(storedFrame()), QRect(40, 60, 400, 300));
}

TEST(QKKeyboardShortcutsEditor, outlineShowsGroupsAndShortcuts)
{
    Editor host;
    EXPECT_EQ(host.rowTitles(),
              QStringList({"File Menu", "  New Track", "  Export>As Text", "  Delete Track",
                           "Edit Menu", "  Résumé", "  Undo Change", "Nudge", "  Nudge Left",
                           "  Nudge Right", "  Unbound", "  Play"}));
    EXPECT_EQ(host.model->headerData(QKShortcutsModel::ShortcutColumn, Qt::Horizontal,
                                     QKShortcutsModel::ObjectValueRole),
              "shortcut");
    // Shown without the empty modifier slots, which the cell value keeps.
    EXPECT_EQ(host.keyText("File Menu", 1), u"\u21E7\u2318E"_s);
    EXPECT_EQ(host.cell("File Menu", 1, QKShortcutsModel::ShortcutColumn)
                  .data(QKShortcutsModel::ObjectValueRole),
              QKShortcutKey(u'e', Command | Shift).displayString());
    EXPECT_EQ(host.keyText("Nudge", 2), QString());
    EXPECT_EQ(host.cell("File Menu", 0, QKShortcutsModel::ShortcutColumn).data(Qt::ForegroundRole),
              QColor(Qt::black));
    EXPECT_EQ(host.groupRow("File Menu").data(Qt::CheckStateRole), Qt::Checked);
}

TEST(QKKeyboardShortcutsEditor, searchIgnoresCaseAndAccents)
{
    Editor host;
    QLineEdit *search = host.editor->searchText();
    const auto searchFor = [search](const QString &text) {
        search->clear();
        QTest::keyClicks(search, text);
    };
    searchFor(u"resume"_s);
    EXPECT_EQ(host.rowTitles(), QStringList({"Edit Menu", "  Résumé"}));
    EXPECT_TRUE(host.table->isExpanded(host.groupRow("Edit Menu")));
    // The rows are the registry's own shortcuts.
    EXPECT_EQ(host.model->shortcutForIndex(host.cell("Edit Menu", 0)),
              registry()->shortcutWithAction("showResume:"));
    searchFor(u"NUDGE r"_s);
    EXPECT_EQ(host.rowTitles(), QStringList({"Nudge", "  Nudge Right"}));
    // A group's own name does not match; nothing found shows nothing.
    searchFor(u"Edit"_s);
    EXPECT_EQ(host.model->rowCount(), 0);
    // Emptying the field shows everything, collapsed.
    searchFor(u"x"_s);
    QTest::keyClick(search, Qt::Key_Backspace);
    EXPECT_EQ(host.model->rowCount(), 3);
    EXPECT_FALSE(host.table->isExpanded(host.groupRow("File Menu")));
}

TEST(QKKeyboardShortcutsEditor, enableCheckBoxesFollowGroupsAndShortcuts)
{
    Editor host;
    const QModelIndex file = host.groupRow("File Menu");
    ASSERT_TRUE(host.model->setData(file, Qt::Unchecked, Qt::CheckStateRole));
    EXPECT_EQ(registry()->groups().at(0)->enabledState(), 0);
    EXPECT_TRUE(menuKey({"New Track"}).isEmpty());
    EXPECT_EQ(host.cell("File Menu", 0, QKShortcutsModel::ShortcutColumn).data(Qt::ForegroundRole),
              QColor(Qt::lightGray));

    // One on, two off: mixed.
    host.model->setData(host.cell("File Menu", 1), Qt::Checked, Qt::CheckStateRole);
    EXPECT_EQ(file.data(Qt::CheckStateRole), Qt::PartiallyChecked);
    EXPECT_EQ(menuKey({"Export", "As Text"}), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_E));
    // Clicking a mixed box switches everything on.
    host.model->setData(file, Qt::PartiallyChecked, Qt::CheckStateRole);
    EXPECT_EQ(file.data(Qt::CheckStateRole), Qt::Checked);

    // A real click on a shortcut's box in the outline.
    host.table->expand(file);
    QStyleOptionViewItem option;
    option.initFrom(host.table);
    option.rect =
        host.table->visualRect(host.cell("File Menu", 2, QKShortcutsModel::EnabledColumn));
    option.features |= QStyleOptionViewItem::HasCheckIndicator;
    const QRect check = host.table->style()->subElementRect(QStyle::SE_ItemViewItemCheckIndicator,
                                                            &option, host.table);
    QTest::mouseClick(host.table->viewport(), Qt::LeftButton, Qt::NoModifier, check.center());
    EXPECT_FALSE(registry()->shortcutWithAction("deleteTrack:")->enabled());
    EXPECT_EQ(file.data(Qt::CheckStateRole), Qt::PartiallyChecked);
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
              u"Enter the key combination you would like to use as a shortcut for \"New "
              u"Track\"..."_s);
    EXPECT_EQ(host.keyLabel(), u"\u2318T"_s);
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
    // Each key typed, and the warning it gives (none when empty).
    const struct
    {
        Qt::Key key;
        Qt::KeyboardModifiers modifiers;
        QString message;
    } typed[] = {
        {Qt::Key_H, Qt::ControlModifier, u"Sorry, that key combination is reserved."_s},
        {Qt::Key_Z, Qt::ControlModifier,
         u"Sorry, that key combination is in use by 'Undo Change'."_s},
        // Its own key is no conflict.
        {Qt::Key_T, Qt::ControlModifier, {}},
        {Qt::Key_Left, Qt::NoModifier, u"Sorry, that key combination is in use by 'Nudge Left'."_s},
        {Qt::Key_F5, Qt::MetaModifier | Qt::ShiftModifier, {}},
    };
    for (const auto &t : typed) {
        SCOPED_TRACE(t.message.toStdString());
        host.type(t.key, t.modifiers);
        EXPECT_EQ(host.message(), t.message);
        EXPECT_EQ(host.editor->okButton()->isEnabled(), t.message.isEmpty());
    }
    EXPECT_EQ(host.keyLabel(), QKShortcutKey(0xF708, Control | Shift).displayText());

    // Nothing fired while capturing.
    EXPECT_EQ(host.window.totalCalls(), 0);
    host.editor->confirmSetShortcut(host.editor->okButton());
    EXPECT_EQ(keyOf("newTrack:"), QKShortcutKey(0xF708, Control | Shift));
    EXPECT_FALSE(host.editor->isSettingShortcut());
}

TEST(QKKeyboardShortcutsEditor, clearOtherFreesTheKeyForConfirmation)
{
    Editor host;
    host.doubleClick("File Menu", 0);
    // With nobody holding the key, Option offers Clear Other but cannot use it.
    QTest::keyPress(host.sheet()->windowHandle(), Qt::Key_Alt);
    EXPECT_EQ(host.editor->clearButton()->text(), u"Clear Other"_s);
    EXPECT_FALSE(host.editor->clearButton()->isEnabled());
    QTest::keyRelease(host.sheet()->windowHandle(), Qt::Key_Alt);
    EXPECT_TRUE(host.editor->clearButton()->isEnabled());

    host.type(Qt::Key_Z, Qt::ControlModifier);
    ASSERT_FALSE(host.editor->okButton()->isEnabled());
    QTest::keyPress(host.sheet()->windowHandle(), Qt::Key_Alt);
    EXPECT_TRUE(host.editor->clearButton()->isEnabled());
    QTest::mouseClick(host.editor->clearButton(), Qt::LeftButton, Qt::AltModifier);
    EXPECT_TRUE(keyOf("undoChange:").isClear());
    // Saved at once, and the typed key stays for confirmation.
    const QVariantList stored =
        QKPropertyList::fromData(defaults()->dataForKey(QKKeyboardShortcuts::CustomKey)).toList();
    ASSERT_EQ(stored.size(), 1);
    EXPECT_EQ(stored.at(0).toMap().value("action"), "undoChange:");
    EXPECT_EQ(stored.at(0).toMap().value("character"), 0);
    EXPECT_EQ(host.editor->editingKey(), QKShortcutKey(u'z', Command));
    EXPECT_TRUE(host.editor->okButton()->isEnabled());
    EXPECT_EQ(host.message(), QString());
    QTest::keyRelease(host.sheet()->windowHandle(), Qt::Key_Alt);
    EXPECT_EQ(host.editor->clearButton()->text(), u"Clear"_s);

    QTest::mouseClick(host.editor->okButton(), Qt::LeftButton);
    EXPECT_EQ(keyOf("newTrack:"), QKShortcutKey(u'z', Command));
    EXPECT_EQ(menuKey({"New Track"}), QKeySequence(Qt::CTRL | Qt::Key_Z));
    EXPECT_TRUE(menuKey({"Undo Change"}).isEmpty());
    EXPECT_EQ(registry()->changedShortcuts().size(), 2);
}

TEST(QKKeyboardShortcutsEditor, clearAndCancelCommitOnlyAtTheirButton)
{
    Editor host;
    host.doubleClick("File Menu", 1);
    QTest::mouseClick(host.editor->clearButton(), Qt::LeftButton);
    EXPECT_EQ(host.keyLabel(), QString());
    EXPECT_FALSE(host.editor->clearButton()->isEnabled());
    // Nothing is committed before OK.
    EXPECT_FALSE(keyOf("exportText:").isClear());
    QTest::mouseClick(host.editor->okButton(), Qt::LeftButton);
    EXPECT_TRUE(menuKey({"Export", "As Text"}).isEmpty());
    EXPECT_EQ(host.keyText("File Menu", 1), QString());

    host.doubleClick("Edit Menu", 0);
    host.type(Qt::Key_J, Qt::ControlModifier);
    QTest::mouseClick(host.editor->cancelButton(), Qt::LeftButton);
    EXPECT_FALSE(host.editor->isSettingShortcut());
    // Once the sheet is gone, keys fire shortcuts again.
    host.window.activate();
    QTest::keyClick(host.window.table, Qt::Key_R, Qt::ControlModifier);
    EXPECT_EQ(host.window.calls.value("showResume:"), 1);

    // The cleared key was stored, so the next launch keeps it.
    QKUserDefaults::resetStandardUserDefaults();
    registry()->loadShortcutsFromPreferencesWithChanges(true);
    EXPECT_TRUE(keyOf("exportText:").isClear());
    EXPECT_EQ(keyOf("showResume:"), QKShortcutKey(u'r', Command));
}

TEST(QKKeyboardShortcutsEditor, editsWhileSearchingReachTheRegistry)
{
    Editor host;
    QTest::keyClicks(host.editor->searchText(), u"nudge"_s);
    host.doubleClick("Nudge", 1);
    host.type(Qt::Key_Period, Qt::ControlModifier);
    QTest::mouseClick(host.editor->okButton(), Qt::LeftButton);
    EXPECT_EQ(keyOf("nudgeRight:"), QKShortcutKey(u'.', Command));
    // The filtered rows stay as they were, with the new key.
    EXPECT_EQ(host.rowTitles(), QStringList({"Nudge", "  Nudge Left", "  Nudge Right"}));
    EXPECT_TRUE(host.table->isExpanded(host.groupRow("Nudge")));
    EXPECT_EQ(host.keyText("Nudge", 1), QKShortcutKey(u'.', Command).displayText());
}

TEST(QKKeyboardShortcutsEditor, panelButtonsRestoreExportAndImport)
{
    Editor host;
    QList<QKFilePanelRequest> requests;
    const QString exported = QKTestEnvironment::homeFile(u"keys.qkshortcuts"_s);
    QKFilePanels::setAnswerer([&](const QKFilePanelRequest &request, bool) {
        requests << request;
        return QStringList{exported};
    });
    registry()->shortcutWithAction("undoChange:")->setKey(QKShortcutKey(u'u', Command));
    const auto click = [&host](const char *button) {
        auto *found = host.editor->panel()->findChild<QPushButton *>(QString::fromLatin1(button));
        ASSERT_NE(found, nullptr) << button;
        QTest::mouseClick(found, Qt::LeftButton);
    };

    click("exportButton");
    ASSERT_EQ(requests.size(), 1);
    EXPECT_EQ(requests.at(0).parent, host.editor->panel());
    EXPECT_EQ(QKPropertyList::readFile(exported).toList().size(), 1);
    // Restoring and importing both end a search and show every group.
    for (const auto &[button, key] :
         {std::pair("restoreDefaultsButton", QKShortcutKey(u'z', Command)),
          std::pair("importButton", QKShortcutKey(u'u', Command))}) {
        SCOPED_TRACE(button);
        QTest::keyClicks(host.editor->searchText(), u"undo"_s);
        click(button);
        EXPECT_EQ(keyOf("undoChange:"), key);
        EXPECT_TRUE(host.editor->searchText()->text().isEmpty());
        EXPECT_EQ(host.model->rowCount(), 3);
    }
    EXPECT_EQ(requests.size(), 2);
    EXPECT_TRUE(defaults()->hasKey(QKKeyboardShortcuts::CustomKey));
}
