#pragma once

#include "QKUtilitiesGlobal.h"

#include <QComboBox>
#include <QStringList>

/**
 * A pop-up menu whose items carry tags, numbers that stand for what an item means (an
 * interval in seconds, a file type) independently of its title and position.
 *
 * The tags come from the interface file as the "itemTags" property, one decimal number per
 * item in item order; an item without one has the tag 0.
 */
class QKUTILITIES_EXPORT QKPopUpButton : public QComboBox
{
    Q_OBJECT
    Q_PROPERTY(QStringList itemTags READ itemTags WRITE setItemTags)
public:
    explicit QKPopUpButton(QWidget *parent = nullptr);
    ~QKPopUpButton() override;

    QStringList itemTags() const;
    void setItemTags(const QStringList &tags);

    /** The tag of the item at @p index; 0 for an item without one. */
    int tagOfItem(int index) const;
    /** The index of the first item tagged @p tag; -1 when none is. */
    int indexOfItemWithTag(int tag) const;
    /** The tag of the selected item; -1 when no item is selected. */
    int selectedTag() const;
    /** Selects the first item tagged @p tag, or no item when none is; false in that case. */
    bool selectItemWithTag(int tag);

private:
    QStringList m_itemTags;
};
