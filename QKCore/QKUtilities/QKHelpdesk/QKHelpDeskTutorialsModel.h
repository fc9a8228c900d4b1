#pragma once

#include "QKUtilitiesGlobal.h"

#include <QAbstractItemModel>
#include <QVariantList>
#include <QVariantMap>

#include <memory>

/**
 * The tutorial index as a tree with one column, "title": the top-level rows are the
 * index's entries, an entry's children are its "items". An entry that has "items" is a
 * group and can be expanded, even when the list is empty.
 */
class QKUTILITIES_EXPORT QKHelpDeskTutorialsModel : public QAbstractItemModel
{
    Q_OBJECT
public:
    explicit QKHelpDeskTutorialsModel(QObject *parent = nullptr);
    ~QKHelpDeskTutorialsModel() override;

    /** Replaces the tree with @p entries (dictionaries; anything else is an empty entry). */
    void setEntries(const QVariantList &entries);
    /** The dictionary behind @p index; empty for an invalid index. */
    QVariantMap entry(const QModelIndex &index) const;

    QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    bool hasChildren(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;

private:
    struct Node;
    const Node *node(const QModelIndex &index) const;

    std::unique_ptr<Node> m_root;
};
