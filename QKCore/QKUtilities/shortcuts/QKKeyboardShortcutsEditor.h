#pragma once

#include "QKUtilitiesGlobal.h"

#include <QObject>

#include <memory>

class QEvent;
class QKKeyboardShortcuts;
class QKShortcut;
class QKShortcutKey;
class QKShortcutsModel;
class QLabel;
class QLineEdit;
class QModelIndex;
class QPushButton;
class QTreeView;
class QWidget;

/**
 * The shortcut editor panel of the registry, loaded from "QKKeyboardShortcuts.ui": a search
 * field, the outline of groups and shortcuts (QKShortcutsModel), buttons for restoring the
 * defaults, export and import, and the set-shortcut sheet that captures the next key
 * combination, warns about reserved and taken ones and can clear the shortcut's own key or
 * another shortcut's.
 *
 * Panel and sheet are floating utility windows (Qt::Tool), so the registry's key filter
 * lets their keys through: while the sheet is shown, every key press and modifier change
 * comes to doSetShortcut().
 *
 * The panel's frame is stored whenever it moves or is resized, and whether it is open
 * whenever the user opens or closes it; the closing of every window at quit leaves it open
 * for the next launch.
 */
class QKUTILITIES_EXPORT QKKeyboardShortcutsEditor : public QObject
{
    Q_OBJECT
public:
    /** Loads the interface; awakeFromNib() finishes the set-up. */
    explicit QKKeyboardShortcutsEditor(QKKeyboardShortcuts *owner);
    ~QKKeyboardShortcutsEditor() override;

    /** Connects the outline and the buttons, loads the shortcuts with the user's changes,
     *  restores the panel's frame (at least 375 wide) and opens the panel when it was open
     *  at the last quit. */
    void awakeFromNib();

    QWidget *panel() const;
    QWidget *setShortcutPanel() const;
    QLineEdit *searchText() const;
    QTreeView *shortcutsTable() const;
    QKShortcutsModel *model() const;
    QLabel *setShortcutIntroText() const;
    QLabel *shortcutText() const;
    QLabel *setShortcutOutroText() const;
    QPushButton *okButton() const;
    QPushButton *clearButton() const;
    QPushButton *cancelButton() const;

    /** True while the set-shortcut sheet is shown. */
    bool isSettingShortcut() const;
    /** The shortcut being edited; null when the sheet is not shown. */
    QKShortcut *editingShortcut() const;
    /** The key typed so far in the sheet; clear when the sheet is not shown. */
    QKShortcutKey editingKey() const;

    /** The search field's action: refreshes the rows, then expands every group while there
     *  is search text and collapses every group when there is none. */
    void searchChanged();
    /** Shows all groups, or, with search text, the shortcuts whose names contain it (case
     *  and accents ignored) under their groups; groups without a match are left out. */
    void reloadDisplay();
    /** Empties the search field without refreshing the rows. */
    void clearSearch();
    /** Shows no rows until the next reloadDisplay(). */
    void forgetRows();

    /** The outline's double-click action: opens the sheet for the shortcut in @p row;
     *  nothing for a group row or no row. */
    void editShortcut(const QModelIndex &row);
    /** Key capture while the sheet is shown: takes a key press as the new key and checks it,
     *  or follows the Option key for the Clear button. */
    void doSetShortcut(QEvent *event);
    /** The Clear button: with Option down ("Clear Other") clears the key of the shortcut
     *  holding the typed key and saves; otherwise clears the typed key. */
    void clearShortcut(QObject *sender);
    /** The OK and Cancel buttons: OK gives the typed key to the edited shortcut and saves;
     *  both end the sheet. */
    void confirmSetShortcut(QObject *sender);
    /** Hides the sheet and forgets the edited shortcut and key. */
    void setShortcutPanelDidEnd(int returnCode);

    /** Records the panel as open, shows it and makes it the active window. */
    void _openPanel();
    /** Closes the panel when it is visible and active; otherwise opens it. */
    void _togglePanel();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void windowDidMove();
    void windowWillClose();
    void showSheet();

    struct Private;
    std::unique_ptr<Private> d;
};
