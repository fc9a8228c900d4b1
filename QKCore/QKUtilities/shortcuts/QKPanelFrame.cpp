#include "QKPanelFrame.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

namespace {

// Frame y runs upwards from the bottom edge of the primary screen.
QRect primaryGeometry()
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    return screen ? screen->geometry() : QRect();
}

} // namespace

QRectF QKPanelFrame::mainScreenVisibleFrame()
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    return screen ? fromScreenGeometry(screen->availableGeometry()) : QRectF();
}

QRect QKPanelFrame::toScreenGeometry(const QRectF &frame)
{
    const QRect primary = primaryGeometry();
    const qreal bottom = primary.y() + primary.height();
    return QRectF(primary.x() + frame.x(), bottom - (frame.y() + frame.height()), frame.width(),
                  frame.height())
        .toRect();
}

QRectF QKPanelFrame::fromScreenGeometry(const QRect &geometry)
{
    const QRect primary = primaryGeometry();
    const qreal bottom = primary.y() + primary.height();
    return QRectF(geometry.x() - primary.x(), bottom - (geometry.y() + geometry.height()),
                  geometry.width(), geometry.height());
}

QRectF QKPanelFrame::frameOf(const QWidget *window)
{
    return window ? fromScreenGeometry(window->geometry()) : QRectF();
}
