#include "QKHelpDeskDebug.h"
#include "ui_QKHelpDeskDebug.h"

QKHelpDeskDebug::QKHelpDeskDebug(QWidget *parent)
    : QKHelpDeskView(parent), ui(std::make_unique<Ui::QKHelpDeskDebug>())
{
    ui->setupUi(this);
}

QKHelpDeskDebug::~QKHelpDeskDebug() = default;

QString QKHelpDeskDebug::identifier() const
{
    return QStringLiteral("debug");
}

QString QKHelpDeskDebug::title() const
{
    return QStringLiteral("Debug");
}
