#include "SUUpdater.h"

#include "SUAppcastItem.h"
#include "SUConstants.h"
#include "SUStandardVersionComparator.h"

#include <QKAlert.h>
#include <QKApplication.h>
#include <QKApplicationLog.h>
#include <QKBundle.h>
#include <QKClock.h>
#include <QKUserDefaults.h>
#include <QKWorkspace.h>
#include <RSS.h>

#include <QMutex>
#include <QTimer>
#include <QUrl>

#include <thread>

namespace {

QString infoString(const char *key)
{
    return QKBundle::mainBundle()->objectForInfoDictionaryKey(QLatin1String(key)).toString();
}

// Timers run on the monotonic clock, which stands still while the machine sleeps, so a long
// wait would end late by the time asleep; waking every hour and asking the clock keeps a
// check within an hour of its time.
constexpr qint64 LongestWait = 60 * 60 * 1000;

/**
 * Lets a feed thread hand its result to the updater only while the updater exists; the
 * updater clears it when it is destroyed.
 */
struct Receiver
{
    QMutex mutex;
    SUUpdater *updater = nullptr;
};

} // namespace

struct SUUpdater::Private
{
    std::shared_ptr<Receiver> receiver = std::make_shared<Receiver>();
    QTimer *scheduleTimer = nullptr;
    double interval = 0.0;
    // The start of this session's last check: a check that could not read the feed writes
    // no SULastCheckTime, and must not be retried at once.
    QDateTime lastAttempt;
    DownloadHandler downloadHandler;
    bool checking = false;
    bool userInitiated = false;
};

SUUpdater::SUUpdater(QObject *parent) : QObject(parent), d(std::make_unique<Private>())
{
    d->receiver->updater = this;
    d->scheduleTimer = new QTimer(this);
    d->scheduleTimer->setObjectName(QStringLiteral("scheduleTimer"));
    d->scheduleTimer->setSingleShot(true);
    connect(d->scheduleTimer, &QTimer::timeout, this, &SUUpdater::_scheduledWake);
}

SUUpdater::~SUUpdater()
{
    QMutexLocker lock(&d->receiver->mutex);
    d->receiver->updater = nullptr;
}

QString SUUpdater::userAgent()
{
    return QStringLiteral("%1/%2 (Mac OS X) Sparkle/1.0")
        .arg(QKApplication::currentName(), infoString("CFBundleVersion"));
}

QUrl SUUpdater::feedURL() const
{
    QString url = QKUserDefaults::standardUserDefaults()->stringForKey(SUFeedURLKey);
    if (url.isEmpty())
        url = infoString("SUFeedURL");
    return QUrl(url);
}

void SUUpdater::startupCheck()
{
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    if (defaults->boolForKey(SUCheckAtStartupKey))
        checkForUpdatesInBackground();
    scheduleCheckWithInterval(double(defaults->integerForKey(SUScheduledCheckIntervalKey)));
}

void SUUpdater::checkForUpdates(QObject *)
{
    startCheck(true);
}

void SUUpdater::checkForUpdatesInBackground()
{
    startCheck(false);
}

void SUUpdater::scheduleCheckWithInterval(double seconds)
{
    d->interval = seconds > 0 ? qMin(seconds, MaximumCheckInterval) : 0.0;
    _armSchedule();
}

double SUUpdater::scheduledCheckInterval() const
{
    return d->interval;
}

QDateTime SUUpdater::nextScheduledCheck() const
{
    if (d->interval <= 0)
        return QDateTime();
    QDateTime last =
        QKUserDefaults::standardUserDefaults()->objectForKey(SULastCheckTimeKey).toDateTime();
    if (d->lastAttempt.isValid() && (!last.isValid() || d->lastAttempt > last))
        last = d->lastAttempt;
    if (!last.isValid())
        return QKClock::now();
    return last.addMSecs(qint64(d->interval * 1000.0));
}

void SUUpdater::_armSchedule()
{
    if (d->interval <= 0) {
        d->scheduleTimer->stop();
        return;
    }
    const QDateTime now = QKClock::now();
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    // A last check after now means the clock was set back; otherwise no check would come
    // until the clock caught up.
    if (defaults->objectForKey(SULastCheckTimeKey).toDateTime() > now)
        defaults->setObject(now, SULastCheckTimeKey);
    const qint64 wait = qBound(qint64(0), now.msecsTo(nextScheduledCheck()), LongestWait);
    d->scheduleTimer->start(int(wait));
}

void SUUpdater::_scheduledWake()
{
    // A running check re-arms the schedule when it ends.
    if (d->interval <= 0 || d->checking)
        return;
    if (nextScheduledCheck() <= QKClock::now())
        checkForUpdatesInBackground();
    else
        _armSchedule();
}

bool SUUpdater::isChecking() const
{
    return d->checking;
}

void SUUpdater::setDownloadHandler(DownloadHandler handler)
{
    d->downloadHandler = std::move(handler);
}

