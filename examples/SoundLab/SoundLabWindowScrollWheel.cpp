// The scroll wheel over Sound Lab's tracks: the track view hands its wheel events to the
// library's scroll wheel manager, which sends the user's chosen action back to the window.
#include "SoundLabWindow.h"

#include <QKMenus.h>
#include <QKScrollWheelManager.h>

#include <QMenu>
#include <QScrollBar>
#include <QTableView>
#include <QWheelEvent>

namespace {

class WheelForwarder : public QObject
{
public:
    WheelForwarder(QWidget *view, QObject *target) : QObject(view), m_target(target)
    {
        view->installEventFilter(this);
    }

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() != QEvent::Wheel)
            return false;
        QKScrollWheelManager::scrollWheelEvent(static_cast<QWheelEvent *>(event), m_target);
        return true;
    }

private:
    QObject *m_target;
};

// At least one step for any movement, so slow touchpad scrolling still zooms.
int wholeSteps(double notches)
{
    if (notches > 0)
        return qMax(1, qRound(notches));
    if (notches < 0)
        return qMin(-1, qRound(notches));
    return 0;
}

constexpr int RowsPerNotch = 3;

} // namespace

void SoundLabWindow::addScrollWheel(QMenu *devices)
{
    new WheelForwarder(m_trackTable->viewport(), this);
    QKMenus::addItemWithTitle(devices, tr("Scroll Wheel…"), "toggleScrollWheelPanel:");
}

void SoundLabWindow::toggleScrollWheelPanel(QObject *sender)
{
    traceAction("toggleScrollWheelPanel:", sender);
    QKScrollWheelManager::togglePanel();
}

void SoundLabWindow::scrollTracks(double notches)
{
    trace(QStringLiteral("wheel scrollTracks %1").arg(notches));
    // Turning the wheel away from the user moves up the list.
    QScrollBar *bar = m_trackTable->verticalScrollBar();
    bar->setValue(bar->value() - wholeSteps(notches) * RowsPerNotch * bar->singleStep());
}

void SoundLabWindow::scrollSideways(double notches)
{
    trace(QStringLiteral("wheel scrollSideways %1").arg(notches));
    QScrollBar *bar = m_trackTable->horizontalScrollBar();
    bar->setValue(bar->value() - wholeSteps(notches) * bar->singleStep());
}

void SoundLabWindow::zoomBy(double notches)
{
    trace(QStringLiteral("wheel zoomBy %1").arg(notches));
    setZoom(m_zoom + wholeSteps(notches));
}

void SoundLabWindow::nudgeBy(double notches)
{
    trace(QStringLiteral("wheel nudgeBy %1").arg(notches));
    nudge(0.1 * wholeSteps(notches));
}
