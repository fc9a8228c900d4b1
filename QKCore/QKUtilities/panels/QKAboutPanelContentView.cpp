#include "QKAboutPanelContentView.h"

#include "QKAboutPanel.h"
#include "QKSplashScreenContentView.h"

#include <QMouseEvent>
#include <QPainter>

QKAboutPanelContentView::QKAboutPanelContentView(QWidget *parent)
    : QWidget(parent), m_background(QKSplashScreenContentView::panelGradient())
{}

QKAboutPanelContentView::~QKAboutPanelContentView() = default;

void QKAboutPanelContentView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QKSplashScreenContentView::drawPanelBackground(&painter, rect(), m_background);

    // 49.5 points above the bottom edge: on a pixel row, with the buttons below it.
    const qreal y = height() - 49.5;
    painter.setPen(QPen(QColor::fromRgbF(1.0 / 3, 1.0 / 3, 1.0 / 3), 1.0));
    painter.drawLine(QPointF(20.0, y), QPointF(width() - 20.0, y));
}

void QKAboutPanelContentView::mousePressEvent(QMouseEvent *event)
{
    event->accept();
    QKAboutPanel::aboutPanel()->close();
}
