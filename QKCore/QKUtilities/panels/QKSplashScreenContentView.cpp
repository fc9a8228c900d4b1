#include "QKSplashScreenContentView.h"

#include <QPainter>
#include <QPainterPath>

QKSplashScreenContentView::QKSplashScreenContentView(QWidget *parent)
    : QWidget(parent), m_background(panelGradient())
{}

QKSplashScreenContentView::~QKSplashScreenContentView() = default;

QKGradient QKSplashScreenContentView::panelGradient()
{
    const auto white = [](qreal level) {
        return QColor::fromRgbF(level, level, level, 1.0);
    };
    return QKGradient({{white(0.0), 0.0, 0.95}, {white(0.15), 0.5, 0.5}, {white(0.3), 1.0, 0.5}});
}

void QKSplashScreenContentView::drawPanelBackground(QPainter *painter, const QRectF &rect,
                                                    const QKGradient &gradient)
{
    QPainterPath path;
    path.addRoundedRect(rect, 6.0, 6.0);
    gradient.fillPath(painter, path, 90);
}

void QKSplashScreenContentView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    drawPanelBackground(&painter, rect(), m_background);
}
