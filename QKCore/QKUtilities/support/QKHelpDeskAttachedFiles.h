#pragma once

#include "QKUtilitiesGlobal.h"

#include <QAbstractTableModel>
#include <QStringList>

/**
 * The files a user attaches to a support request, in the order added, as the attach-files
 * table shows them: one row per file, titled with the file's name.
 *
 * Files dropped from a file manager are accepted as a whole or not at all: a drop is
 * refused when it holds a folder, something that is not a local file, or a file whose name
 * is already attached (the archive stores files without their folders, so two files of one
 * name would collide). Names repeated within one drop are not compared with each other.
 */
class QKUTILITIES_EXPORT QKHelpDeskAttachedFiles : public QAbstractTableModel
{
    Q_OBJECT
public:
    explicit QKHelpDeskAttachedFiles(QObject *parent = nullptr);
    ~QKHelpDeskAttachedFiles() override;

    /** The attached paths in the order added. */
    QStringList paths() const { return m_paths; }
    bool isEmpty() const { return m_paths.isEmpty(); }
    /** Appends @p paths as they are; a path attached before is attached again. */
    void append(const QStringList &paths);
    /** Removes the files in @p rows; rows out of range are ignored. */
    void removeRowsAt(QList<int> rows);
    void clear();

    /** Whether a drop of @p paths is accepted (see the class description). */
    bool validateDrop(const QStringList &paths) const;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    /** The file name for display, the full path as tool tip, in any column. */
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    QStringList mimeTypes() const override;
    Qt::DropActions supportedDropActions() const override;
    /** A drop anywhere on the table counts as a drop onto the whole table. */
    bool canDropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column,
                         const QModelIndex &parent) const override;
    /** Appends every dropped file and answers true; a refused drop answers false. */
    bool dropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column,
                      const QModelIndex &parent) override;

private:
    QStringList m_paths;
};
