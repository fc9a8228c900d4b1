#pragma once

#include "QKUtilitiesGlobal.h"

#include <QObject>
#include <QVariantList>

#include <functional>
#include <memory>

class QDateTime;
class QUrl;
class SUAppcastItem;

/**
 * Checks the host's appcast for a newer release: at start-up, on a schedule and when the
 * user asks. The settings are the update framework's user defaults (SUConstants.h).
 *
 * The feed is fetched on a worker thread; the result comes back to the main thread, which
 * records SULastCheckTime (only when a feed was fetched and read), compares the newest
 * item's build version with the host's CFBundleVersion and, when it is newer, shows an
 * alert with the release notes that offers to download the update. A check the user asked
 * for also reports "up to date" and failures; a background check stays silent then.
 */
class QKUTILITIES_EXPORT SUUpdater : public QObject
{
    Q_OBJECT
public:
    /** Receives the address of an update the user chose to download. */
    using DownloadHandler = std::function<void(const QUrl &url)>;

    explicit SUUpdater(QObject *parent = nullptr);
    ~SUUpdater() override;

    /** The User-Agent of every feed request: "<name>/<CFBundleVersion> (Mac OS X)
     *  Sparkle/1.0", kept in the form update servers already recognise. */
    static QString userAgent();

    /** The feed address: SUFeedURL of the user defaults, else of the host's Info.plist;
     *  empty when neither has one. */
    QUrl feedURL() const;

    /** Checks in the background when SUCheckAtStartup is true, then schedules checks every
     *  SUScheduledCheckInterval seconds when that is positive. */
    void startupCheck();
    /** The longest interval of scheduled checks, a year in seconds; longer ones are cut. */
    static constexpr double MaximumCheckInterval = 31557600.0;
    /** A check the user asked for; its outcome is always shown. */
    void checkForUpdates(QObject *sender = nullptr);
    /** A check that shows something only when an update is found. */
    void checkForUpdatesInBackground();
    /**
     * Checks in the background every @p seconds (at most MaximumCheckInterval), counted
     * from the last check (SULastCheckTime, or a check of this session that could not read
     * the feed): when that is longer ago, or there never was one, the check runs at once.
     * 0 or less cancels the scheduled checks.
     */
    void scheduleCheckWithInterval(double seconds);
    /** The interval of the scheduled checks in seconds; 0 when none are scheduled. */
    double scheduledCheckInterval() const;
    /** When the next scheduled check is due: a time already past when it is overdue, now
     *  when there never was a check, invalid when none are scheduled. A last check dated
     *  after now (the clock was set back) counts as made when the schedule is set. */
    QDateTime nextScheduledCheck() const;
    /** True while a feed is being fetched. */
    bool isChecking() const;

    /** Where "Download" sends the update's address; by default the browser opens it. An
     *  update without an address is not sent: the user is told so instead. */
    void setDownloadHandler(DownloadHandler handler);

Q_SIGNALS:
    /** A check ended. @p feedRead is false when the feed could not be fetched or read;
     *  @p updateAvailable says whether a newer version was offered. */
    void checkFinished(bool feedRead, bool updateAvailable);

private:
    void startCheck(bool userInitiated);
    void _armSchedule();
    void _scheduledWake();
    void finishCheck(bool feedRead, const QVariantList &items);
    void offerUpdate(const SUAppcastItem &item);
    void reportMissingDownload(const SUAppcastItem &item);

    struct Private;
    std::unique_ptr<Private> d;
};
