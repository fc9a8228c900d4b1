#include "QKHelpDeskSupport.h"
#include "ui_QKHelpDeskSupport.h"

#include "HSForms.h"
#include "HSResults.h"
#include "QKHelpDesk.h"
#include "QKHelpDeskAttachFilesPanel.h"
#include "QKHelpDeskAttachedFiles.h"
#include "QKHelpDeskExchange.h"
#include "QKHelpDeskRequestHistory.h"
#include "QKHelpDeskSupportLog.h"
#include "QKHelpDeskUploadChain.h"
#include "QKSupportSite.h"
#include "QKSystemProfiler.h"

#include <QKAlert.h>
#include <QKApplication.h>
#include <QKBundle.h>
#include <QKUserDefaults.h>
#include <QKWorkspace.h>

#include <QFontDatabase>
#include <QStyle>
#include <QUrl>

using namespace QKHelpDeskSupportLog;

namespace {

const QString HelpDeskEmailKey = QStringLiteral("Help Desk Email");
// The help desk software's maker, credited under the pane.
const QString HelpSpotVendorURL = QStringLiteral("https://www.helpspot.com/");
const QString HelpSpotLine = QStringLiteral("Powered by HelpSpot");
constexpr qsizetype HelpSpotLinkStart = 11;
constexpr qsizetype HelpSpotLinkLength = 8;
constexpr double HelpSpotPointSize = 9.0;
const QString NoRequestsTitle = QStringLiteral("no requests found");

QUrl helpDeskAPIURL()
{
    return QUrl(QKSupportSite::helpDeskAPIURL());
}

// The panel of one exchange with the help desk: it runs for as long as the reply takes and
// cannot be cancelled.
void openExchangePanel(QKHelpDesk *desk, const QString &title)
{
    if (!desk)
        return;
    desk->setProgressPanelTitle(title);
    desk->setProgressIsIndeterminate(true);
    desk->setProgressCancelable(false);
    desk->openProgressPanel();
}

// The closed requests' style: the small system font, slanted.
QFont closedRequestFont()
{
    QFont font = QApplication::font();
    font.setPointSizeF(QFontDatabase::systemFont(QFontDatabase::SmallestReadableFont).pointSizeF());
    font.setItalic(true);
    return font;
}

} // namespace

struct QKHelpDeskSupport::Private
{
    QKHelpDeskExchange *exchange = nullptr;
    QKHelpDeskUploadChain *chain = nullptr;
    QKHelpDeskAttachFilesPanel *attachFilesPanel = nullptr;
    std::optional<HSResults> requests;
    QString requestID;
    QString requestHistoryID;
};

