#include "QKShortcutsModel.h"

#include "QKShortcut.h"
#include "QKShortcutGroup.h"

#include <QColor>

namespace {
// A shortcut row carries its group's row plus one; group rows carry 0.
constexpr quintptr GroupRowId = 0;
} // namespace

QKShortcutsModel::QKShortcutsModel(QObject *parent) : QAbstractItemModel(parent) {}

QKShortcutsModel::~QKShortcutsModel() = default;

QString QKShortcutsModel::columnIdentifier(int column)
{
    switch (column) {
    case EnabledColumn:
        return QStringLiteral("enabled");
    case NameColumn:
        return QStringLiteral("name");
    case ShortcutColumn:
        return QStringLiteral("shortcut");
    default:
        return QString();
    }
}

QList<QKShortcutGroup *> QKShortcutsModel::displayResults() const
{
    return m_rows;
}

void QKShortcutsModel::setDisplayResults(const QList<QKShortcutGroup *> &groups,
                                         std::vector<std::unique_ptr<QKShortcutGroup>> ownedGroups)
{
    beginResetModel();
    m_rows = groups;
    for (const auto &group : ownedGroups)
        m_rows << group.get();
    m_owned = std::move(ownedGroups);
    endResetModel();
}

void QKShortcutsModel::clear()
{
    setDisplayResults({});
}

QKShortcutGroup *QKShortcutsModel::groupForIndex(const QModelIndex &index) const
{
    if (!index.isValid() || index.model() != this || index.internalId() != GroupRowId)
        return nullptr;
    return m_rows.value(index.row());
}

QKShortcut *QKShortcutsModel::shortcutForIndex(const QModelIndex &index) const
{
    if (!index.isValid() || index.model() != this || index.internalId() == GroupRowId)
        return nullptr;
    const QKShortcutGroup *group = m_rows.value(qsizetype(index.internalId() - 1));
    return group ? group->shortcutAt(index.row()) : nullptr;
}

QModelIndex QKShortcutsModel::index(int row, int column, const QModelIndex &parent) const
{
    if (!hasIndex(row, column, parent))
        return QModelIndex();
    if (!parent.isValid())
        return createIndex(row, column, GroupRowId);
    return createIndex(row, column, quintptr(parent.row()) + 1);
}

QModelIndex QKShortcutsModel::parent(const QModelIndex &child) const
{
    if (!child.isValid() || child.internalId() == GroupRowId)
        return QModelIndex();
    return createIndex(int(child.internalId() - 1), 0, GroupRowId);
}

int QKShortcutsModel::rowCount(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return int(m_rows.size());
    if (parent.column() != 0)
        return 0;
    const QKShortcutGroup *group = groupForIndex(parent);
    return group ? int(group->count()) : 0;
}

int QKShortcutsModel::columnCount(const QModelIndex &) const
{
    return ColumnCount;
}

bool QKShortcutsModel::hasChildren(const QModelIndex &parent) const
{
    // Group rows are the expandable ones, even when a search left them empty.
    return !parent.isValid() ? !m_rows.isEmpty()
                             : parent.column() == 0 && groupForIndex(parent) != nullptr;
}

QVariant QKShortcutsModel::data(const QModelIndex &index, int role) const
{
    if (const QKShortcutGroup *group = groupForIndex(index))
        return groupData(group, index.column(), role);
    if (const QKShortcut *shortcut = shortcutForIndex(index))
        return shortcutData(shortcut, index.column(), role);
    return QVariant();
}

QVariant QKShortcutsModel::groupData(const QKShortcutGroup *group, int column, int role) const
{
    if (column == EnabledColumn) {
        if (role == Qt::CheckStateRole)
            return group->enabled();
        if (role == ObjectValueRole)
            return group->enabledState();
        return QVariant();
    }
    if (column == NameColumn && (role == Qt::DisplayRole || role == ObjectValueRole))
        return QStringLiteral("%1%2").arg(group->name(),
                                          group->isMenu() ? QStringLiteral(" Menu") : QString());
    return QVariant();
}

QVariant QKShortcutsModel::shortcutData(const QKShortcut *shortcut, int column, int role) const
{
    switch (column) {
    case EnabledColumn:
        if (role == Qt::CheckStateRole)
            return shortcut->enabled() ? Qt::Checked : Qt::Unchecked;
        if (role == ObjectValueRole)
            return shortcut->enabled() ? 1 : 0;
        return QVariant();
    case NameColumn:
        if (role == Qt::DisplayRole || role == ObjectValueRole)
            return shortcut->name();
        return QVariant();
    case ShortcutColumn:
        if (role == Qt::DisplayRole || role == ObjectValueRole)
            return shortcut->key()->displayString();
        if (role == Qt::ForegroundRole)
            return QColor(shortcut->enabled() ? Qt::black : Qt::lightGray);
        return QVariant();
    default:
        return QVariant();
    }
}

bool QKShortcutsModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (index.column() != EnabledColumn || (role != Qt::CheckStateRole && role != Qt::EditRole))
        return false;
    // Any state but off switches on, the mixed state included.
    const bool enabled = value.toInt() != Qt::Unchecked;
    if (QKShortcutGroup *group = groupForIndex(index))
        group->setEnabled(enabled);
    else if (QKShortcut *shortcut = shortcutForIndex(index))
        shortcut->setEnabled(enabled);
    else
        return false;
    reloadData();
    return true;
}

Qt::ItemFlags QKShortcutsModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (index.column() == EnabledColumn)
        flags |= Qt::ItemIsUserCheckable;
    return flags;
}

QVariant QKShortcutsModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal)
        return QVariant();
    if (role == ObjectValueRole)
        return columnIdentifier(section);
    if (role != Qt::DisplayRole)
        return QVariant();
    switch (section) {
    case NameColumn:
        return tr("Action");
    case ShortcutColumn:
        return tr("Shortcut");
    default:
        return QString();
    }
}

void QKShortcutsModel::reloadData()
{
    if (m_rows.isEmpty())
        return;
    Q_EMIT dataChanged(index(0, 0), index(int(m_rows.size()) - 1, ColumnCount - 1));
    for (int row = 0; row < m_rows.size(); ++row) {
        const QModelIndex group = index(row, 0);
        const int children = rowCount(group);
        if (children > 0)
            Q_EMIT dataChanged(index(0, 0, group), index(children - 1, ColumnCount - 1, group));
    }
}
