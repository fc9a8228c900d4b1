#include "QKScrollWheelActionsModel.h"

#include <QKEvents.h>

QKScrollWheelActionsModel::QKScrollWheelActionsModel(QObject *parent) : QAbstractTableModel(parent)
{}

QString QKScrollWheelActionsModel::identifier(int column)
{
    static const QStringList identifiers = {QStringLiteral("axis"),    QStringLiteral("command"),
                                            QStringLiteral("option"),  QStringLiteral("shift"),
                                            QStringLiteral("control"), QStringLiteral("caps lock"),
                                            QStringLiteral("action"),  QStringLiteral("reverse")};
    return identifiers.value(column);
}

quint32 QKScrollWheelActionsModel::modifierForColumn(int column)
{
    switch (column) {
    case CommandColumn:
        return QKEvents::CommandKeyMask;
    case OptionColumn:
        return QKEvents::AlternateKeyMask;
    case ShiftColumn:
        return QKEvents::ShiftKeyMask;
    case ControlColumn:
        return QKEvents::ControlKeyMask;
    case CapsLockColumn:
        return CapsLockMask;
    default:
        return 0;
    }
}

QList<QVariantMap> QKScrollWheelActionsModel::actions() const
{
    return m_actions;
}

void QKScrollWheelActionsModel::setActions(const QList<QVariantMap> &actions)
{
    beginResetModel();
    m_actions = actions;
    endResetModel();
}

void QKScrollWheelActionsModel::appendAction(const QVariantMap &action)
{
    QList<QVariantMap> actions = m_actions;
    actions.append(action);
    setActions(actions);
}

void QKScrollWheelActionsModel::removeAction(int row)
{
    if (row < 0 || row >= m_actions.size())
        return;
    QList<QVariantMap> actions = m_actions;
    actions.removeAt(row);
    setActions(actions);
}

QList<QVariantMap> QKScrollWheelActionsModel::offeredActions() const
{
    return m_offered;
}

void QKScrollWheelActionsModel::setOfferedActions(const QList<QVariantMap> &offered)
{
    beginResetModel();
    m_offered = offered;
    endResetModel();
}

int QKScrollWheelActionsModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_actions.size());
}

int QKScrollWheelActionsModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant QKScrollWheelActionsModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_actions.size())
        return QVariant();
    const QVariantMap &action = m_actions.at(index.row());
    const int column = index.column();
    if (const quint32 bit = modifierForColumn(column)) {
        if (role != Qt::CheckStateRole)
            return QVariant();
        return (action.value(ModifiersKey).toULongLong() & bit) ? Qt::Checked : Qt::Unchecked;
    }
    switch (column) {
    case AxisColumn:
        if (role == PopUpItemsRole)
            return QStringList{tr("Horizontal"), tr("Vertical")};
        if (role == Qt::EditRole)
            return action.value(VerticalKey).toBool() ? 1 : 0;
        if (role == Qt::DisplayRole)
            return action.value(VerticalKey).toBool() ? tr("Vertical") : tr("Horizontal");
        break;
    case ActionColumn:
        if (role == PopUpItemsRole) {
            QStringList titles;
            for (const QVariantMap &offered : m_offered)
                titles << offered.value(TitleKey).toString();
            return titles;
        }
        if (role == Qt::EditRole)
            return offeredIndex(action.value(ActionKey).toString());
        if (role == Qt::DisplayRole) {
            const int offered = offeredIndex(action.value(ActionKey).toString());
            return offered < 0 ? QString() : m_offered.at(offered).value(TitleKey).toString();
        }
        break;
    case ReverseColumn:
        if (role == Qt::CheckStateRole)
            return action.value(ReverseKey).toBool() ? Qt::Checked : Qt::Unchecked;
        break;
    }
    return QVariant();
}

bool QKScrollWheelActionsModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (!index.isValid() || index.row() >= m_actions.size())
        return false;
    QVariantMap &action = m_actions[index.row()];
    const int column = index.column();
    if (const quint32 bit = modifierForColumn(column)) {
        if (role != Qt::CheckStateRole)
            return false;
        // The check box toggles its bit whatever state it reports.
        action[ModifiersKey] = qint64(action.value(ModifiersKey).toULongLong() ^ bit);
    } else if (column == AxisColumn && role == Qt::EditRole) {
        action[VerticalKey] = value.toInt() != 0;
    } else if (column == ActionColumn && role == Qt::EditRole) {
        const int chosen = value.toInt();
        if (chosen < 0 || chosen >= m_offered.size())
            return false;
        action[ActionKey] = m_offered.at(chosen).value(ActionKey).toString();
    } else if (column == ReverseColumn && role == Qt::CheckStateRole) {
        action[ReverseKey] = value.toInt() == Qt::Checked;
    } else {
        return false;
    }
    emit dataChanged(index, index, {role});
    return true;
}

Qt::ItemFlags QKScrollWheelActionsModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (index.column() == AxisColumn || index.column() == ActionColumn)
        flags |= Qt::ItemIsEditable;
    else
        flags |= Qt::ItemIsUserCheckable;
    return flags;
}

QVariant QKScrollWheelActionsModel::headerData(int section, Qt::Orientation orientation,
                                               int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QVariant();
    // The modifier columns are named by the keys a Linux keyboard has for them.
    switch (section) {
    case AxisColumn:
        return tr("Axis");
    case CommandColumn:
        return tr("Ctrl");
    case OptionColumn:
        return tr("Alt");
    case ShiftColumn:
        return tr("Shift");
    case ControlColumn:
        return tr("Meta");
    case CapsLockColumn:
        return tr("Caps Lock");
    case ActionColumn:
        return tr("Action");
    case ReverseColumn:
        return tr("Reverse");
    }
    return QVariant();
}

int QKScrollWheelActionsModel::offeredIndex(const QString &action) const
{
    for (int i = 0; i < m_offered.size(); ++i) {
        if (m_offered.at(i).value(ActionKey).toString() == action)
            return i;
    }
    return -1;
}
