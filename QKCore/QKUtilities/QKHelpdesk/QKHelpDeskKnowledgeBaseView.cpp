#include "QKHelpDeskKnowledgeBaseView.h"

#include <QLabel>
#include <QVBoxLayout>

QKHelpDeskKnowledgeBaseView::QKHelpDeskKnowledgeBaseView(QWidget *parent) : QKHelpDeskView(parent)
{
    auto *layout = new QVBoxLayout(this);
    auto *label = new QLabel(tr("The knowledge base is on the support site."));
    label->setWordWrap(true);
    label->setAlignment(Qt::AlignCenter);
    layout->addWidget(label);
    resize(590, 300);
}

QString QKHelpDeskKnowledgeBaseView::identifier() const
{
    return QStringLiteral("knowledgeBase");
}

QString QKHelpDeskKnowledgeBaseView::title() const
{
    return QStringLiteral("Knowledge Base");
}

bool QKHelpDeskKnowledgeBaseView::isResizable() const
{
    return true;
}
