#pragma once

#include "QKShortcutKey.h"

#include <QObject>

#include <memory>

class QKeyEvent;
class QKShortcutGroup;

/**
 * One application action, named by its selector ("newTrack:"), bound to one key. A shortcut
 * of a menu group mirrors its key into the main menu's item found by its name, a path of
 * item titles below a top-level menu joined by ">" ("Export>As Text").
 *
 * The shortcut is the sender of the action it performs; methods that take a value receive
 * its tag.
 */
class QKUTILITIES_EXPORT QKShortcut : public QObject
{
    Q_OBJECT
    Q_PROPERTY(int tag READ tag)
public:
    QKShortcut();
    ~QKShortcut() override;

    /** A new shortcut with setState(@p state) applied. */
    static std::shared_ptr<QKShortcut> shortcutWithState(const QVariantMap &state);

    /** All seven entries: "name", "action", "tag", "prohibitRepeats", "enabled", and the
     *  key's "character" and "modifiers". */
    QVariantMap state() const;
    /** Sets each field whose key is present, then hands @p state to the key. A new shortcut
     *  is disabled, so a state without "enabled" gives a disabled shortcut. */
    void setState(const QVariantMap &state);

    /** The owning group, not owned; null when none. */
    QKShortcutGroup *group() const { return m_group; }
    void setGroup(QKShortcutGroup *group) { m_group = group; }

    QString name() const { return m_name; }
    QByteArray action() const { return m_action; }
    int tag() const { return m_tag; }
    bool prohibitRepeats() const { return m_prohibitRepeats; }
    bool enabled() const { return m_enabled; }

    /** The shortcut's own key, never replaced; changing it directly does not refresh the
     *  menu item. */
    QKShortcutKey *key() { return &m_key; }
    const QKShortcutKey *key() const { return &m_key; }

    /** Copies @p key's character and modifiers into the own key and refreshes the menu item. */
    void setKey(const QKShortcutKey &key);
    /** Clears the own key and refreshes the menu item. */
    void clearKey();
    /** Switches the shortcut on or off and refreshes the menu item. */
    void setEnabled(bool enabled);

    /** For a shortcut of a menu group: finds its item (see QKMainMenu::itemForPath) and
     *  shows the key there when enabled (no key otherwise), and sets the item's action and
     *  tag. Does nothing when the group is not a menu or the path does not resolve. */
    void refreshMenuItem();

    /**
     * Performs the action for @p event. False when the shortcut is disabled, when repeats are
     * prohibited and the event is an auto-repeat, and for a menu group when no responder
     * takes the action or its validateMenuItem answers false; nothing is sent then. A menu
     * group flashes its top-level title before the action is sent. A non-menu group answers
     * true once sent, whether or not a responder handled it.
     */
    bool perform(const QKeyEvent *event);

    /** A number that changes whenever the key of any shortcut or the shortcut list of any
     *  group changes; indexes of shortcuts by key are rebuilt when it moves. */
    static quint64 keyRevision();

private:
    friend class QKShortcutKey;
    friend class QKShortcutGroup;
    static void keysChanged();

    QKShortcutGroup *m_group = nullptr;
    QString m_name;
    QByteArray m_action;
    int m_tag = 0;
    bool m_prohibitRepeats = false;
    QKShortcutKey m_key;
    bool m_enabled = false;
};
