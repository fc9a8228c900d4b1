#pragma once

#include "QKHelpDeskToolbar.h"
#include "QKUtilitiesGlobal.h"

#include <QList>
#include <QObject>
#include <QVariantList>
#include <QVariantMap>

#include <memory>

class QKHelpDeskProgressPanel;
class QKHelpDeskSupport;
class QKHelpDeskView;
class QKHelpDeskWindow;
class SUAppcastItem;
class SUUpdater;

/**
 * The application's help desk: one window whose toolbar switches between panes
 * (documentation, tutorials, software update, release notes, debug log, support), the casts
 * that feed them, one file download at a time and the progress panel the panes share.
 *
 * The host calls startup() at launch. The help desk then checks the launch marker
 * "~/Library/Application Support/Velmora/<name>/.launched": it is created at every start
 * and removed only when the application quits normally, so finding it means the previous
 * run crashed or was killed, and the user is offered a crash report. The window is loaded
 * on first use; loading it fetches the casts on a worker thread.
 *
 * A main-thread object; it lives for the whole process.
 */
class QKUTILITIES_EXPORT QKHelpDesk : public QObject, public QKHelpDeskToolbarDelegate
{
    Q_OBJECT
public:
    /** The shared help desk, created (and started up) on first use. */
    static QKHelpDesk *helpDesk();
    /** The host's call at launch, after it installed its own signal handlers: creates the
     *  help desk now and installs the crash reporter (QKCrashReporter). */
    static void startup();
    /** Opens the window on the pane titled like @p sender (a menu item's plain title, or an
     *  object's "title" property). "Online Documentation" and "Check for Updates" run those
     *  actions instead of switching panes. */
    static void openWindow(QObject *sender);
    static void openWindow(const QString &name);
    /** Opens the support pane prepared to report an application error. */
    static void applicationErrorWithReason(const QString &reason, const QString &stackTrace);
    /** The user's download folder; empty when there is none. */
    static QString downloadDirectory();

    ~QKHelpDesk() override;

    /** The help desk window; null until first opened. */
    QKHelpDeskWindow *window() const;
    SUUpdater *sparkle() const;
    /** The update appcast's items in feed order; empty until the casts are loaded or when
     *  the feed could not be read. */
    QList<SUAppcastItem> appCast() const;
    /** The documentation version dictionary; empty until loaded or when unavailable. */
    QVariantMap docCast() const;
    /** The tutorial index; empty until loaded or when unavailable. */
    QVariantList tutorialCast() const;
    /** The support site's base URL, without a trailing slash. */
    QString baseURL() const;
    /** The application's code, lower-cased. */
    QString appCode() const;
    /** The major version: the first character of CFBundleShortVersionString. */
    QString version() const;
    /** The support pane; null until the window is loaded. */
    QKHelpDeskSupport *supportView() const;
    /** The panes the toolbar switches between, in toolbar order; empty until loaded. */
    QList<QKHelpDeskView *> views() const;
    /** The pane shown; null before the first switch or after an unknown identifier. */
    QKHelpDeskView *currentView() const;
    /** The window's toolbar; null until the window is loaded. */
    QKHelpDeskToolbar *toolbar() const;
    /** The progress panel (loads the window when needed). */
    QKHelpDeskProgressPanel *progressPanel();
    /** The launch marker's path. */
    QString launchFilePath() const;

    /** Fetches the appcast, documentation cast, tutorial index and support categories on
     *  the calling thread, then hands them to the main thread: the category menu first,
     *  then castsDidLoad(). */
    void loadCasts();
    /** Tells every pane, in toolbar order, that the casts have arrived. */
    void castsDidLoad();
    /** Removes the launch marker and empties the temporary folder. */
    void applicationWillTerminate();

    /** Loads and raises the window, then runs the action or selects the pane for @p name. */
    void _openWindow(const QString &name);
    /** A toolbar item's action: shows the pane of the item's identifier. */
    void changePane(QObject *sender);
    /** Shows the first pane with @p identifier, resizing the window to the pane's frame
     *  while keeping its top edge; nothing happens when that pane already shows. */
    void setPane(const QString &identifier);
    /** The size the window may take instead of @p proposedFrameSize: its present size while
     *  a non-resizable pane shows, else a content width of 590 and at least the pane's
     *  minimum content height. */
    QSize windowWillResize(const QSize &proposedFrameSize) const;
    /** Takes the focus from editing fields so that they commit their values. */
    void windowWillClose();

    QAction *toolbarItemForItemIdentifier(QKHelpDeskToolbar *toolbar, const QString &identifier,
                                          bool willBeInsertedIntoToolbar) override;
    QStringList toolbarDefaultItemIdentifiers(const QKHelpDeskToolbar *toolbar) const override;
    QStringList toolbarAllowedItemIdentifiers(const QKHelpDeskToolbar *toolbar) const override;
    QStringList toolbarSelectableItemIdentifiers(const QKHelpDeskToolbar *toolbar) const override;

    /** Downloads @p path into the download folder (replacing a file of the same name),
     *  showing "Downloading <file name>..." in the progress panel. A failure closes the
     *  panel and logs "didFailWithError:<error>"; nothing is left behind. */
    void downloadFromPath(const QString &path);

    // The shared progress panel; see QKHelpDeskProgressPanel.
    void setProgressPanelTitle(const QString &title);
    void setProgressIsIndeterminate(bool indeterminate);
    void setProgressCancelable(bool cancelable);
    void openProgressPanel();
    /** QKHelpDeskProgressPanel::ContinuesResponse (-1002) while running, another response
     *  after Cancel. */
    int progressUpdate(double fraction);
    void cancelProgress(QObject *sender = nullptr);
    void closeProgressPanelWithMessage(const QString &message);
    void closeProgressPanel();

Q_SIGNALS:
    /** castsDidLoad() has told every pane. */
    void castsLoaded();
    /** A download ended: @p completed is true when its file is in place. */
    void downloadEnded(bool completed);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QKHelpDesk();
    void init();
    void loadNib();
    void awakeFromNib();

    struct Private;
    std::unique_ptr<Private> d;
};
