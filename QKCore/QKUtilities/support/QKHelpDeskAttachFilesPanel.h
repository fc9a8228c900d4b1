#pragma once

#include "QKUtilitiesGlobal.h"

#include <QDialog>

#include <memory>

class QKHelpDeskAttachedFiles;

namespace Ui {
class QKHelpDeskAttachFilesPanel;
}

/**
 * The support pane's attach-files sheet: a table of the attached files, which also takes
 * files dropped from a file manager, with buttons to add files through an open panel, to
 * remove the selected ones and to close the sheet. It is window-modal over the help desk
 * window while it shows.
 */
class QKUTILITIES_EXPORT QKHelpDeskAttachFilesPanel : public QDialog
{
    Q_OBJECT
public:
    explicit QKHelpDeskAttachFilesPanel(QWidget *window = nullptr);
    ~QKHelpDeskAttachFilesPanel() override;

    /** The attached files, shown by the table. */
    QKHelpDeskAttachedFiles *attachedFiles() const;

    /** Shows the sheet over its window. */
    void openAttachFilesPanel();
    /** Asks for files (several at once, of any type) and appends every chosen one, even
     *  one attached before. */
    void addAttachedFile();
    /** Removes the files selected in the table, then clears the selection. */
    void removeAttachedFile();
    /** Closes the sheet; closed() tells whether files are attached. */
    void closeAttachFilesPanel();

Q_SIGNALS:
    /** The sheet was closed with @p attached files attached (true when at least one). */
    void closed(bool attached);

protected:
    /** Escape closes the sheet like its Done button. */
    void reject() override;

private:
    void tableViewSelectionDidChange();

    std::unique_ptr<Ui::QKHelpDeskAttachFilesPanel> ui;
    QKHelpDeskAttachedFiles *m_attachedFiles;
};
