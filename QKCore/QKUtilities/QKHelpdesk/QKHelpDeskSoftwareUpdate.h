#pragma once

#include "QKHelpDeskView.h"

#include <memory>

namespace Ui {
class QKHelpDeskSoftwareUpdate;
}

/** The software update pane: the update settings, the last check and a check on demand. */
class QKUTILITIES_EXPORT QKHelpDeskSoftwareUpdate : public QKHelpDeskView
{
    Q_OBJECT
public:
    explicit QKHelpDeskSoftwareUpdate(QWidget *parent = nullptr);
    ~QKHelpDeskSoftwareUpdate() override;

    QString identifier() const override;
    QString title() const override;

    /** Runs a check the user asked for and shows the time of the click as the last check,
     *  whatever the check then finds. */
    Q_INVOKABLE void checkNow(QObject *sender = nullptr);

private:
    std::unique_ptr<Ui::QKHelpDeskSoftwareUpdate> ui;
};
