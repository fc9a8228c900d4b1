#include "QKHelpDeskSoftwareUpdate.h"
#include "ui_QKHelpDeskSoftwareUpdate.h"

#include "QKHelpDesk.h"
#include "QKHelpDeskDates.h"
#include "SUConstants.h"
#include "SUUpdater.h"

#include <QKClock.h>
#include <QKUserDefaults.h>

#include <QDateTime>

const QString QKHelpDeskSoftwareUpdate::LastCheckFormat = QStringLiteral("%1m/%e/%y %1I:%M %p");

QKHelpDeskSoftwareUpdate::QKHelpDeskSoftwareUpdate(QWidget *parent)
    : QKHelpDeskView(parent), ui(std::make_unique<Ui::QKHelpDeskSoftwareUpdate>())
{
    ui->setupUi(this);
    // Only the user's changes are actions; setting the controls from the settings is not.
    connect(ui->checkAtStartupButton, &QCheckBox::clicked, this,
            [this] { checkChanged(ui->checkAtStartupButton); });
    connect(ui->checkIntervalButton, &QCheckBox::clicked, this,
            [this] { checkChanged(ui->checkIntervalButton); });
    connect(ui->checkIntervalPopup, &QComboBox::activated, this,
            [this] { checkChanged(ui->checkIntervalPopup); });
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

void QKHelpDeskSoftwareUpdate::awakeFromNib()
{
    QKHelpDeskView::awakeFromNib();
    const QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    ui->checkAtStartupButton->setChecked(defaults->boolForKey(SUCheckAtStartupKey));
    const qint64 interval = defaults->integerForKey(SUScheduledCheckIntervalKey);
    ui->checkIntervalButton->setChecked(interval != 0);
    if (interval != 0)
        ui->checkIntervalPopup->selectItemWithTag(int(interval));
    const QDateTime last = QKHelpDeskDates::storedDate(SULastCheckTimeKey, QDateTime());
    ui->lastCheckText->setText(
        last.isValid() ? QKHelpDeskDates::stringWithCalendarFormat(last, LastCheckFormat)
                       : QStringLiteral("Never"));
}

void QKHelpDeskSoftwareUpdate::checkChanged(QObject *)
{
    // No selected interval (a stored one the menu does not offer) counts as none.
    const int interval =
        ui->checkIntervalButton->isChecked() ? qMax(0, ui->checkIntervalPopup->selectedTag()) : 0;
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    defaults->setBool(ui->checkAtStartupButton->isChecked(), SUCheckAtStartupKey);
    defaults->setInteger(interval, SUScheduledCheckIntervalKey);
    if (const QKHelpDesk *desk = helpDesk())
        desk->sparkle()->scheduleCheckWithInterval(double(interval));
}

void QKHelpDeskSoftwareUpdate::checkNow(QObject *)
{
    if (const QKHelpDesk *desk = helpDesk())
        desk->sparkle()->checkForUpdates(this);
    ui->lastCheckText->setText(
        QKHelpDeskDates::stringWithCalendarFormat(QKClock::now(), LastCheckFormat));
}
