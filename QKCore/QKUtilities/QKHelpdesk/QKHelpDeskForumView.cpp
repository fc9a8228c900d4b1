#include "QKHelpDeskForumView.h"

#include <QLabel>
#include <QVBoxLayout>

QKHelpDeskForumView::QKHelpDeskForumView(QWidget *parent) : QKHelpDeskView(parent)
{
    auto *layout = new QVBoxLayout(this);
    auto *label = new QLabel(tr("The user forum is on the support site."));
    label->setWordWrap(true);
    label->setAlignment(Qt::AlignCenter);
    layout->addWidget(label);
    resize(590, 300);
}

QString QKHelpDeskForumView::identifier() const
{
    return QStringLiteral("forum");
}

QString QKHelpDeskForumView::title() const
{
    return QStringLiteral("Forum");
}

bool QKHelpDeskForumView::isResizable() const
{
    return true;
}
