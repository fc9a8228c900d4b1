#pragma once

#include "QKUtilitiesGlobal.h"

#include <QObject>
#include <QVariantList>

#include <memory>

class QEvent;
class QKBundle;
class QKKeyboardShortcutsEditor;
class QKShortcut;
class QKShortcutGroup;
class QKShortcutKey;

/**
 * The application's keyboard shortcuts: the registry of every shortcut, built from the
 * host's default list (the resource "shortcuts.xml" of its main bundle, a property-list
 * array of group states) with the user's changes laid over it, and the owner of the
 * shortcut editor panel.
 *
 * Every key press and modifier change passes through performShortcut() before Qt's own
 * shortcuts and the focus widget see it (QKKeyboardShortcutsExtensions); a matched shortcut
 * sends its action along the responder chain.
 *
 * The user's changes are kept in the user defaults as the list of shortcuts whose key
 * differs from the default key; switching a shortcut on or off is not a change and lasts
 * until the next load.
 */
class QKUTILITIES_EXPORT QKKeyboardShortcuts : public QObject
{
    Q_OBJECT
public:
    /** User defaults keys. */
    static const QString CustomKey; // "Keyboard Shortcuts Custom": the changes, data
    static const QString OpenKey;   // "Keyboard Shortcuts Open": the editor was open
    static const QString FrameKey;  // "Keyboard Shortcuts Frame": the editor's frame

    /** The one registry, created on first use; creating it installs the event hook. */
    static QKKeyboardShortcuts *sharedInstance();

    /** Loads the editor's interface with the registry as owner; awakeFromNib then loads
     *  the shortcuts with the user's changes and restores the panel. For the host's start-up
     *  code; later calls do nothing. */
    static void loadShortcuts();
    /** Opens the editor panel; nothing before loadShortcuts(). */
    static void openPanel();
    /** Closes the editor panel when it is visible and active, otherwise opens it. */
    static void togglePanel();
    /**
     * Offers a key event to the shortcuts. Only key presses and modifier changes are looked
     * at, and none while a file dialog, a dialog that is not a floating (Qt::Tool) panel or
     * a menu is active, while the focus widget edits text, for arrow keys in a tree view and
     * up and down arrows in a table or list view. True when the event was consumed.
     */
    static bool performShortcut(QEvent *event);
    /** Registers the defaults of "Keyboard Shortcuts Open" (true) and "Keyboard Shortcuts
     *  Frame" (375 by 259 at the bottom right of the main screen). */
    static void initialize();

    ~QKKeyboardShortcuts() override;

    /** The groups in the order of the default list; empty before loading or when the
     *  default list is missing or malformed. */
    QList<QKShortcutGroup *> groups() const;

    /** The bundle the default list is read from: the host's main bundle unless set. */
    QKBundle *bundle() const;
    /** Reads the default list from @p bundle from now on; null returns to the main bundle.
     *  Not owned. */
    void setBundle(QKBundle *bundle);
    /** The default list as read now from the bundle's "shortcuts.xml": group states.
     *  Empty (and logged) when the resource is missing or not an array. */
    QVariantList defaultShortcutList() const;

    /** Rebuilds the groups from the default list, shows the default keys in the menus and,
     *  with @p withChanges, applies the changes stored in the user defaults. */
    void loadShortcutsFromPreferencesWithChanges(bool withChanges);
    /** The current state of every shortcut whose key differs from its default key, in the
     *  order of the default list. */
    QVariantList changedShortcuts() const;
    /** Applies shortcut states: each takes its key from the holder of that key (when it is
     *  another action) and gives it to the shortcut with its action. Other entries of the
     *  states are ignored; entries that are not dictionaries are skipped. */
    void loadChanges(const QVariantList &changes);
    /** Stores changedShortcuts() under CustomKey, or removes the key when there are none. */
    void saveToDefaults();

    /** The first shortcut, by group then list order, with @p action; null when none. */
    QKShortcut *shortcutWithAction(const QByteArray &action) const;
    /** The first shortcut, by group then list order, whose key equals @p key; null when
     *  none. Looked up in an index that follows every key change. */
    QKShortcut *shortcutWithKey(const QKShortcutKey &key) const;

    /** Handles a key press or modifier change that passed performShortcut()'s filters:
     *  key capture while the set-shortcut sheet is shown, modifier changes are consumed, a
     *  key press performs the shortcut holding its key. True when consumed. */
    bool doShortcut(QEvent *event);

    /** The editor's "Restore Defaults": forgets every change. */
    Q_INVOKABLE void loadDefaultShortcuts(QObject *sender);
    /** The editor's "Export": writes the changes to a ".qkshortcuts" property list. */
    Q_INVOKABLE void saveShortcuts(QObject *sender);
    /** The editor's "Import": applies a ".qkshortcuts" or ".lumoshortcuts" file on top of
     *  the present changes and stores the result. */
    Q_INVOKABLE void loadShortcuts(QObject *sender);

    /** Refreshes the editor's rows; nothing when the editor is not loaded. */
    void reloadDisplay();

    /** The editor, once loadShortcuts() ran; null before. */
    QKKeyboardShortcutsEditor *editor() const;

    void _openPanel();
    void _togglePanel();

private:
    QKKeyboardShortcuts();
    void _loadEditor();
    void _rebuildKeyIndex() const;

    struct Private;
    std::unique_ptr<Private> d;
};
