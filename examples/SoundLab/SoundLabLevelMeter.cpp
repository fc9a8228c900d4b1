#include "SoundLabLevelMeter.h"

#include <QKMeter.h>

#include <QPainter>
#include <QPointer>
#include <QVariant>

#include <cmath>

namespace {

constexpr double floorDb = -60.0;
constexpr qint64 peakHoldMs = 1500;

// The controller owns its meters while widgets belong to their windows: the registered
// meter only forwards, and falls silent once the widget is gone.
class Forwarder : public QKMeter
{
public:
    explicit Forwarder(SoundLabLevelMeter *widget) : m_widget(widget) {}
    void input(const QVariant &measurement) override
    {
        if (m_widget)
            m_widget->showMeasurement(measurement);
    }

private:
    QPointer<SoundLabLevelMeter> m_widget;
};

// Where on the -60...0 dB scale a linear level lies, from 0 to 1.
double position(double level)
{
    if (level <= 0)
        return 0;
    const double db = 20 * std::log10(level);
    return std::clamp((db - floorDb) / -floorDb, 0.0, 1.0);
}

} // namespace

SoundLabLevelMeter::SoundLabLevelMeter(QWidget *parent)
    : QWidget(parent), m_colour(QColor(60, 200, 90)), m_meter(std::make_shared<Forwarder>(this))
{
    setObjectName(QStringLiteral("levelMeter"));
    m_clock.start();
}

SoundLabLevelMeter::~SoundLabLevelMeter() = default;

void SoundLabLevelMeter::showMeasurement(const QVariant &measurement)
{
    const QVariantMap levels = measurement.toMap();
    const QVariantList rms = levels.value(QStringLiteral("rms")).toList();
    const QVariantList peaks = levels.value(QStringLiteral("peak")).toList();
    if (rms.isEmpty() || rms.size() != peaks.size())
        return;
    m_channels.resize(rms.size());
    const qint64 now = m_clock.elapsed();
    for (qsizetype i = 0; i < rms.size(); ++i) {
        Channel &channel = m_channels[i];
        channel.rms = rms.at(i).toDouble();
        channel.peak = peaks.at(i).toDouble();
        if (channel.peak >= channel.heldPeak || now - channel.heldSince > peakHoldMs) {
            channel.heldPeak = channel.peak;
            channel.heldSince = now;
        }
    }
    update();
}

void SoundLabLevelMeter::setColour(const QColor &colour)
{
    m_colour = colour;
    update();
}

void SoundLabLevelMeter::setPeakHold(bool hold)
{
    m_peakHold = hold;
    update();
}

QSize SoundLabLevelMeter::sizeHint() const
{
    return QSize(240, 26);
}

void SoundLabLevelMeter::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), QColor(24, 24, 24));
    if (m_channels.isEmpty())
        return;
    const double barHeight = double(height() - 2) / m_channels.size();
    const double width = this->width() - 4;
    for (qsizetype i = 0; i < m_channels.size(); ++i) {
        const Channel &channel = m_channels.at(i);
        const QRectF lane(2, 1 + i * barHeight + 1, width, barHeight - 2);
        painter.fillRect(
            QRectF(lane.topLeft(), QSizeF(width * position(channel.rms), lane.height())), m_colour);
        painter.fillRect(
            QRectF(lane.left() + width * position(channel.peak) - 1, lane.top(), 1, lane.height()),
            m_colour.lighter(140));
        if (m_peakHold)
            painter.fillRect(QRectF(lane.left() + width * position(channel.heldPeak) - 2,
                                    lane.top(), 2, lane.height()),
                             Qt::white);
    }
}
