#include "QKHelpDeskDocumentation.h"
#include "ui_QKHelpDeskDocumentation.h"

#include "QKHelpDesk.h"

#include <QKWorkspace.h>
#include <QUrl>

QKHelpDeskDocumentation::QKHelpDeskDocumentation(QWidget *parent)
    : QKHelpDeskView(parent), ui(std::make_unique<Ui::QKHelpDeskDocumentation>())
{
    ui->setupUi(this);
    connect(ui->viewOnlineButton, &QPushButton::clicked, this, [this] { viewOnline(this); });
}

QKHelpDeskDocumentation::~QKHelpDeskDocumentation() = default;

QString QKHelpDeskDocumentation::identifier() const
{
    return QStringLiteral("documentation");
}

QString QKHelpDeskDocumentation::title() const
{
    return QStringLiteral("Documentation");
}

void QKHelpDeskDocumentation::viewOnline(QObject *)
{
    const QKHelpDesk *desk = helpDesk();
    if (!desk)
        return;
    QKWorkspace::openURL(QUrl(QStringLiteral("%1/manuals.php?appCode=%2&version=%3")
                                  .arg(desk->baseURL(), desk->appCode(), desk->version())));
}