QKHelpDeskSupport::QKHelpDeskSupport(QWidget *parent)
    : QKHelpDeskView(parent), ui(std::make_unique<Ui::QKHelpDeskSupport>()),
      d(std::make_unique<Private>())
{
    ui->setupUi(this);
    d->exchange = new QKHelpDeskExchange(this);
    d->chain = new QKHelpDeskUploadChain(this, d->exchange);
    d->attachFilesPanel = new QKHelpDeskAttachFilesPanel(this);
    buildCategoryPopup(HSResults());
    buildRequestPopup();
    const QPixmap attachment = style()->standardIcon(QStyle::SP_FileIcon).pixmap(16, 16);
    ui->attachments1Image->setPixmap(attachment);
    ui->attachments2Image->setPixmap(attachment);
    connectActions();
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

QString QKHelpDeskSupport::helpSpotURL()
{
    return HelpSpotVendorURL;
}

void QKHelpDeskSupport::connectActions()
{
    connect(ui->submitButton, &QPushButton::clicked, this, [this] { submit(ui->submitButton); });
    connect(ui->searchButton, &QPushButton::clicked, this, [this] { search(ui->searchButton); });
    connect(ui->emailSearchText, &QLineEdit::returnPressed, this,
            [this] { search(ui->emailSearchText); });
    connect(ui->showClosedButton, &QCheckBox::toggled, this,
            [this] { showClosedChanged(ui->showClosedButton); });
    connect(ui->requestPopup, &QComboBox::activated, this,
            [this] { requestChanged(ui->requestPopup); });
    connect(ui->updateRequestButton, &QPushButton::clicked, this,
            [this] { updateRequest(ui->updateRequestButton); });
    for (QPushButton *button : {ui->attachFiles1Button, ui->attachFilesButton})
        connect(button, &QPushButton::clicked, this,
                [this, button] { openAttachFilesPanel(button); });
    connect(d->attachFilesPanel, &QKHelpDeskAttachFilesPanel::closed, this,
            &QKHelpDeskSupport::closeAttachFilesPanel);
    connect(d->chain, &QKHelpDeskUploadChain::finished, this, &QKHelpDeskSupport::chainDidFinish);
    connect(ui->helpSpotText, &QLabel::linkActivated, this,
            [](const QString &link) { QKWorkspace::openURL(QUrl(link)); });
}

void QKHelpDeskSupport::awakeFromNib()
{
    QKHelpDeskView::awakeFromNib();
    const QKContactCard me = QKWorkspace::meCard();
    if (!me.firstName.isEmpty())
        ui->firstNameText->setText(me.firstName);
    if (!me.lastName.isEmpty())
        ui->lastNameText->setText(me.lastName);
    if (!me.phone.isEmpty())
        ui->phoneText->setText(me.phone);

    const QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    if (defaults->hasKey(HelpDeskEmailKey)) {
        const QString email = defaults->stringForKey(HelpDeskEmailKey);
        ui->emailText->setText(email);
        ui->emailSearchText->setText(email);
    }

    QFont font = QApplication::font();
    font.setPointSizeF(HelpSpotPointSize);
    ui->helpSpotText->setFont(font);
    ui->helpSpotText->setTextInteractionFlags(Qt::TextBrowserInteraction);
    ui->helpSpotText->setText(
        HelpSpotLine.left(HelpSpotLinkStart).toHtmlEscaped() +
        QStringLiteral(
            "<a href=\"%1\" style=\"color: #0000ff; text-decoration: underline;\">%2</a>")
            .arg(HelpSpotVendorURL.toHtmlEscaped(),
                 HelpSpotLine.mid(HelpSpotLinkStart, HelpSpotLinkLength).toHtmlEscaped()) +
        HelpSpotLine.mid(HelpSpotLinkStart + HelpSpotLinkLength).toHtmlEscaped());
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

void QKHelpDeskSupport::submit(QObject *)
{
    const QString version =
        QKBundle::mainBundle()
            ->objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString"))
            .toString();
    if (ui->categoryPopup->currentIndex() <= 0) {
        QKAlert::runModal({QStringLiteral("Please choose a category"),
                           QStringLiteral("Choosing a category for your request helps us "
                                          "organize and prioritize your issue."),
                           {},
                           window()});
        return;
    }
    if (ui->bodyText->toPlainText().isEmpty()) {
        QKAlert::runModal({QStringLiteral("Please enter a message"),
                           QStringLiteral("We can't very well help you if you don't tell us "
                                          "what's wrong, now, can we?"),
                           {},
                           window()});
        return;
    }
    info(this, QStringLiteral("begin submit"));
    QKUserDefaults::standardUserDefaults()->setObject(ui->emailText->text(), HelpDeskEmailKey);

    HSNewRequest request;
    request.firstName = ui->firstNameText->text();
    request.lastName = ui->lastNameText->text();
    request.email = ui->emailText->text();
    request.phone = ui->phoneText->text();
    request.category = ui->categoryPopup->currentData().toInt();
    request.urgent = ui->urgentPopup->currentIndex() == 0;
    request.applicationName = QKApplication::currentName();
    request.version = version;
    request.body = ui->bodyText->toPlainText();

    info(this, QStringLiteral("sending request"));
    if (!d->exchange->start(helpDeskAPIURL(), HSForms::newRequest(request))) {
        warning(this, QStringLiteral("start sending request failed"));
        return;
    }
    d->exchange->setEndConnectionSelector([this](const auto &error) { endSubmit(error); });
    openExchangePanel(helpDesk(), QStringLiteral("Submitting request..."));
}

void QKHelpDeskSupport::endSubmit(const std::optional<QString> &error)
{
    QKHelpDesk *desk = helpDesk();
    if (error) {
        if (desk)
            desk->closeProgressPanelWithMessage(QStringLiteral("Submit failed!"));
        warning(this, QStringLiteral("sending request failed"));
        return;
    }
    // Without the request's numbers nothing says the request exists, and no upload could
    // be attached to it: the message stays for another try.
    const QVariantMap numbers = HSResults(d->exchange->responseData(), false).results().toMap();
    const QString requestID = numbers.value(QStringLiteral("xRequest")).toString();
    const QString requestHistoryID = numbers.value(QStringLiteral("xRequestHistory")).toString();
    if (requestID.isEmpty() || requestHistoryID.isEmpty()) {
        if (desk)
            desk->closeProgressPanelWithMessage(
                QStringLiteral("The help desk did not confirm the request!"));
        warning(this, QStringLiteral("the reply to the request holds no request numbers"));
        return;
    }
    info(this, QStringLiteral("submit success"));
    ui->bodyText->clear();
    d->requestID = requestID;
    d->requestHistoryID = requestHistoryID;
    startChain(ui->submitCrashLog1Button->isChecked());

    if (!ui->submitSystemProfileButton->isChecked()) {
        d->chain->endSubmitSystemProfile(std::nullopt);
        return;
    }
    info(this, QStringLiteral("creating thread for createSystemProfile"));
    if (desk) {
        desk->setProgressPanelTitle(QStringLiteral("Creating system profile..."));
        desk->setProgressCancelable(true);
    }
    d->chain->createSystemProfile();
}

void QKHelpDeskSupport::startChain(bool crashLogs)
{
    QKHelpDeskUploadChain::Plan plan;
    plan.requestID = d->requestID;
    plan.requestHistoryID = d->requestHistoryID;
    plan.crashLogs = crashLogs;
    plan.debugLog = ui->submitDebugLogButton->isChecked();
    plan.attachedFiles = attachedFiles();
    d->chain->setPlan(plan);
}

void QKHelpDeskSupport::chainDidFinish()
{
    ui->submitSystemProfileButton->setChecked(false);
    ui->submitCrashLog1Button->setChecked(false);
    ui->submitCrashLog2Button->setChecked(false);
    d->attachFilesPanel->attachedFiles()->clear();
    ui->attachments1Image->hide();
    ui->attachments2Image->hide();
    d->requestID.clear();
    d->requestHistoryID.clear();
    if (d->requests)
        search(this);
    else if (QKHelpDesk *desk = helpDesk())
        desk->closeProgressPanelWithMessage(QStringLiteral("Request sent successfully!"));
    info(this, QStringLiteral("submit complete"));
}

void QKHelpDeskSupport::search(QObject *sender)
{
    d->requests.reset();
    const QString email = ui->emailSearchText->text();
    QKUserDefaults::standardUserDefaults()->setObject(email, HelpDeskEmailKey);
    if (!d->exchange->start(helpDeskAPIURL(), HSForms::list(email)))
        return;
    d->exchange->setEndConnectionSelector([this](const auto &error) { endSearch(error); });
    openExchangePanel(helpDesk(), sender == this ? QStringLiteral("Updating requests...")
                                                 : QStringLiteral("Finding requests..."));
}

void QKHelpDeskSupport::endSearch(const std::optional<QString> &)
{
    // A failed search shows no requests, like an empty one.
    HSResults results(d->exchange->responseData(), true);
    if (results.isNull())
        d->requests.reset();
    else
        d->requests = std::move(results);
    buildRequestPopup();
    if (QKHelpDesk *desk = helpDesk())
        desk->closeProgressPanel();
}

void QKHelpDeskSupport::buildRequestPopup()
{
    const QStringList requestIDs =
        d->requests ? d->requests->requestIDs(ui->showClosedButton->isChecked()) : QStringList();
    const bool any = !requestIDs.isEmpty();
    QComboBox *popup = ui->requestPopup;
    const QString selected = popup->currentText();
    popup->clear();
    if (any) {
        const QFont closed = closedRequestFont();
        for (const QString &requestID : requestIDs) {
            popup->addItem(requestID);
            if (!d->requests->requestIsOpenForID(requestID))
                popup->setItemData(popup->count() - 1, closed, Qt::FontRole);
        }
    } else {
        popup->addItem(NoRequestsTitle);
    }
    popup->setEnabled(any);
    ui->attachFilesButton->setEnabled(any);
    ui->updateRequestButton->setEnabled(any);
    popup->setCurrentIndex(qMax(0, popup->findText(selected)));
    requestChanged(this);
}

void QKHelpDeskSupport::showClosedChanged(QObject *)
{
    buildRequestPopup();
}

void QKHelpDeskSupport::requestChanged(QObject *)
{
    if (!ui->requestPopup->isEnabled()) {
        ui->requestHistoryText->clear();
        return;
    }
    const QVariantMap request =
        d->requests ? d->requests->requestForID(ui->requestPopup->currentText()) : QVariantMap();
    QKHelpDeskRequestHistory::render(request, ui->requestHistoryText->document());
}

void QKHelpDeskSupport::updateRequest(QObject *)
{
    if (!d->exchange->start(helpDeskAPIURL(),
                            HSForms::update(ui->requestPopup->currentText(),
                                            ui->requestResponseText->toPlainText())))
        return;
    d->exchange->setEndConnectionSelector([this](const auto &error) { endUpdate(error); });
    openExchangePanel(helpDesk(), QStringLiteral("Responding to request..."));
}

void QKHelpDeskSupport::endUpdate(const std::optional<QString> &error)
{
    QKHelpDesk *desk = helpDesk();
    const QVariantMap numbers = HSResults(d->exchange->responseData(), false).results().toMap();
    const QString requestID = numbers.value(QStringLiteral("xRequest")).toString();
    const QString requestHistoryID = numbers.value(QStringLiteral("xRequestHistory")).toString();
    if (error || requestID.isEmpty() || requestHistoryID.isEmpty()) {
        if (desk)
            desk->closeProgressPanelWithMessage(QStringLiteral("Sending response failed!"));
        if (!error)
            warning(this, QStringLiteral("the reply to the response holds no request numbers"));
        return;
    }
    d->requestID = requestID;
    d->requestHistoryID = requestHistoryID;
    ui->requestResponseText->clear();
    // After a reply the debug log goes only with the crash logs.
    startChain(true);
    if (ui->submitCrashLog2Button->isChecked())
        d->chain->submitCrashLog();
    else
        d->chain->submitAttachedFiles();
}

void QKHelpDeskSupport::openAttachFilesPanel(QObject *)
{
    d->attachFilesPanel->openAttachFilesPanel();
}

void QKHelpDeskSupport::closeAttachFilesPanel(bool attached)
{
    ui->attachments1Image->setVisible(attached);
    ui->attachments2Image->setVisible(attached);
}

QKHelpDeskAttachFilesPanel *QKHelpDeskSupport::attachFilesPanel() const
{
    return d->attachFilesPanel;
}

QStringList QKHelpDeskSupport::attachedFiles() const
{
    return d->attachFilesPanel->attachedFiles()->paths();
}

QString QKHelpDeskSupport::requestID() const
{
    return d->requestID;
}

QString QKHelpDeskSupport::requestHistoryID() const
{
    return d->requestHistoryID;
}

std::optional<HSResults> QKHelpDeskSupport::requests() const
{
    return d->requests;
}

QKHelpDeskExchange *QKHelpDeskSupport::exchange() const
{
    return d->exchange;
}

QKHelpDeskUploadChain *QKHelpDeskSupport::uploadChain() const
{
    return d->chain;
}

void QKHelpDeskSupport::setSystemProfiler(const QKSystemProfiler &profiler)
{
    d->chain->setSystemProfiler(profiler);
}
