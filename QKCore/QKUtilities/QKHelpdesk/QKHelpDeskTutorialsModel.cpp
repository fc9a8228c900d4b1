#include "QKHelpDeskTutorialsModel.h"

#include <vector>

namespace {
const QString ItemsKey = QStringLiteral("items");
}

struct QKHelpDeskTutorialsModel::Node
{
    QVariantMap entry;
    const Node *parent = nullptr;
    int row = 0;
    std::vector<std::unique_ptr<Node>> children;

    void addChildren(const QVariantList &entries)
    {
        for (const QVariant &value : entries) {
            auto child = std::make_unique<Node>();
            child->entry = value.toMap();
            child->parent = this;
            child->row = int(children.size());
            child->addChildren(child->entry.value(ItemsKey).toList());
            children.push_back(std::move(child));
        }
    }
};

QKHelpDeskTutorialsModel::QKHelpDeskTutorialsModel(QObject *parent)
    : QAbstractItemModel(parent), m_root(std::make_unique<Node>())
{}

QKHelpDeskTutorialsModel::~QKHelpDeskTutorialsModel() = default;

void QKHelpDeskTutorialsModel::setEntries(const QVariantList &entries)
{
    beginResetModel();
    m_root = std::make_unique<Node>();
    m_root->addChildren(entries);
    endResetModel();
}

QVariantMap QKHelpDeskTutorialsModel::entry(const QModelIndex &index) const
{
    return index.isValid() ? node(index)->entry : QVariantMap();
}

const QKHelpDeskTutorialsModel::Node *QKHelpDeskTutorialsModel::node(const QModelIndex &index) const
{
    return index.isValid() ? static_cast<const Node *>(index.internalPointer()) : m_root.get();
}

QModelIndex QKHelpDeskTutorialsModel::index(int row, int column, const QModelIndex &parent) const
{
    const Node *parentNode = node(parent);
    if (column != 0 || row < 0 || size_t(row) >= parentNode->children.size())
        return QModelIndex();
    return createIndex(row, 0, parentNode->children[size_t(row)].get());
}

QModelIndex QKHelpDeskTutorialsModel::parent(const QModelIndex &child) const
{
    const Node *parentNode = child.isValid() ? node(child)->parent : nullptr;
    if (!parentNode || parentNode == m_root.get())
        return QModelIndex();
    return createIndex(parentNode->row, 0, const_cast<Node *>(parentNode));
}

int QKHelpDeskTutorialsModel::rowCount(const QModelIndex &parent) const
{
    if (parent.column() > 0)
        return 0;
    return int(node(parent)->children.size());
}

int QKHelpDeskTutorialsModel::columnCount(const QModelIndex &) const
{
    return 1;
}

bool QKHelpDeskTutorialsModel::hasChildren(const QModelIndex &parent) const
{
    return parent.isValid() ? node(parent)->entry.contains(ItemsKey) : !m_root->children.empty();
}

QVariant QKHelpDeskTutorialsModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || role != Qt::DisplayRole)
        return QVariant();
    return node(index)->entry.value(QStringLiteral("title")).toString();
}
