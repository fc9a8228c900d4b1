#pragma once

#include "QKUtilitiesGlobal.h"

#include <QAbstractTableModel>
#include <QVariantMap>

/**
 * The scroll wheel mappings as the manager's table shows them, one row per mapping
 * dictionary ("vertical", "modifiers", "action", "reverse"), earlier rows first.
 *
 * The "axis" and "action" columns are pop-ups: their edit value is the index of the chosen
 * item and PopUpItemsRole lists the items' titles. The modifier and "reverse" columns are
 * check boxes.
 */
class QKUTILITIES_EXPORT QKScrollWheelActionsModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column {
        AxisColumn,
        CommandColumn,
        OptionColumn,
        ShiftColumn,
        ControlColumn,
        CapsLockColumn,
        ActionColumn,
        ReverseColumn,
        ColumnCount
    };
    /** The titles of a pop-up column's items, as a QStringList. */
    static constexpr int PopUpItemsRole = Qt::UserRole + 1;

    /** The keys of a mapping dictionary, and of an action's entry ("title"). */
    static inline const QString VerticalKey = QStringLiteral("vertical");
    static inline const QString ModifiersKey = QStringLiteral("modifiers");
    static inline const QString ActionKey = QStringLiteral("action");
    static inline const QString ReverseKey = QStringLiteral("reverse");
    static inline const QString TitleKey = QStringLiteral("title");
    /** The Caps Lock bit of the modifier flags. */
    static constexpr quint32 CapsLockMask = 0x10000;

    explicit QKScrollWheelActionsModel(QObject *parent = nullptr);

    /** The column's identifier: "axis", "command", "option", "shift", "control",
     *  "caps lock", "action" or "reverse". */
    static QString identifier(int column);
    /** The modifier bit a check box column stands for; 0 for the other columns. */
    static quint32 modifierForColumn(int column);

    /** The mapping dictionaries, row by row. */
    QList<QVariantMap> actions() const;
    void setActions(const QList<QVariantMap> &actions);
    void appendAction(const QVariantMap &action);
    void removeAction(int row);

    /** The actions offered in the "action" pop-up: dictionaries with "title" and "action". */
    QList<QVariantMap> offeredActions() const;
    void setOfferedActions(const QList<QVariantMap> &offered);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

private:
    int offeredIndex(const QString &action) const;

    QList<QVariantMap> m_actions;
    QList<QVariantMap> m_offered;
};
