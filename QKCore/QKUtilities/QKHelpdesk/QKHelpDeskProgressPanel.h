#pragma once

#include "QKUtilitiesGlobal.h"

#include <QDialog>

#include <atomic>
#include <functional>
#include <memory>

namespace Ui {
class QKHelpDeskProgressPanel;
}

/**
 * The help desk's progress panel: a line of text, a bar from 0.0 to 1.0 and a Cancel
 * button, shown window-modal over the help desk window while a long operation runs.
 *
 * The operation keeps the interface alive by calling progressUpdate() often: each call runs
 * one pass of the event loop (so downloads progress and Cancel can be clicked) and answers
 * ContinuesResponse until the user cancels. Redrawing the bar is throttled to one redraw
 * per half second of deadline; the deadline advances from its own previous value, so after
 * a long pause several calls in a row redraw until it has caught up.
 */
class QKUTILITIES_EXPORT QKHelpDeskProgressPanel : public QDialog
{
    Q_OBJECT
public:
    /** What progressUpdate() answers. */
    enum ModalResponse : int {
        /** The user pressed Cancel. */
        StoppedResponse = -1000,
        /** The panel is not open. */
        AbortedResponse = -1001,
        /** Keep going. */
        ContinuesResponse = -1002,
    };
    /** Seconds since 1 January 2001 UTC. */
    using Clock = std::function<double()>;

    /** A panel over @p window, which it is modal for. */
    explicit QKHelpDeskProgressPanel(QWidget *window = nullptr);
    ~QKHelpDeskProgressPanel() override;

    /** The wall clock in seconds since 1 January 2001 UTC. */
    static double timeIntervalSinceReferenceDate();
    /** Replaces the clock of the redraw throttle; an empty clock restores the wall clock. */
    void setClock(Clock clock);

    void setProgressPanelTitle(const QString &title);
    QString progressPanelTitle() const;
    /** An indeterminate bar shows activity instead of a fraction. */
    void setProgressIsIndeterminate(bool indeterminate);
    bool progressIsIndeterminate() const;
    void setProgressCancelable(bool cancelable);
    bool progressIsCancelable() const;

    /** Shows the panel with the bar at 0 and starts its modal session; does nothing while
     *  the panel is visible. The first redraw may happen half a second later. */
    void openProgressPanel();
    /**
     * Sets the bar to @p fraction when the redraw deadline has passed (negative fractions
     * leave it at its minimum), then runs one pass of the event loop. Answers
     * ContinuesResponse while the session runs, StoppedResponse after Cancel and
     * AbortedResponse when no session runs. Nested calls (from an event handled during
     * the pass) do not run another pass.
     */
    int progressUpdate(double fraction);
    /** The Cancel button's action: the next progressUpdate() answers StoppedResponse. */
    void cancelProgress();
    /** Shows @p message with a full bar and no Cancel, and closes the panel 2 seconds later.
     *  Does nothing when the panel is not visible. */
    void closeProgressPanelWithMessage(const QString &message);
    /** Ends the session and closes the panel; the bar goes back to 0. */
    void closeProgressPanel();

    /** True while a session runs (from openProgressPanel() to closeProgressPanel()). */
    bool isSessionRunning() const;
    /** True once the user cancelled the running session; safe to read from any thread. */
    bool isCancelled() const;
    /** The flag behind isCancelled(), for a worker thread that waits on its own; it lives
     *  as long as the panel. */
    const std::atomic<bool> *cancelFlag() const;
    /** The bar's value from 0.0 to 1.0. */
    double progressValue() const;
    /** The earliest time of the next redraw, in seconds since 1 January 2001 UTC. */
    double nextProgressUpdate() const;
    /** How often the bar was redrawn by progressUpdate() since the panel was created. */
    int redrawCount() const;

protected:
    /** Escape and the window's close button count as Cancel when the panel is cancelable,
     *  and are ignored otherwise: the operation closes the panel itself. */
    void reject() override;
    void closeEvent(QCloseEvent *event) override;

private:
    void setBarValue(double fraction);

    struct Private;
    std::unique_ptr<Private> d;
};
