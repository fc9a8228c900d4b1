#pragma once

#include "QKHelpDeskView.h"

#include <memory>

namespace Ui {
class QKHelpDeskReleaseNotesView;
}

/** The release notes pane: the notes of the appcast's releases. */
class QKUTILITIES_EXPORT QKHelpDeskReleaseNotesView : public QKHelpDeskView
{
    Q_OBJECT
public:
    explicit QKHelpDeskReleaseNotesView(QWidget *parent = nullptr);
    ~QKHelpDeskReleaseNotesView() override;

    QString identifier() const override;
    QString title() const override;
    bool isResizable() const override;
    double minimumHeight() const override;

private:
    std::unique_ptr<Ui::QKHelpDeskReleaseNotesView> ui;
};
