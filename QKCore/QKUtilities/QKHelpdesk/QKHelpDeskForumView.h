#pragma once

#include "QKHelpDeskView.h"

/** The user forum pane; not offered in the toolbar. */
class QKUTILITIES_EXPORT QKHelpDeskForumView : public QKHelpDeskView
{
    Q_OBJECT
public:
    explicit QKHelpDeskForumView(QWidget *parent = nullptr);

    QString identifier() const override;
    QString title() const override;
    bool isResizable() const override;
};
