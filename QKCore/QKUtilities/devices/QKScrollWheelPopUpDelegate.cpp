#include "QKScrollWheelPopUpDelegate.h"

#include "QKScrollWheelActionsModel.h"

#include <QComboBox>
#include <QSignalBlocker>

QWidget *QKScrollWheelPopUpDelegate::createEditor(QWidget *parent, const QStyleOptionViewItem &,
                                                  const QModelIndex &index) const
{
    auto *popUp = new QComboBox(parent);
    popUp->addItems(index.data(QKScrollWheelActionsModel::PopUpItemsRole).toStringList());
    connect(popUp, &QComboBox::activated, this, &QKScrollWheelPopUpDelegate::popUpChosen);
    return popUp;
}

void QKScrollWheelPopUpDelegate::setEditorData(QWidget *editor, const QModelIndex &index) const
{
    auto *popUp = static_cast<QComboBox *>(editor);
    const QSignalBlocker blocker(popUp);
    popUp->setCurrentIndex(index.data(Qt::EditRole).toInt());
}

void QKScrollWheelPopUpDelegate::setModelData(QWidget *editor, QAbstractItemModel *model,
                                              const QModelIndex &index) const
{
    const int chosen = static_cast<QComboBox *>(editor)->currentIndex();
    if (chosen >= 0)
        model->setData(index, chosen, Qt::EditRole);
}

void QKScrollWheelPopUpDelegate::popUpChosen()
{
    // A choice takes effect at once, as a pop-up menu's does; there is no editing to end.
    if (auto *popUp = qobject_cast<QWidget *>(sender()))
        emit commitData(popUp);
}
