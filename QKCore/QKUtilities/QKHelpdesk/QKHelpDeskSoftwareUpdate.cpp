#include "QKHelpDeskSoftwareUpdate.h"
#include "ui_QKHelpDeskSoftwareUpdate.h"

#include "QKHelpDesk.h"
#include "SUUpdater.h"

#include <QDateTime>

QKHelpDeskSoftwareUpdate::QKHelpDeskSoftwareUpdate(QWidget *parent)
    : QKHelpDeskView(parent), ui(std::make_unique<Ui::QKHelpDeskSoftwareUpdate>())
{
    ui->setupUi(this);
    connect(ui->checkNowButton, &QPushButton::clicked, this, [this] { checkNow(this); });
}

QKHelpDeskSoftwareUpdate::~QKHelpDeskSoftwareUpdate() = default;

QString QKHelpDeskSoftwareUpdate::identifier() const
{
    return QStringLiteral("softwareUpdate");
}

QString QKHelpDeskSoftwareUpdate::title() const
{
    return QStringLiteral("Software Update");
}

void QKHelpDeskSoftwareUpdate::checkNow(QObject *)
{
    if (const QKHelpDesk *desk = helpDesk())
        desk->sparkle()->checkForUpdates(this);
    ui->lastCheckText->setText(
        QDateTime::currentDateTime().toString(QStringLiteral("M/d/yy h:mm AP")));
}
