#pragma once

#include <QStyledItemDelegate>

/**
 * Shows a pop-up column of the scroll wheel table as combo boxes filled from the model's
 * PopUpItemsRole; choosing an item writes its index to the model at once.
 */
class QKScrollWheelPopUpDelegate : public QStyledItemDelegate
{
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &option,
                          const QModelIndex &index) const override;
    void setEditorData(QWidget *editor, const QModelIndex &index) const override;
    void setModelData(QWidget *editor, QAbstractItemModel *model,
                      const QModelIndex &index) const override;

private:
    void popUpChosen();
};
