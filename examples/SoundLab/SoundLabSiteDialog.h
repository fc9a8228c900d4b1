#pragma once

#include <QDialog>

class QPlainTextEdit;
class QPushButton;

/**
 * Asks the support site what it offers this build: the update feed, the current manual and
 * the help desk's categories. The requests run on a worker thread, as the help desk does
 * at start-up, and the answers come back to the window on the main thread.
 */
class SoundLabSiteDialog : public QDialog
{
    Q_OBJECT
public:
    explicit SoundLabSiteDialog(QWidget *parent = nullptr);

private:
    void refresh();

    QPlainTextEdit *m_report;
    QPushButton *m_refreshButton;
};
