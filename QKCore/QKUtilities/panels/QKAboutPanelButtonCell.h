#pragma once

#include "QKUtilitiesGlobal.h"

#include <QFont>
#include <QKGradient.h>

class QPainter;
class QRectF;
class QString;

/**
 * The look of an About panel button: a small rounded, shaded shape that flips its shading
 * while pressed, with a grey outline and a centred light title; both darker when disabled.
 */
class QKUTILITIES_EXPORT QKAboutPanelButtonCell
{
public:
    QKAboutPanelButtonCell();

    /** The shading: the panels' dark gradient. */
    QKGradient gradient() const { return m_gradient; }
    /** The title's font: the system font at the small size. */
    QFont font() const { return m_font; }

    /** Draws the whole button into @p frame. */
    void drawWithFrame(QPainter *painter, const QRectF &frame, const QString &title, bool enabled,
                       bool highlighted) const;
    /** Draws the title centred in @p frame. */
    void drawInterior(QPainter *painter, const QRectF &frame, const QString &title,
                      bool enabled) const;

private:
    QKGradient m_gradient;
    QFont m_font;
};
