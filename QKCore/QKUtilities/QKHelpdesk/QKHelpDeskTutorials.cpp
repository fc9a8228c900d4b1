#include "QKHelpDeskTutorials.h"
#include "ui_QKHelpDeskTutorials.h"

QKHelpDeskTutorials::QKHelpDeskTutorials(QWidget *parent)
    : QKHelpDeskView(parent), ui(std::make_unique<Ui::QKHelpDeskTutorials>())
{
    ui->setupUi(this);
}

QKHelpDeskTutorials::~QKHelpDeskTutorials() = default;

QString QKHelpDeskTutorials::identifier() const
{
    return QStringLiteral("tutorials");
}

QString QKHelpDeskTutorials::title() const
{
    return QStringLiteral("Tutorials");
}

bool QKHelpDeskTutorials::isResizable() const
{
    return true;
}

double QKHelpDeskTutorials::minimumHeight() const
{
    return 200.0;
}
