#include "ShortcutTestHost.h"

#include <QKKeyboardShortcutsEditor.h>
#include <QKShortcutsModel.h>

#include <QColor>
#include <QLabel>
#include <QPushButton>
#include <QTimer>

using namespace ShortcutTestHost;

namespace {

// The host window with the shortcuts loaded through the editor, as a host starts up.
struct Editor
{
    Window window;
    QKKeyboardShortcutsEditor *editor;
    QKShortcutsModel *model;
    QTreeView *table;

    Editor()
    {
        loadBundle();
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

    // The rows as shown: group titles, and shortcut names indented below them.
    QStringList rowTitles(const QModelIndex &parent = {}) const
    {
        QStringList titles;
        for (int row = 0; row < model->rowCount(parent); ++row) {
            const QModelIndex index = model->index(row, 0, parent);
            titles << (parent.isValid() ? u"  "_s : QString()) +
                          index.siblingAtColumn(QKShortcutsModel::NameColumn).data().toString();
            titles << rowTitles(index);
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
    QString keyLabel() const { return editor->shortcutText()->text(); }
    void type(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QTest::keyClick(sheet()->windowHandle(), key, modifiers);
    }
};

} // namespace

TEST(QKKeyboardShortcutsEditor, opensAtTheRegisteredFrameAndRemembersTogglesAndMoves)
{
    Editor host;
    QWidget *panel = host.editor->panel();
    EXPECT_TRUE(panel->isVisible());
    EXPECT_EQ(panel->windowType(), Qt::Tool);
    EXPECT_EQ(panel->windowTitle(), u"Keyboard Shortcuts"_s);
    const QRectF visible = QKPanelFrame::mainScreenVisibleFrame();
    EXPECT_EQ(QKPanelFrame::frameOf(panel),
              QRectF(visible.right() - 375 - 4, visible.y() + 32, 375, 259));

    for (bool open : {false, true}) {
        QKKeyboardShortcuts::togglePanel();
        EXPECT_EQ(panel->isVisible(), open);
        EXPECT_EQ(defaults()->boolForKey(QKKeyboardShortcuts::OpenKey), open);
    }
    // Visible but another window is active: toggling brings it forward instead.
    QApplication::setActiveWindow(&host.window);
    QKKeyboardShortcuts::togglePanel();
    EXPECT_TRUE(panel->isVisible());

    // Moves are stored, and so are resizes that keep the top-left corner.
    const auto stored = [] {
        return QKPanelFrame::toScreenGeometry(
            NSRectFromString(defaults()->stringForKey(QKKeyboardShortcuts::FrameKey)));
    };
    panel->setGeometry(40, 60, 400, 300);
    QCoreApplication::processEvents();
    EXPECT_EQ(stored(), QRect(40, 60, 400, 300));
    panel->resize(420, 300);
    QCoreApplication::processEvents();
    EXPECT_EQ(stored(), QRect(40, 60, 420, 300));
}

TEST(QKKeyboardShortcutsEditor, quittingWithThePanelOpenShowsItAgainAtTheNextLaunch)
{
    QRect geometry;
    {
        Editor host;
        QWidget *panel = host.editor->panel();
        panel->resize(700, 800);
        QCoreApplication::processEvents();
        geometry = panel->geometry();
        // Qt closes every window when the application quits.
        QTimer::singleShot(0, qApp, &QCoreApplication::quit);
        QCoreApplication::exec();
        EXPECT_FALSE(host.window.isVisible());
        EXPECT_EQ(registry()->editor(), nullptr);
    }
    QKUserDefaults::resetStandardUserDefaults();
    QKKeyboardShortcuts::loadShortcuts();
    QWidget *panel = registry()->editor()->panel();
    EXPECT_TRUE(panel->isVisible());
    EXPECT_EQ(panel->geometry(), geometry);
    EXPECT_EQ(geometry.size(), QSize(700, 800));
}

// A stored frame, and where a closed panel ends up: widened to 375, or a fixed place for a
// zero frame.
class StoredFrame : public ::testing::TestWithParam<std::pair<QString, QRectF>>
{
};

TEST_P(StoredFrame, isWidenedAndAClosedPanelStaysClosed)
{
    defaults()->setObject(GetParam().first, QKKeyboardShortcuts::FrameKey);
    defaults()->setBool(false, QKKeyboardShortcuts::OpenKey);
    Editor host;
    EXPECT_FALSE(host.editor->panel()->isVisible());
    EXPECT_EQ(host.editor->panel()->geometry(), QKPanelFrame::toScreenGeometry(GetParam().second));
}

INSTANTIATE_TEST_SUITE_P(
    QKKeyboardShortcutsEditor, StoredFrame,
    ::testing::Values(std::pair(u"{{10, 20}, {300, 280}}"_s, QRectF(10, 20, 375, 280)),
                      std::pair(u"{{0, 0}, {0, 0}}"_s, QRectF(613, 97, 375, 259))));

TEST(QKKeyboardShortcutsEditor, outlineShowsKeysAndSearchesShowRealShortcuts)
{
    Editor host;
    EXPECT_EQ(host.rowTitles(),
              QStringList({"File Menu", "  New Track", "  Export>As Text", "  Delete Track",
                           "Edit Menu", "  Résumé", "  Undo Change", "Nudge", "  Nudge Left",
                           "  Nudge Right", "  Unbound", "  Play"}));
    // Keys read as the menus show them.
    const QModelIndex exportKey = host.cell("File Menu", 1, QKShortcutsModel::ShortcutColumn);
    EXPECT_EQ(exportKey.data(), u"Ctrl+Shift+E"_s);
    EXPECT_EQ(exportKey.data(QKShortcutsModel::ObjectValueRole),
              menuKey({"Export", "As Text"}).toString(QKeySequence::NativeText));
    EXPECT_EQ(exportKey.data(Qt::ForegroundRole), QColor(Qt::black));
    EXPECT_EQ(host.cell("Nudge", 2, QKShortcutsModel::ShortcutColumn).data(), QString());

    // The search ignores case and accents, and a group's own name; it expands what it finds.
    QLineEdit *search = host.editor->searchText();
    const auto searchFor = [&](const QString &text) {
        search->clear();
        QTest::keyClicks(search, text);
        return host.rowTitles();
    };
    EXPECT_EQ(searchFor(u"resume"_s), QStringList({"Edit Menu", "  Résumé"}));
    EXPECT_TRUE(searchFor(u"Edit"_s).isEmpty());
    EXPECT_EQ(searchFor(u"NUDGE r"_s), QStringList({"Nudge", "  Nudge Right"}));
    EXPECT_TRUE(host.table->isExpanded(host.groupRow("Nudge")));

    // An edit of a found shortcut reaches the registry; the rows stay, with the new key.
    host.doubleClick("Nudge", 0);
    host.type(Qt::Key_Period, Qt::ControlModifier);
    QTest::mouseClick(host.editor->okButton(), Qt::LeftButton);
    EXPECT_EQ(keyOf("nudgeRight:"), QKShortcutKey(u'.', Command));
    EXPECT_EQ(host.rowTitles(), QStringList({"Nudge", "  Nudge Right"}));
    EXPECT_TRUE(host.table->isExpanded(host.groupRow("Nudge")));
    EXPECT_EQ(host.cell("Nudge", 0, QKShortcutsModel::ShortcutColumn).data(), u"Ctrl+."_s);

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
    EXPECT_EQ(file.data(Qt::CheckStateRole), Qt::Checked);
    ASSERT_TRUE(host.model->setData(file, Qt::Unchecked, Qt::CheckStateRole));
    EXPECT_EQ(registry()->groups().at(0)->enabledState(), 0);
    EXPECT_EQ(host.cell("File Menu", 0, QKShortcutsModel::ShortcutColumn).data(Qt::ForegroundRole),
              QColor(Qt::lightGray));

    // A real click on a shortcut's box in the outline: one on, two off is mixed.
    host.table->expand(file);
    QStyleOptionViewItem option;
    option.initFrom(host.table);
    option.rect =
        host.table->visualRect(host.cell("File Menu", 2, QKShortcutsModel::EnabledColumn));
    option.features |= QStyleOptionViewItem::HasCheckIndicator;
    const QRect check = host.table->style()->subElementRect(QStyle::SE_ItemViewItemCheckIndicator,
                                                            &option, host.table);
    QTest::mouseClick(host.table->viewport(), Qt::LeftButton, Qt::NoModifier, check.center());
    EXPECT_TRUE(registry()->shortcutWithAction("deleteTrack:")->enabled());
    EXPECT_EQ(file.data(Qt::CheckStateRole), Qt::PartiallyChecked);
    // Clicking a mixed box switches everything on.
    host.model->setData(file, Qt::PartiallyChecked, Qt::CheckStateRole);
    EXPECT_EQ(registry()->groups().at(0)->enabledState(), 1);
}

TEST(QKKeyboardShortcutsEditor, sheetOpensForShortcutsAndWarnsAboutConflicts)
{
    Editor host;
    host.editor->editShortcut(QModelIndex());
    host.editor->editShortcut(host.groupRow("File Menu"));
    EXPECT_FALSE(host.editor->isSettingShortcut());
    host.doubleClick("Nudge", 2);
    // Nothing to clear on a shortcut without a key.
    EXPECT_FALSE(host.editor->clearButton()->isEnabled());
    host.editor->confirmSetShortcut(host.editor->cancelButton());

    host.doubleClick("File Menu", 0);
    ASSERT_TRUE(host.editor->isSettingShortcut());
    EXPECT_EQ(host.editor->setShortcutIntroText()->text(),
              u"Enter the key combination you would like to use as a shortcut for \"New "
              u"Track\"..."_s);
    EXPECT_EQ(host.keyLabel(), u"Ctrl+T"_s);
    // A floating window, modal to the panel only.
    EXPECT_EQ(host.sheet()->windowType(), Qt::Tool);
    EXPECT_EQ(host.sheet()->windowModality(), Qt::WindowModal);

    // Each key typed, and the warning it gives; its own key is no conflict.
    const std::pair<QKeyCombination, QString> typed[] = {
        {Qt::CTRL | Qt::Key_H, u"Sorry, that key combination is reserved."_s},
        {Qt::CTRL | Qt::Key_Z, u"Sorry, that key combination is in use by 'Undo Change'."_s},
        {Qt::CTRL | Qt::Key_T, {}},
        {QKeyCombination(Qt::Key_Left),
         u"Sorry, that key combination is in use by 'Nudge Left'."_s},
        {Qt::META | Qt::SHIFT | Qt::Key_F5, {}},
    };
    for (const auto &[key, message] : typed) {
        host.type(key.key(), key.keyboardModifiers());
        EXPECT_EQ(host.editor->setShortcutOutroText()->text(), message);
        EXPECT_EQ(host.editor->okButton()->isEnabled(), message.isEmpty()) << message.toStdString();
    }
    EXPECT_EQ(host.keyLabel(), u"Meta+Shift+F5"_s);
    // Keys without a character are not captured: the sheet keeps the last key.
    QTest::sendKeyEvent(QTest::Click, host.sheet()->windowHandle(), Qt::Key_VolumeUp, QString(),
                        Qt::NoModifier);
    QTest::sendKeyEvent(QTest::Click, host.sheet()->windowHandle(), Qt::Key_Dead_Acute, u"\u00B4"_s,
                        Qt::ControlModifier);
    EXPECT_EQ(host.keyLabel(), u"Meta+Shift+F5"_s);
    EXPECT_TRUE(host.editor->okButton()->isEnabled());
    // Nothing fired while capturing.
    EXPECT_EQ(host.window.totalCalls(), 0);
    host.editor->confirmSetShortcut(host.editor->okButton());
    EXPECT_EQ(keyOf("newTrack:"), QKShortcutKey(0xF708, Control | Shift));
    EXPECT_FALSE(host.editor->isSettingShortcut());
}

TEST(QKKeyboardShortcutsEditor, clearButtonAndCancelCommitOnlyWhatTheySay)
{
    Editor host;
    // Plain Clear empties the typed key; only OK commits it.
    host.doubleClick("File Menu", 1);
    QTest::mouseClick(host.editor->clearButton(), Qt::LeftButton);
    EXPECT_EQ(host.keyLabel(), QString());
    EXPECT_FALSE(host.editor->clearButton()->isEnabled());
    EXPECT_FALSE(keyOf("exportText:").isClear());
    QTest::mouseClick(host.editor->okButton(), Qt::LeftButton);
    EXPECT_TRUE(menuKey({"Export", "As Text"}).isEmpty());
    EXPECT_EQ(host.cell("File Menu", 1, QKShortcutsModel::ShortcutColumn).data(), QString());
    EXPECT_EQ(storedChanges().size(), 1);

    // With nobody holding the key, Option offers Clear Other but cannot use it.
    host.doubleClick("File Menu", 0);
    QWindow *sheet = host.sheet()->windowHandle();
    QTest::keyPress(sheet, Qt::Key_Alt);
    EXPECT_EQ(host.editor->clearButton()->text(), u"Clear Other"_s);
    EXPECT_FALSE(host.editor->clearButton()->isEnabled());
    QTest::keyRelease(sheet, Qt::Key_Alt);
    host.type(Qt::Key_Z, Qt::ControlModifier);
    QTest::keyPress(sheet, Qt::Key_Alt);
    EXPECT_TRUE(host.editor->clearButton()->isEnabled());
    QTest::mouseClick(host.editor->clearButton(), Qt::LeftButton, Qt::AltModifier);
    EXPECT_TRUE(keyOf("undoChange:").isClear());
    // Saved at once, and the typed key stays for confirmation.
    EXPECT_EQ(storedChanges().value(1), registry()->shortcutWithAction("undoChange:")->state());
    EXPECT_EQ(host.editor->editingKey(), QKShortcutKey(u'z', Command));
    EXPECT_TRUE(host.editor->okButton()->isEnabled());
    QTest::keyRelease(sheet, Qt::Key_Alt);
    EXPECT_EQ(host.editor->clearButton()->text(), u"Clear"_s);
    QTest::mouseClick(host.editor->okButton(), Qt::LeftButton);
    EXPECT_EQ(menuKey({"New Track"}), QKeySequence(Qt::CTRL | Qt::Key_Z));
    EXPECT_TRUE(menuKey({"Undo Change"}).isEmpty());
    EXPECT_EQ(storedChanges().size(), 3);

    // Cancel commits nothing; once the sheet is gone, keys fire shortcuts again.
    host.doubleClick("Edit Menu", 0);
    host.type(Qt::Key_J, Qt::ControlModifier);
    QTest::mouseClick(host.editor->cancelButton(), Qt::LeftButton);
    EXPECT_FALSE(host.editor->isSettingShortcut());
    host.window.activate();
    QTest::keyClick(host.window.table, Qt::Key_R, Qt::ControlModifier);
    EXPECT_EQ(host.window.calls.value("showResume:"), 1);
}

TEST(QKKeyboardShortcutsEditor, panelButtonsExportRestoreAndImport)
{
    Editor host;
    const QString exported = QKTestEnvironment::homeFile(u"keys.qkshortcuts"_s);
    QList<QKFilePanelRequest> requests;
    QKFilePanels::setAnswerer([&](const QKFilePanelRequest &request, bool) {
        requests << request;
        return QStringList{exported};
    });
    const auto click = [&host](const char *button) {
        auto *found = host.editor->panel()->findChild<QPushButton *>(QString::fromLatin1(button));
        ASSERT_NE(found, nullptr) << button;
        QTest::mouseClick(found, Qt::LeftButton);
    };
    registry()->shortcutWithAction("undoChange:")->setKey(QKShortcutKey(u'u', Command));
    click("exportButton");
    EXPECT_EQ(QKPropertyList::readFile(exported).toList().size(), 1);

    // Restoring and importing both end a search and show every group.
    const std::pair<const char *, QKShortcutKey> clicks[] = {
        {"restoreDefaultsButton", QKShortcutKey(u'z', Command)},
        {"importButton", QKShortcutKey(u'u', Command)}};
    for (const auto &[button, key] : clicks) {
        QTest::keyClicks(host.editor->searchText(), u"undo"_s);
        click(button);
        EXPECT_EQ(keyOf("undoChange:"), key) << button;
        EXPECT_TRUE(host.editor->searchText()->text().isEmpty());
        EXPECT_EQ(host.model->rowCount(), 3);
    }
    // Both file panels are sheets on the editor.
    ASSERT_EQ(requests.size(), 2);
    for (const QKFilePanelRequest &request : requests)
        EXPECT_EQ(request.parent, host.editor->panel());
}
