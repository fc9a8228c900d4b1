#include "QKAboutPanelButtonCell.h"

#include "QKSplashScreenContentView.h"

#include <QFontDatabase>
#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>

namespace {
QColor grey(qreal level)
{
    return QColor::fromRgbF(level, level, level);
}
} // namespace

QKAboutPanelButtonCell::QKAboutPanelButtonCell()
    : m_gradient(QKSplashScreenContentView::panelGradient()),
      m_font(QFontDatabase::systemFont(QFontDatabase::GeneralFont))
{
    // The small system size is 11 points where the regular one is 13.
    if (m_font.pointSizeF() > 0)
        m_font.setPointSizeF(m_font.pointSizeF() * 11.0 / 13.0);
}

void QKAboutPanelButtonCell::drawWithFrame(QPainter *painter, const QRectF &frame,
                                           const QString &title, bool enabled,
                                           bool highlighted) const
{
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    QPainterPath outline;
    outline.addRoundedRect(frame.adjusted(0.5, 0.5, -0.5, -0.5), 5.0, 5.0);
    m_gradient.fillPath(painter, outline, highlighted ? 90 : 270);
    painter->setPen(QPen(enabled ? grey(0.5) : grey(1.0 / 3), 1.0));
    painter->drawPath(outline);
    painter->restore();
    drawInterior(painter, frame, title, enabled);
}

void QKAboutPanelButtonCell::drawInterior(QPainter *painter, const QRectF &frame,
                                          const QString &title, bool enabled) const
{
    painter->save();
    painter->setFont(m_font);
    painter->setPen(enabled ? grey(2.0 / 3) : grey(1.0 / 3));
    const QFontMetricsF metrics(m_font);
    const QSizeF text(metrics.horizontalAdvance(title), metrics.height());
    const QPointF origin(frame.x() + frame.width() / 2 - text.width() / 2,
                         frame.y() + frame.height() / 2 - text.height() / 2);
    painter->drawText(QRectF(origin, text), Qt::AlignLeft | Qt::AlignTop, title);
    painter->restore();
}
