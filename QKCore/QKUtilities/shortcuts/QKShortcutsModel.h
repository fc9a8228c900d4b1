#pragma once

#include "QKUtilitiesGlobal.h"

#include <QAbstractItemModel>

#include <memory>
#include <vector>

class QKShortcut;
class QKShortcutGroup;

/**
 * The rows of the shortcut editor: groups at the top level, their shortcuts below. Columns
 * keep the identifiers "enabled" (a check box; a group shows the mixed state when some of
 * its shortcuts are on and some off), "name" (the group's name, followed by " Menu" for a
 * menu group, or the shortcut's name) and "shortcut" (the key's display string, grey while
 * the shortcut is off; shown without its U+0000 placeholders, which ObjectValueRole keeps).
 *
 * The shortcuts shown are the registry's own objects, so edits made here reach the
 * registry; switching shortcuts on and off is not stored in the user defaults.
 */
class QKUTILITIES_EXPORT QKShortcutsModel : public QAbstractItemModel
{
    Q_OBJECT
public:
    enum Column { EnabledColumn, NameColumn, ShortcutColumn, ColumnCount };
    enum Role {
        /** Header: the column's identifier. Items: the original cell value: the check state
         *  as 1, 0 or -1, the name text or the display string. */
        ObjectValueRole = Qt::UserRole + 1,
    };

    explicit QKShortcutsModel(QObject *parent = nullptr);
    ~QKShortcutsModel() override;

    /** "enabled", "name" or "shortcut"; empty for another column. */
    static QString columnIdentifier(int column);

    /** The top-level rows. */
    QList<QKShortcutGroup *> displayResults() const;
    /** Shows @p groups, which stay owned elsewhere, and @p ownedGroups after them, which the
     *  model keeps until the next change. */
    void setDisplayResults(const QList<QKShortcutGroup *> &groups,
                           std::vector<std::unique_ptr<QKShortcutGroup>> ownedGroups = {});
    /** Shows nothing; for when the groups shown are about to go. */
    void clear();

    /** The group of a group row; null for a shortcut row. */
    QKShortcutGroup *groupForIndex(const QModelIndex &index) const;
    /** The shortcut of a shortcut row; null for a group row. */
    QKShortcut *shortcutForIndex(const QModelIndex &index) const;

    QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    bool hasChildren(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

    /** Refreshes every cell, keeping rows and expansion. */
    void reloadData();

private:
    QVariant groupData(const QKShortcutGroup *group, int column, int role) const;
    QVariant shortcutData(const QKShortcut *shortcut, int column, int role) const;

    QList<QKShortcutGroup *> m_rows;
    std::vector<std::unique_ptr<QKShortcutGroup>> m_owned;
};
