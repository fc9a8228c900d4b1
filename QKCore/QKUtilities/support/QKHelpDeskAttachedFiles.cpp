#include "QKHelpDeskAttachedFiles.h"

#include <QFileInfo>
#include <QMimeData>
#include <QUrl>

#include <algorithm>
#include <optional>

namespace {

// The local files of a drop; nullopt when something else was dropped too.
std::optional<QStringList> droppedFiles(const QMimeData *data)
{
    if (!data || !data->hasUrls())
        return std::nullopt;
    QStringList paths;
    for (const QUrl &url : data->urls()) {
        if (!url.isLocalFile())
            return std::nullopt;
        paths << url.toLocalFile();
    }
    return paths;
}

} // namespace

QKHelpDeskAttachedFiles::QKHelpDeskAttachedFiles(QObject *parent) : QAbstractTableModel(parent) {}

QKHelpDeskAttachedFiles::~QKHelpDeskAttachedFiles() = default;

void QKHelpDeskAttachedFiles::append(const QStringList &paths)
{
    if (paths.isEmpty())
        return;
    beginInsertRows(QModelIndex(), int(m_paths.size()), int(m_paths.size() + paths.size() - 1));
    m_paths << paths;
    endInsertRows();
}

void QKHelpDeskAttachedFiles::removeRowsAt(QList<int> rows)
{
    std::sort(rows.begin(), rows.end(), std::greater<int>());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    for (const int row : std::as_const(rows)) {
        if (row < 0 || row >= m_paths.size())
            continue;
        beginRemoveRows(QModelIndex(), row, row);
        m_paths.removeAt(row);
        endRemoveRows();
    }
}

void QKHelpDeskAttachedFiles::clear()
{
    beginResetModel();
    m_paths.clear();
    endResetModel();
}

bool QKHelpDeskAttachedFiles::validateDrop(const QStringList &paths) const
{
    if (paths.isEmpty())
        return false;
    QStringList attachedNames;
    for (const QString &path : m_paths)
        attachedNames << QFileInfo(path).fileName();
    return std::none_of(paths.cbegin(), paths.cend(), [&](const QString &path) {
        const QFileInfo file(path);
        return file.isDir() || attachedNames.contains(file.fileName());
    });
}

int QKHelpDeskAttachedFiles::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_paths.size());
}

int QKHelpDeskAttachedFiles::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : 1;
}

QVariant QKHelpDeskAttachedFiles::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_paths.size())
        return QVariant();
    if (role == Qt::DisplayRole)
        return QFileInfo(m_paths.at(index.row())).fileName();
    if (role == Qt::ToolTipRole)
        return m_paths.at(index.row());
    return QVariant();
}

QVariant QKHelpDeskAttachedFiles::headerData(int section, Qt::Orientation orientation,
                                             int role) const
{
    if (orientation == Qt::Horizontal && section == 0 && role == Qt::DisplayRole)
        return tr("Name");
    return QAbstractTableModel::headerData(section, orientation, role);
}

Qt::ItemFlags QKHelpDeskAttachedFiles::flags(const QModelIndex &index) const
{
    return QAbstractTableModel::flags(index) | Qt::ItemIsDropEnabled;
}

QStringList QKHelpDeskAttachedFiles::mimeTypes() const
{
    return {QStringLiteral("text/uri-list")};
}

Qt::DropActions QKHelpDeskAttachedFiles::supportedDropActions() const
{
    return Qt::CopyAction | Qt::MoveAction | Qt::LinkAction;
}

bool QKHelpDeskAttachedFiles::canDropMimeData(const QMimeData *data, Qt::DropAction, int, int,
                                              const QModelIndex &) const
{
    const std::optional<QStringList> paths = droppedFiles(data);
    return paths && validateDrop(*paths);
}

bool QKHelpDeskAttachedFiles::dropMimeData(const QMimeData *data, Qt::DropAction action, int row,
                                           int column, const QModelIndex &parent)
{
    if (!canDropMimeData(data, action, row, column, parent))
        return false;
    append(*droppedFiles(data));
    return true;
}
