#pragma once

#include "QKBaseGlobal.h"

#include <QColor>
#include <QList>

class QLinearGradient;
class QPainter;
class QPainterPath;
class QRectF;

/** One colour of a QKGradient. */
struct QKBASE_EXPORT QKGradientStop
{
    QColor color;
    /** Where the colour lies, from 0 (start) to 1 (end). */
    qreal position = 0;
    /** Where, between this stop and the next, the two colours mix half and half, as a
     *  fraction of the way (0.5 blends linearly; 0.95 keeps this colour almost to the next). */
    qreal midpoint = 0.5;
};

/**
 * A linear gradient of colour stops, each with its own midpoint, painted at an angle as the
 * platform's gradients are: 0 degrees runs left to right, 90 degrees bottom to top.
 *
 * Qt gradients blend linearly between stops, so a midpoint other than 0.5 is painted through
 * extra stops along the same curve colorAtPosition() follows; painted pixels and
 * colorAtPosition() agree.
 */
class QKBASE_EXPORT QKGradient
{
public:
    /** An empty gradient; it paints nothing. */
    QKGradient() = default;
    /** A gradient of @p stops, ordered by position; positions are clamped to 0...1. */
    explicit QKGradient(const QList<QKGradientStop> &stops);

    /** The stops, ordered by position. */
    QList<QKGradientStop> stops() const { return m_stops; }
    bool isEmpty() const { return m_stops.isEmpty(); }

    /** The colour at @p position (0...1): the first stop's colour before it, the last one's
     *  after it; an invalid colour for an empty gradient. */
    QColor colorAtPosition(qreal position) const;

    /** Fills @p rect, the gradient spanning it along @p angleDegrees. */
    void fillRect(QPainter *painter, const QRectF &rect, qreal angleDegrees) const;
    /** Fills @p path, the gradient spanning the path's bounds along @p angleDegrees. */
    void fillPath(QPainter *painter, const QPainterPath &path, qreal angleDegrees) const;

    /** The Qt gradient that paints this one over @p rect along @p angleDegrees: it starts and
     *  ends on the rectangle's corners, so the whole gradient is visible. */
    QLinearGradient linearGradient(const QRectF &rect, qreal angleDegrees) const;

private:
    QList<QKGradientStop> m_stops;
};
