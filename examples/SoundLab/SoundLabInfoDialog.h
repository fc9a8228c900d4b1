#pragma once

#include <QDialog>

/** Shows what the host learns from the library about itself, the user and the machine. */
class SoundLabInfoDialog : public QDialog
{
    Q_OBJECT
public:
    explicit SoundLabInfoDialog(QWidget *parent = nullptr);
};
