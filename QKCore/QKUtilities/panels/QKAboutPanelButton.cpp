#include "QKAboutPanelButton.h"

#include "QKAboutPanelButtonCell.h"

#include <QPainter>

QKAboutPanelButton::QKAboutPanelButton(QWidget *parent)
    : QPushButton(parent), m_cell(std::make_unique<QKAboutPanelButtonCell>())
{
    setAttribute(Qt::WA_TranslucentBackground);
}

QKAboutPanelButton::~QKAboutPanelButton() = default;

const QKAboutPanelButtonCell &QKAboutPanelButton::cell() const
{
    return *m_cell;
}

void QKAboutPanelButton::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    m_cell->drawWithFrame(&painter, rect(), text(), isEnabled(), isDown());
}
