#pragma once

#include "QKUtilitiesGlobal.h"

#include <QRect>

class QWidget;

/**
 * Panel frames as the user defaults keep them: rectangles with the origin at the bottom
 * left of the main (primary) screen and y growing upwards, so stored frames read the same
 * on every platform. A frame is the window's client area, without the decorations the
 * window manager adds.
 */
class QKUTILITIES_EXPORT QKPanelFrame
{
public:
    /** The main screen's available area (without panels and docks) in frame coordinates;
     *  the zero rectangle when there is no screen. */
    static QRectF mainScreenVisibleFrame();

    /** The Qt screen geometry (top-left origin) of the stored @p frame. */
    static QRect toScreenGeometry(const QRectF &frame);
    /** The stored form of the Qt screen geometry @p geometry. */
    static QRectF fromScreenGeometry(const QRect &geometry);

    /** The stored form of @p window's geometry. */
    static QRectF frameOf(const QWidget *window);
};
