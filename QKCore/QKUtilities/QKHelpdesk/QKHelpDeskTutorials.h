#pragma once

#include "QKHelpDeskView.h"

#include <memory>

namespace Ui {
class QKHelpDeskTutorials;
}

/** The tutorials pane: the video tutorials published for this application and version. */
class QKUTILITIES_EXPORT QKHelpDeskTutorials : public QKHelpDeskView
{
    Q_OBJECT
public:
    explicit QKHelpDeskTutorials(QWidget *parent = nullptr);
    ~QKHelpDeskTutorials() override;

    QString identifier() const override;
    QString title() const override;
    bool isResizable() const override;
    double minimumHeight() const override;

private:
    std::unique_ptr<Ui::QKHelpDeskTutorials> ui;
};
