#pragma once

#include "QKHelpDeskView.h"

#include <memory>

namespace Ui {
class QKHelpDeskDebug;
}

/** The debug log pane: switches the application log and edits its thresholds. */
class QKUTILITIES_EXPORT QKHelpDeskDebug : public QKHelpDeskView
{
    Q_OBJECT
public:
    explicit QKHelpDeskDebug(QWidget *parent = nullptr);
    ~QKHelpDeskDebug() override;

    QString identifier() const override;
    QString title() const override;

private:
    std::unique_ptr<Ui::QKHelpDeskDebug> ui;
};
