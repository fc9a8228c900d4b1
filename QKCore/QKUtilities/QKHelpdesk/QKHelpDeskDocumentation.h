#pragma once

#include "QKHelpDeskView.h"

#include <memory>

namespace Ui {
class QKHelpDeskDocumentation;
}

/** The documentation pane: the current manual, its download and the online manual. */
class QKUTILITIES_EXPORT QKHelpDeskDocumentation : public QKHelpDeskView
{
    Q_OBJECT
public:
    explicit QKHelpDeskDocumentation(QWidget *parent = nullptr);
    ~QKHelpDeskDocumentation() override;

    QString identifier() const override;
    QString title() const override;

    /** Opens the online manual ("<base>/manuals.php?appCode=<code>&version=<major>") in the
     *  browser; does nothing without a help desk. */
    Q_INVOKABLE void viewOnline(QObject *sender = nullptr);

private:
    std::unique_ptr<Ui::QKHelpDeskDocumentation> ui;
};
