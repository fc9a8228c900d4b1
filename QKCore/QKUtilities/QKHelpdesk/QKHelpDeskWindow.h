#pragma once

#include "QKUtilitiesGlobal.h"

#include <QMainWindow>

#include <memory>

class QKHelpDeskView;

/**
 * The help desk's window: a toolbar over one pane at a time. It sizes itself to each pane's
 * frame and keeps user resizing within the pane's rules: a non-resizable pane keeps the
 * window at its size (the window manager is told the size is fixed), a resizable one keeps
 * a content width of 590 and at least its minimum height. When the user has stopped
 * resizing, the pane is told so it can save its frame.
 */
class QKUTILITIES_EXPORT QKHelpDeskWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit QKHelpDeskWindow(QWidget *parent = nullptr);
    ~QKHelpDeskWindow() override;

    /** How long a pane switch animates the window, in milliseconds (0: no animation). */
    static int animationDuration();
    static void setAnimationDuration(int milliseconds);

    /**
     * Removes the shown pane at once, resizes the window to fit @p pane's frame as content
     * (keeping the top edge; animated while the window is visible), then shows @p pane.
     * A null pane leaves the window empty.
     */
    void showPane(QKHelpDeskView *pane);
    /** The pane being shown (also during the animation that brings it in); null if none. */
    QKHelpDeskView *pane() const;

    /** The window size that shows @p contentSize below the toolbar. */
    QSize frameSizeForContentSize(const QSize &contentSize) const;
    /** The size the window may take instead of @p proposed: @p present while a
     *  non-resizable pane (or none) shows, else a content width of 590 and at least the
     *  pane's minimum height. */
    QSize allowedFrameSize(const QSize &proposed, const QSize &present) const;

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void installPane(QKHelpDeskView *pane);
    // @p rect moved, not resized, to lie within the available area of the window's screen.
    QRect keptOnScreen(const QRect &rect) const;

    struct Private;
    std::unique_ptr<Private> d;
};
