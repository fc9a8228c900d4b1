#include "QKGradient.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QtMath>

#include <algorithm>
#include <cmath>

namespace {

// Extra Qt stops per curved segment: spaced evenly along the segment and evenly along the
// blend, so that both the flat and the steep end of the curve are followed closely.
constexpr int curveSamples = 32;

// The blend between two stops is t^exponent, which passes one half at the midpoint.
qreal blendExponent(qreal midpoint)
{
    const qreal clamped = std::clamp(midpoint, 0.001, 0.999);
    return std::log(0.5) / std::log(clamped);
}

bool isLinear(qreal midpoint)
{
    return qFuzzyCompare(midpoint, 0.5);
}

QColor mix(const QColor &from, const QColor &to, qreal amount)
{
    const auto channel = [amount](float a, float b) {
        return a + (b - a) * float(amount);
    };
    return QColor::fromRgbF(channel(from.redF(), to.redF()), channel(from.greenF(), to.greenF()),
                            channel(from.blueF(), to.blueF()), channel(from.alphaF(), to.alphaF()));
}

// Fractions of a segment where a curved blend needs an extra stop.
QList<qreal> curveFractions(qreal exponent)
{
    QList<qreal> fractions;
    for (int i = 1; i < curveSamples; ++i) {
        const qreal even = qreal(i) / curveSamples;
        fractions << even << std::pow(even, 1 / exponent);
    }
    std::sort(fractions.begin(), fractions.end());
    return fractions;
}

} // namespace

QKGradient::QKGradient(const QList<QKGradientStop> &stops) : m_stops(stops)
{
    for (QKGradientStop &stop : m_stops)
        stop.position = std::clamp(stop.position, qreal(0), qreal(1));
    std::stable_sort(
        m_stops.begin(), m_stops.end(),
        [](const QKGradientStop &a, const QKGradientStop &b) { return a.position < b.position; });
}

QColor QKGradient::colorAtPosition(qreal position) const
{
    if (m_stops.isEmpty())
        return QColor();
    if (position <= m_stops.constFirst().position)
        return m_stops.constFirst().color;
    for (qsizetype i = 0; i + 1 < m_stops.size(); ++i) {
        const QKGradientStop &from = m_stops.at(i);
        const QKGradientStop &to = m_stops.at(i + 1);
        if (position < to.position) {
            const qreal t = (position - from.position) / (to.position - from.position);
            return mix(from.color, to.color,
                       isLinear(from.midpoint) ? t : std::pow(t, blendExponent(from.midpoint)));
        }
    }
    return m_stops.constLast().color;
}

QLinearGradient QKGradient::linearGradient(const QRectF &rect, qreal angleDegrees) const
{
    // Angles count counter-clockwise from the x axis with y pointing up; Qt's y points down.
    const qreal radians = qDegreesToRadians(angleDegrees);
    const QPointF direction(std::cos(radians), -std::sin(radians));
    const qreal halfLength =
        (rect.width() * std::abs(direction.x()) + rect.height() * std::abs(direction.y())) / 2;
    QLinearGradient gradient(rect.center() - direction * halfLength,
                             rect.center() + direction * halfLength);

    QGradientStops stops;
    for (qsizetype i = 0; i < m_stops.size(); ++i) {
        const QKGradientStop &stop = m_stops.at(i);
        stops << QGradientStop(stop.position, stop.color);
        if (i + 1 == m_stops.size() || isLinear(stop.midpoint))
            continue;
        const qreal length = m_stops.at(i + 1).position - stop.position;
        if (length <= 0)
            continue;
        for (qreal fraction : curveFractions(blendExponent(stop.midpoint))) {
            const qreal position = stop.position + fraction * length;
            stops << QGradientStop(position, colorAtPosition(position));
        }
    }
    gradient.setStops(stops);
    return gradient;
}

void QKGradient::fillRect(QPainter *painter, const QRectF &rect, qreal angleDegrees) const
{
    if (!painter || m_stops.isEmpty() || rect.isEmpty())
        return;
    painter->fillRect(rect, QBrush(linearGradient(rect, angleDegrees)));
}

void QKGradient::fillPath(QPainter *painter, const QPainterPath &path, qreal angleDegrees) const
{
    if (!painter || m_stops.isEmpty() || path.isEmpty())
        return;
    painter->fillPath(path, QBrush(linearGradient(path.boundingRect(), angleDegrees)));
}
