#include "QKHelpDeskSupport.h"
#include "ui_QKHelpDeskSupport.h"

#include "HSResults.h"

QKHelpDeskSupport::QKHelpDeskSupport(QWidget *parent)
    : QKHelpDeskView(parent), ui(std::make_unique<Ui::QKHelpDeskSupport>())
{
    ui->setupUi(this);
    buildCategoryPopup(HSResults());
}

QKHelpDeskSupport::~QKHelpDeskSupport() = default;

QString QKHelpDeskSupport::identifier() const
{
    return QStringLiteral("support");
}

QString QKHelpDeskSupport::title() const
{
    return QStringLiteral("Support");
}

bool QKHelpDeskSupport::isResizable() const
{
    return true;
}

double QKHelpDeskSupport::minimumHeight() const
{
    return 400.0;
}

void QKHelpDeskSupport::buildCategoryPopup(const HSResults &results)
{
    QComboBox *popup = ui->categoryPopup;
    popup->clear();
    popup->addItem(QStringLiteral("<choose a category>"));
    const QVariantList categories = results.results().toList();
    for (const QVariant &entry : categories) {
        const QVariantMap category = entry.toMap();
        if (category.value(QStringLiteral("fAllowPublicSubmit")).toString().toInt() != 1 ||
            category.value(QStringLiteral("fDeleted")).toString().toInt() != 0)
            continue;
        popup->addItem(category.value(QStringLiteral("sCategory")).toString(),
                       category.value(QStringLiteral("xCategory")).toString().toInt());
    }
    popup->setEnabled(popup->count() > 1);
}

void QKHelpDeskSupport::setupForCrashReport()
{
    ui->bodyText->setPlainText(QStringLiteral("I had a crash! Here's what happened...\n\n"));
    ui->submitCrashLog1Button->setChecked(true);
}

void QKHelpDeskSupport::setupForApplicationErrorWithReason(const QString &reason,
                                                           const QString &stackTrace)
{
    ui->bodyText->setPlainText(
        QStringLiteral("I had an application error!\n\n%1\n\n%2").arg(reason, stackTrace));
}
