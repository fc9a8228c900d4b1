#pragma once

#include "QKUtilitiesGlobal.h"

#include <QAbstractTableModel>
#include <QStringList>

/**
 * The shared application log's per-domain rules as a table, one row per rule in the
 * order they were added, with the columns "active" (a check box), "domain" and
 * "threshold" (the level as a number). Every edit is stored at once; an edit of the domain
 * changes nothing but still stores the settings.
 *
 * The model reads the shared log at every use, so it follows a log that was reset.
 */
class QKUTILITIES_EXPORT QKHelpDeskDebugRulesModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    explicit QKHelpDeskDebugRulesModel(QObject *parent = nullptr);
    ~QKHelpDeskDebugRulesModel() override;

    /** "active", "domain", "threshold": the columns in order. */
    static QStringList columnIdentifiers();

    /** The value of the column @p identifier in @p row: a boolean, a string or an unsigned
     *  number; invalid for an unknown column or row. */
    QVariant objectValue(const QString &identifier, int row) const;
    /** Sets the rule's flag ("active") or level ("threshold") from @p value, then stores the
     *  rules whatever the column. */
    void setObjectValue(const QVariant &value, const QString &identifier, int row);
    /** Shows the rules as the log has them now. */
    void reloadData();

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;
};
