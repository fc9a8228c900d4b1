#include "QKPopUpButton.h"

QKPopUpButton::QKPopUpButton(QWidget *parent) : QComboBox(parent) {}

QKPopUpButton::~QKPopUpButton() = default;

QStringList QKPopUpButton::itemTags() const
{
    return m_itemTags;
}

void QKPopUpButton::setItemTags(const QStringList &tags)
{
    m_itemTags = tags;
}

int QKPopUpButton::tagOfItem(int index) const
{
    return m_itemTags.value(index).toInt();
}

int QKPopUpButton::indexOfItemWithTag(int tag) const
{
    for (int index = 0; index < count(); ++index) {
        if (tagOfItem(index) == tag)
            return index;
    }
    return -1;
}

int QKPopUpButton::selectedTag() const
{
    return currentIndex() < 0 ? -1 : tagOfItem(currentIndex());
}

bool QKPopUpButton::selectItemWithTag(int tag)
{
    const int index = indexOfItemWithTag(tag);
    setCurrentIndex(index);
    return index >= 0;
}
