#include "QKHelpDeskWindow.h"

#include "QKHelpDeskView.h"

#include <QPointer>
#include <QPropertyAnimation>
#include <QResizeEvent>
#include <QScreen>
#include <QTimer>
#include <QToolBar>
#include <QtMath>

namespace {

int s_animationDuration = 200;
constexpr int contentWidth = 590;
// How long the window must stay unresized before a drag counts as finished.
constexpr int liveResizeEndDelayMs = 300;

} // namespace

struct QKHelpDeskWindow::Private
{
    QPointer<QKHelpDeskView> pane;
    QPointer<QPropertyAnimation> animation;
    bool switching = false;
    QTimer liveResizeTimer;
};

QKHelpDeskWindow::QKHelpDeskWindow(QWidget *parent)
    : QMainWindow(parent), d(std::make_unique<Private>())
{
    d->liveResizeTimer.setSingleShot(true);
    d->liveResizeTimer.setInterval(liveResizeEndDelayMs);
    connect(&d->liveResizeTimer, &QTimer::timeout, this, [this] {
        if (d->pane && !d->switching)
            d->pane->viewDidEndLiveResize();
    });
}

QKHelpDeskWindow::~QKHelpDeskWindow() = default;

int QKHelpDeskWindow::animationDuration()
{
    return s_animationDuration;
}

void QKHelpDeskWindow::setAnimationDuration(int milliseconds)
{
    s_animationDuration = qMax(0, milliseconds);
}

void QKHelpDeskWindow::showPane(QKHelpDeskView *pane)
{
    d->switching = true;
    d->liveResizeTimer.stop();
    if (d->animation)
        d->animation->stop();
    if (auto *shown = qobject_cast<QKHelpDeskView *>(centralWidget())) {
        takeCentralWidget();
        shown->setParent(this);
        shown->hide();
    }
    // The old pane disappears during the animation.
    setCentralWidget(new QWidget);
    setMinimumSize(0, 0);
    setMaximumSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);

    // Qt's origin is the top-left corner, so keeping it keeps the top edge in place, unless
    // a taller pane would then reach below the screen.
    const QSize content = pane ? pane->frame().size().toSize() : QSize(0, 0);
    const QRect target =
        keptOnScreen(QRect(geometry().topLeft(), frameSizeForContentSize(content)));
    d->pane = pane;
    if (!isVisible() || s_animationDuration == 0) {
        setGeometry(target);
        installPane(pane);
        return;
    }
    auto *animation = new QPropertyAnimation(this, "geometry", this);
    animation->setDuration(s_animationDuration);
    animation->setEndValue(target);
    connect(animation, &QPropertyAnimation::finished, this, [this, pane] { installPane(pane); });
    d->animation = animation;
    animation->start(QAbstractAnimation::DeleteWhenStopped);
}

QRect QKHelpDeskWindow::keptOnScreen(const QRect &rect) const
{
    const QScreen *screen = this->screen();
    if (!screen)
        return rect;
    const QRect available = screen->availableGeometry();
    QRect kept = rect;
    if (kept.bottom() > available.bottom())
        kept.moveBottom(available.bottom());
    if (kept.right() > available.right())
        kept.moveRight(available.right());
    // A window larger than the screen keeps its title bar reachable.
    if (kept.top() < available.top())
        kept.moveTop(available.top());
    if (kept.left() < available.left())
        kept.moveLeft(available.left());
    return kept;
}

QKHelpDeskView *QKHelpDeskWindow::pane() const
{
    return d->pane;
}

void QKHelpDeskWindow::installPane(QKHelpDeskView *pane)
{
    if (pane) {
        setCentralWidget(pane);
        pane->show();
    }
    // Only a resizable pane lets the window manager offer resizing.
    if (!pane || !pane->isResizable())
        setFixedSize(size());
    d->switching = false;
}

QSize QKHelpDeskWindow::frameSizeForContentSize(const QSize &contentSize) const
{
    int toolbarHeight = 0;
    for (const QToolBar *toolbar : findChildren<QToolBar *>(Qt::FindDirectChildrenOnly)) {
        if (!toolbar->isHidden() && toolBarArea(toolbar) == Qt::TopToolBarArea)
            toolbarHeight += toolbar->sizeHint().height();
    }
    return contentSize + QSize(0, toolbarHeight);
}

QSize QKHelpDeskWindow::allowedFrameSize(const QSize &proposed, const QSize &present) const
{
    const QKHelpDeskView *pane = d->pane;
    if (!pane || !pane->isResizable())
        return present;
    const int toolbarHeight = frameSizeForContentSize(QSize(0, 0)).height();
    const int height = qMax(proposed.height() - toolbarHeight, qCeil(pane->minimumHeight()));
    return frameSizeForContentSize(QSize(contentWidth, height));
}

void QKHelpDeskWindow::resizeEvent(QResizeEvent *event)
{
    QMainWindow::resizeEvent(event);
    if (d->switching || !d->pane || !isVisible() || !event->oldSize().isValid())
        return;
    const QSize allowed = allowedFrameSize(event->size(), event->oldSize());
    if (allowed != event->size())
        resize(allowed);
    else
        d->liveResizeTimer.start();
}
