#pragma once

#include "QKHelpDeskView.h"

/** The knowledge base pane; not offered in the toolbar. */
class QKUTILITIES_EXPORT QKHelpDeskKnowledgeBaseView : public QKHelpDeskView
{
    Q_OBJECT
public:
    explicit QKHelpDeskKnowledgeBaseView(QWidget *parent = nullptr);

    QString identifier() const override;
    QString title() const override;
    bool isResizable() const override;
};