void SUUpdater::startCheck(bool userInitiated)
{
    // A running check answers both: the user then sees its outcome.
    d->userInitiated = d->userInitiated || userInitiated;
    if (d->checking)
        return;
    d->checking = true;
    d->lastAttempt = QKClock::now();
    _armSchedule();
    std::thread([receiver = d->receiver, url = feedURL(), agent = userAgent()] {
        const RSS feed(url, true, agent);
        const bool valid = feed.isValid();
        const QVariantList items = feed.newsItems();
        QMutexLocker lock(&receiver->mutex);
        if (SUUpdater *updater = receiver->updater) {
            QMetaObject::invokeMethod(
                updater, [updater, valid, items] { updater->finishCheck(valid, items); },
                Qt::QueuedConnection);
        }
    }).detach();
}

void SUUpdater::finishCheck(bool feedRead, const QVariantList &items)
{
    const bool userInitiated = d->userInitiated;
    d->checking = false;
    d->userInitiated = false;
    const QString name = QKApplication::currentName();
    if (!feedRead) {
        _armSchedule();
        if (userInitiated) {
            QKAlert::runModal(tr("Checking for updates failed"),
                              tr("The update information of %1 could not be loaded. Please "
                                 "try again later.")
                                  .arg(name));
        }
        emit checkFinished(false, false);
        return;
    }
    QKUserDefaults::standardUserDefaults()->setObject(QKClock::now(), SULastCheckTimeKey);
    _armSchedule();

    const SUStandardVersionComparator *comparator =
        SUStandardVersionComparator::defaultComparator();
    SUAppcastItem newest;
    for (const QVariant &entry : items) {
        const SUAppcastItem item(entry.toMap());
        if (!item.versionString().isEmpty() &&
            (newest.versionString().isEmpty() ||
             comparator->compareVersion(item.versionString(), newest.versionString()) ==
                 SUStandardVersionComparator::OrderedDescending))
            newest = item;
    }
    const QString installed = infoString("CFBundleVersion");
    const bool isNewer = !newest.versionString().isEmpty() &&
                         comparator->compareVersion(newest.versionString(), installed) ==
                             SUStandardVersionComparator::OrderedDescending;
    const QString skipped =
        QKUserDefaults::standardUserDefaults()->stringForKey(SUSkippedVersionKey);
    const bool offered = isNewer && (userInitiated || newest.versionString() != skipped);
    if (offered) {
        offerUpdate(newest);
    } else if (userInitiated) {
        QKAlertRequest upToDate;
        upToDate.message = tr("%1 is up to date").arg(name);
        upToDate.informativeText = tr("%1 %2 is the newest version available.")
                                       .arg(name, infoString("CFBundleShortVersionString"));
        upToDate.style = QKAlertRequest::Style::Informational;
        QKAlert::runModal(upToDate);
    }
    emit checkFinished(true, offered);
}

void SUUpdater::offerUpdate(const SUAppcastItem &item)
{
    const QString name = QKApplication::currentName();
    QString notes = item.description();
    if (notes.isEmpty() && item.releaseNotesURL().isValid()) {
        notes = QStringLiteral("<p><a href=\"%1\">%2</a></p>")
                    .arg(item.releaseNotesURL().toString().toHtmlEscaped(), tr("Release notes"));
    }
    const QString informative =
        QStringLiteral("<p>%1</p>%2")
            .arg(tr("%1 %2 is now available; you have %3. Would you like to download it now?")
                     .arg(name, item.displayVersionString(),
                          infoString("CFBundleShortVersionString"))
                     .toHtmlEscaped(),
                 notes);
    enum Answer { Download, Skip, Later };
    const int answer =
        QKAlert::runModal(tr("A new version of %1 is available!").arg(name), informative,
                          {tr("Download"), tr("Skip This Version"), tr("Remind Me Later")});
    if (answer == Download) {
        if (item.fileURL().isEmpty() || !item.fileURL().isValid()) {
            reportMissingDownload(item);
            return;
        }
        if (d->downloadHandler)
            d->downloadHandler(item.fileURL());
        else
            QKWorkspace::openURL(item.fileURL());
    } else if (answer == Skip) {
        QKUserDefaults::standardUserDefaults()->setObject(item.versionString(),
                                                          SUSkippedVersionKey);
    }
}

void SUUpdater::reportMissingDownload(const SUAppcastItem &item)
{
    const QString name = QKApplication::currentName();
    QKApplicationLog::sharedLog()->warning(
        QKApplicationLogContext(QStringLiteral("Sparkle"), this),
        QStringLiteral("the update to %1 (%2) has no download address in the appcast")
            .arg(item.displayVersionString(), item.versionString()));
    QKAlert::runModal(tr("%1 %2 cannot be downloaded").arg(name, item.displayVersionString()),
                      tr("The update information gives no address to download it from. Please "
                         "try again later or get the update from the %1 web site.")
                          .arg(name));
}
