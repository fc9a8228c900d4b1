#include "QKHelpDeskDebugRulesModel.h"

#include <QKApplicationLog.h>

namespace {

const QString ActiveColumn = QStringLiteral("active");
const QString DomainColumn = QStringLiteral("domain");
const QString ThresholdColumn = QStringLiteral("threshold");

QKApplicationLogRule *ruleAt(int row)
{
    const QList<QKApplicationLogRule *> rules = QKApplicationLog::sharedLog()->_rules();
    return row >= 0 && row < rules.size() ? rules[row] : nullptr;
}

} // namespace

QKHelpDeskDebugRulesModel::QKHelpDeskDebugRulesModel(QObject *parent) : QAbstractTableModel(parent)
{}

QKHelpDeskDebugRulesModel::~QKHelpDeskDebugRulesModel() = default;

QStringList QKHelpDeskDebugRulesModel::columnIdentifiers()
{
    return {ActiveColumn, DomainColumn, ThresholdColumn};
}

QVariant QKHelpDeskDebugRulesModel::objectValue(const QString &identifier, int row) const
{
    const QKApplicationLogRule *rule = ruleAt(row);
    if (!rule)
        return QVariant();
    if (identifier == ActiveColumn)
        return rule->active();
    if (identifier == DomainColumn)
        return rule->domain();
    if (identifier == ThresholdColumn)
        return rule->threshold();
    return QVariant();
}

void QKHelpDeskDebugRulesModel::setObjectValue(const QVariant &value, const QString &identifier,
                                               int row)
{
    QKApplicationLogRule *rule = ruleAt(row);
    if (!rule)
        return;
    if (identifier == ActiveColumn)
        rule->setActive(value.toBool());
    else if (identifier == ThresholdColumn)
        rule->setThreshold(value.toUInt());
    QKApplicationLog::sharedLog()->_updateDefaults();
    const int column = int(columnIdentifiers().indexOf(identifier));
    if (column >= 0)
        emit dataChanged(index(row, column), index(row, column));
}

void QKHelpDeskDebugRulesModel::reloadData()
{
    beginResetModel();
    endResetModel();
}

int QKHelpDeskDebugRulesModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(QKApplicationLog::sharedLog()->_rules().size());
}

int QKHelpDeskDebugRulesModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(columnIdentifiers().size());
}

QVariant QKHelpDeskDebugRulesModel::data(const QModelIndex &index, int role) const
{
    const QString identifier = columnIdentifiers().value(index.column());
    const QVariant value = objectValue(identifier, index.row());
    if (identifier == ActiveColumn) {
        if (role == Qt::CheckStateRole && value.isValid())
            return value.toBool() ? Qt::Checked : Qt::Unchecked;
        return QVariant();
    }
    return role == Qt::DisplayRole || role == Qt::EditRole ? value : QVariant();
}

bool QKHelpDeskDebugRulesModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    const QString identifier = columnIdentifiers().value(index.column());
    if (!ruleAt(index.row()))
        return false;
    if (identifier == ActiveColumn && role == Qt::CheckStateRole)
        setObjectValue(value.toInt() == Qt::Checked, identifier, index.row());
    else if (identifier != ActiveColumn && role == Qt::EditRole)
        setObjectValue(value, identifier, index.row());
    else
        return false;
    return true;
}

Qt::ItemFlags QKHelpDeskDebugRulesModel::flags(const QModelIndex &index) const
{
    const Qt::ItemFlags base = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (!index.isValid())
        return Qt::NoItemFlags;
    return base | (index.column() == 0 ? Qt::ItemIsUserCheckable : Qt::ItemIsEditable);
}

QVariant QKHelpDeskDebugRulesModel::headerData(int section, Qt::Orientation orientation,
                                               int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QVariant();
    const QString identifier = columnIdentifiers().value(section);
    return identifier.isEmpty() ? QVariant()
                                : QVariant(identifier.at(0).toUpper() + identifier.mid(1));
}
