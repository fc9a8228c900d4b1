#include "QKHelpDeskTutorials.h"
#include "ui_QKHelpDeskTutorials.h"

#include "QKHelpDesk.h"
#include "QKHelpDeskDates.h"
#include "QKHelpDeskTutorialsModel.h"

#include <QKAlert.h>
#include <QKApplicationLog.h>
#include <QKClock.h>
#include <QKUserDefaults.h>
#include <QKWorkspace.h>

#include <QUrl>

namespace {

const QString NotifyKey = QStringLiteral("Notify Tutorial Updates");
const QString LastCheckKey = QStringLiteral("Last Tutorial Check");

void log(uint level, const QString &message)
{
    const QKApplicationLogContext context(QStringLiteral("QKHelpDesk"));
    QKApplicationLog::sharedLog()->log(level, &context, message);
}

/** The entry's publication date; invalid when it has none or it cannot be read (logged). */
QDateTime publishedDate(const QVariantMap &entry)
{
    const QString text = entry.value(QStringLiteral("published")).toString();
    if (text.isEmpty())
        return QDateTime();
    const QDateTime date =
        QKHelpDeskDates::dateWithCalendarFormat(text, QKHelpDeskDates::DescriptionFormat);
    if (!date.isValid()) {
        log(QKApplicationLog::Warning,
            QStringLiteral("the tutorial \"%1\" has a publication date \"%2\" that is not a date")
                .arg(entry.value(QStringLiteral("title")).toString(), text));
    }
    return date;
}

void openAddress(const QString &address, const char *what)
{
    if (address.isEmpty()) {
        log(QKApplicationLog::Info,
            QStringLiteral("the selected tutorial has no %1 address").arg(QLatin1String(what)));
        return;
    }
    QKWorkspace::openURL(QUrl(address));
}

} // namespace

QKHelpDeskTutorials::QKHelpDeskTutorials(QWidget *parent)
    : QKHelpDeskView(parent), ui(std::make_unique<Ui::QKHelpDeskTutorials>()),
      m_model(new QKHelpDeskTutorialsModel(this))
{
    ui->setupUi(this);
    ui->table->setModel(m_model);
    connect(ui->table->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &QKHelpDeskTutorials::outlineViewSelectionDidChange);
    connect(ui->downloadButton, &QPushButton::clicked, this, [this] { download(this); });
    connect(ui->streamButton, &QPushButton::clicked, this, [this] { stream(this); });
    connect(ui->notifyButton, &QCheckBox::clicked, this, [this] { notifyChanged(this); });
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

void QKHelpDeskTutorials::awakeFromNib()
{
    QKHelpDeskView::awakeFromNib();
    ui->notifyButton->setChecked(QKUserDefaults::standardUserDefaults()->boolForKey(NotifyKey));
}

void QKHelpDeskTutorials::castsDidLoad()
{
    const QVariantList tutorials = helpDesk() ? helpDesk()->tutorialCast() : QVariantList();
    const QDateTime last =
        QKHelpDeskDates::storedDate(LastCheckKey, QKHelpDeskDates::referenceDate());
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    if (defaults->boolForKey(NotifyKey) && containsUpdates(tutorials, last)) {
        const int answer = QKAlert::runModal(
            QStringLiteral("New tutorials are available"),
            QStringLiteral("You can disable this alert from the Tutorials section of the Help "
                           "Desk."),
            {QStringLiteral("Help Desk"), QStringLiteral("Later")});
        if (answer == 0 && helpDesk())
            helpDesk()->_openWindow(title());
    }
    // Stored whatever the answer: "Later" does not bring the alert back on the next run.
    defaults->setObject(QKHelpDeskDates::description(QKClock::now()), LastCheckKey);

    m_model->setEntries(tutorials);
    ui->table->expandAll();
    // A reset clears the selection without a selection change.
    outlineViewSelectionDidChange();
}

bool QKHelpDeskTutorials::containsUpdates(const QVariantList &entries, const QDateTime &date)
{
    for (const QVariant &value : entries) {
        const QVariantMap entry = value.toMap();
        const QDateTime published = publishedDate(entry);
        if (published.isValid() && published > date)
            return true;
        if (containsUpdates(entry.value(QStringLiteral("items")).toList(), date))
            return true;
    }
    return false;
}

void QKHelpDeskTutorials::download(QObject *)
{
    openAddress(selectedItemDownloadURL(), "download");
}

void QKHelpDeskTutorials::stream(QObject *)
{
    openAddress(selectedItemStreamURL(), "streaming");
}

void QKHelpDeskTutorials::notifyChanged(QObject *)
{
    QKUserDefaults::standardUserDefaults()->setBool(ui->notifyButton->isChecked(), NotifyKey);
}

void QKHelpDeskTutorials::outlineViewSelectionDidChange()
{
    const bool enabled = selectedEntry().contains(QStringLiteral("downloadURL"));
    ui->downloadButton->setEnabled(enabled);
    ui->streamButton->setEnabled(enabled);
}

QString QKHelpDeskTutorials::selectedItemDownloadURL() const
{
    return selectedValue(QStringLiteral("downloadURL"));
}

QString QKHelpDeskTutorials::selectedItemStreamURL() const
{
    return selectedValue(QStringLiteral("streamURL"));
}

QKHelpDeskTutorialsModel *QKHelpDeskTutorials::model() const
{
    return m_model;
}

QVariantMap QKHelpDeskTutorials::selectedEntry() const
{
    const QModelIndexList rows = ui->table->selectionModel()->selectedRows();
    return rows.isEmpty() ? QVariantMap() : m_model->entry(rows.constFirst());
}

QString QKHelpDeskTutorials::selectedValue(const QString &key) const
{
    const QVariant value = selectedEntry().value(key);
    return value.isValid() ? value.toString() : QString();
}
