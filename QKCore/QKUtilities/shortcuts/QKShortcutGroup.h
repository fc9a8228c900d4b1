#pragma once

#include "QKUtilitiesGlobal.h"

#include <QList>
#include <QString>
#include <QVariantMap>

#include <memory>

class QKShortcut;
class QKShortcutKey;

/**
 * An ordered list of shortcuts under a name. A menu group mirrors the top-level menu of the
 * main menu titled by its name; its shortcuts show their keys in that menu's items.
 *
 * The group keeps its shortcuts alive; a group made for display may share the shortcuts of
 * another group (setShortcuts), which stay owned by both.
 */
class QKUTILITIES_EXPORT QKShortcutGroup
{
public:
    using ShortcutPointer = std::shared_ptr<QKShortcut>;

    QKShortcutGroup();
    ~QKShortcutGroup();
    QKShortcutGroup(const QKShortcutGroup &) = delete;
    QKShortcutGroup &operator=(const QKShortcutGroup &) = delete;

    /** A new group with setState(@p state) applied. */
    static std::unique_ptr<QKShortcutGroup> shortcutGroupWithState(const QVariantMap &state);

    /** {"name", "isMenu", "shortcuts": the shortcuts' states in order}. */
    QVariantMap state() const;
    /** Sets "name" and "isMenu" when present; when "shortcuts" is present, replaces the list
     *  with new shortcuts made from it, in order, each belonging to this group. */
    void setState(const QVariantMap &state);

    /** A new group made from state(): new shortcut and key objects. */
    std::unique_ptr<QKShortcutGroup> copy() const;

    /** The first shortcut in list order whose action equals @p action; null when none. */
    QKShortcut *shortcutWithAction(const QByteArray &action) const;
    /** The first shortcut in list order whose key equals @p key; null when none. */
    QKShortcut *shortcutWithKey(const QKShortcutKey &key) const;

    /** Qt::Checked when some shortcut is enabled and none disabled, Qt::Unchecked when some
     *  is disabled and none enabled, Qt::PartiallyChecked otherwise (an empty group too);
     *  as numbers 1, 0 and -1 through enabledState(). */
    Qt::CheckState enabled() const;
    /** 1 (on), 0 (off) or -1 (mixed), see enabled(). */
    int enabledState() const;
    /** Switches every shortcut on or off, each refreshing its menu item. */
    void setEnabled(bool enabled);

    /** For a menu group, refreshes every shortcut's menu item; otherwise nothing. */
    void refreshMenu();

    QList<QKShortcut *> shortcuts() const;
    /** The number of shortcuts. */
    qsizetype count() const { return m_shortcuts.size(); }
    /** The shortcut at @p index; null when out of range. */
    QKShortcut *shortcutAt(qsizetype index) const;
    /** The shortcuts with shared ownership, for display groups. */
    QList<ShortcutPointer> sharedShortcuts() const { return m_shortcuts; }
    /** Replaces the list by @p shortcuts; their group is left as it is. */
    void setShortcuts(const QList<ShortcutPointer> &shortcuts);

    QString name() const { return m_name; }
    void setName(const QString &name) { m_name = name; }
    bool isMenu() const { return m_isMenu; }
    void setIsMenu(bool isMenu) { m_isMenu = isMenu; }

private:
    QList<ShortcutPointer> m_shortcuts;
    QString m_name;
    bool m_isMenu = false;
};
