#include "QKHelpDeskAttachFilesPanel.h"
#include "ui_QKHelpDeskAttachFilesPanel.h"

#include "QKHelpDeskAttachedFiles.h"

#include <QKAlert.h>

#include <QItemSelectionModel>

QKHelpDeskAttachFilesPanel::QKHelpDeskAttachFilesPanel(QWidget *window)
    : QDialog(window), ui(std::make_unique<Ui::QKHelpDeskAttachFilesPanel>()),
      m_attachedFiles(new QKHelpDeskAttachedFiles(this))
{
    ui->setupUi(this);
    setWindowModality(Qt::WindowModal);
    ui->attachedFilesTable->setModel(m_attachedFiles);
    connect(ui->addAttachedFileButton, &QPushButton::clicked, this,
            &QKHelpDeskAttachFilesPanel::addAttachedFile);
    connect(ui->removeAttachedFilesButton, &QPushButton::clicked, this,
            &QKHelpDeskAttachFilesPanel::removeAttachedFile);
    connect(ui->closeAttachFilesButton, &QPushButton::clicked, this,
            &QKHelpDeskAttachFilesPanel::closeAttachFilesPanel);
    connect(ui->attachedFilesTable->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &QKHelpDeskAttachFilesPanel::tableViewSelectionDidChange);
    // A reset (the files cleared after a request) drops the selection without a signal.
    connect(m_attachedFiles, &QAbstractItemModel::modelReset, this,
            &QKHelpDeskAttachFilesPanel::tableViewSelectionDidChange);
}

QKHelpDeskAttachFilesPanel::~QKHelpDeskAttachFilesPanel() = default;

QKHelpDeskAttachedFiles *QKHelpDeskAttachFilesPanel::attachedFiles() const
{
    return m_attachedFiles;
}

void QKHelpDeskAttachFilesPanel::openAttachFilesPanel()
{
    open();
}

void QKHelpDeskAttachFilesPanel::addAttachedFile()
{
    QKFilePanelRequest request;
    request.title = tr("Attach Files");
    request.allowsMultipleSelection = true;
    request.parent = this;
    m_attachedFiles->append(QKFilePanels::runOpenPanel(request));
}

void QKHelpDeskAttachFilesPanel::removeAttachedFile()
{
    QList<int> rows;
    for (const QModelIndex &index : ui->attachedFilesTable->selectionModel()->selectedRows())
        rows << index.row();
    m_attachedFiles->removeRowsAt(rows);
    ui->attachedFilesTable->clearSelection();
}

void QKHelpDeskAttachFilesPanel::closeAttachFilesPanel()
{
    hide();
    setResult(QDialog::Accepted);
    emit closed(!m_attachedFiles->isEmpty());
}

void QKHelpDeskAttachFilesPanel::reject()
{
    closeAttachFilesPanel();
}

void QKHelpDeskAttachFilesPanel::tableViewSelectionDidChange()
{
    ui->removeAttachedFilesButton->setEnabled(
        ui->attachedFilesTable->selectionModel()->hasSelection());
}
