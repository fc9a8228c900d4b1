#include "SoundLabSiteDialog.h"

#include <HSResults.h>
#include <QKApplication.h>
#include <QKBundle.h>
#include <QKHelpDeskCasts.h>
#include <QKSupportSite.h>
#include <SUAppcastItem.h>

#include <QDialogButtonBox>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QThread>
#include <QUrl>
#include <QVBoxLayout>

namespace {

struct SiteQuery
{
    QString baseURL;
    QString apiURL;
    QString code;
    QString majorVersion;
    QString userAgent;
};

QString describeFeed(const SiteQuery &query)
{
    const QUrl url(
        QStringLiteral("%1/appcast.php?titleCode=%2&titleVersion=%3&testing=1&style=appcast")
            .arg(query.baseURL, query.code, query.majorVersion));
    const QList<SUAppcastItem> items = QKHelpDeskCasts::appcast(url, query.userAgent);
    QString text = QStringLiteral("Update feed: %1 item(s)\n").arg(items.size());
    for (const SUAppcastItem &item : items) {
        text += QStringLiteral("  • %1 (build %2), %3\n")
                    .arg(item.title(), item.versionString(), item.date().toString(Qt::RFC2822Date));
    }
    return text;
}

QString describeManual(const SiteQuery &query)
{
    const QVariantMap manual = QKHelpDeskCasts::documentation(
        QUrl(QStringLiteral("%1/manual_version.php?appCode=%2&version=%3")
                 .arg(query.baseURL, query.code, query.majorVersion)));
    if (manual.isEmpty())
        return QStringLiteral("Manual: unavailable\n");
    return QStringLiteral("Manual: version %1, published %2\n")
        .arg(manual.value(QStringLiteral("version")).toString(),
             manual.value(QStringLiteral("published")).toString());
}

QString describeCategories(const SiteQuery &query)
{
    const std::optional<HSResults> results = QKHelpDeskCasts::categories(QUrl(query.apiURL));
    const QVariantList categories = results ? results->results().toList() : QVariantList();
    if (categories.isEmpty())
        return QStringLiteral("Help desk: unavailable\n");
    QString text = QStringLiteral("Help desk: %1 categor%2\n")
                       .arg(categories.size())
                       .arg(categories.size() == 1 ? QStringLiteral("y") : QStringLiteral("ies"));
    for (const QVariant &category : categories) {
        const QVariantMap fields = category.toMap();
        text += QStringLiteral("  • %1%2\n")
                    .arg(fields.value(QStringLiteral("sCategory")).toString(),
                         fields.value(QStringLiteral("fDeleted")).toInt() != 0
                             ? QStringLiteral(" (deleted)")
                             : QString());
    }
    return text;
}

} // namespace

SoundLabSiteDialog::SoundLabSiteDialog(QWidget *parent)
    : QDialog(parent), m_report(new QPlainTextEdit), m_refreshButton(new QPushButton(tr("Refresh")))
{
    setWindowTitle(tr("Support Site"));
    m_report->setReadOnly(true);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    buttons->addButton(m_refreshButton, QDialogButtonBox::ActionRole);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_refreshButton, &QPushButton::clicked, this, &SoundLabSiteDialog::refresh);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_report);
    layout->addWidget(buttons);
    resize(560, 380);
    refresh();
}

void SoundLabSiteDialog::refresh()
{
    QKApplication *app = QKApplication::sharedApplication();
    const QKBundle *bundle = QKBundle::mainBundle();
    SiteQuery query;
    query.baseURL = QKSupportSite::baseURL();
    query.apiURL = QKSupportSite::helpDeskAPIURL();
    query.code = app->code().toLower();
    query.majorVersion = app->applicationVersion().left(1);
    query.userAgent = QStringLiteral("%1/%2").arg(
        app->name(),
        bundle->objectForInfoDictionaryKey(QStringLiteral("CFBundleVersion")).toString());

    m_refreshButton->setEnabled(false);
    m_report->setPlainText(tr("Asking %1…").arg(query.baseURL));
    QPointer<SoundLabSiteDialog> dialog(this);
    QThread *worker = QThread::create([query, dialog] {
        const QString report = QStringLiteral("%1\n\n").arg(query.baseURL) + describeFeed(query) +
                               describeManual(query) + describeCategories(query);
        QMetaObject::invokeMethod(qApp, [dialog, report] {
            if (!dialog)
                return;
            dialog->m_report->setPlainText(report);
            dialog->m_refreshButton->setEnabled(true);
        });
    });
    connect(worker, &QThread::finished, worker, &QObject::deleteLater);
    worker->start();
}
