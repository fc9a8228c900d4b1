#pragma once

#include <QElapsedTimer>
#include <QWidget>

#include <memory>

class QKMeter;

/**
 * Horizontal level bars, one per channel, on a -60 to 0 dB scale: the RMS level as the bar,
 * the peak as a thin line, and optionally the highest recent peak held for a moment.
 */
class SoundLabLevelMeter : public QWidget
{
    Q_OBJECT
public:
    explicit SoundLabLevelMeter(QWidget *parent = nullptr);
    ~SoundLabLevelMeter() override;

    /** The meter to register with the meter controller: it feeds this widget for as long as
     *  the widget exists. */
    std::shared_ptr<QKMeter> meter() const { return m_meter; }

    /** Shows a measurement: a map whose "rms" and "peak" lists hold one linear level
     *  (0 to 1) per channel. Anything else is ignored. */
    void showMeasurement(const QVariant &measurement);

    void setColour(const QColor &colour);
    void setPeakHold(bool hold);

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    struct Channel
    {
        double rms = 0;
        double peak = 0;
        double heldPeak = 0;
        qint64 heldSince = 0;
    };

    QList<Channel> m_channels;
    QColor m_colour;
    bool m_peakHold = true;
    QElapsedTimer m_clock;
    std::shared_ptr<QKMeter> m_meter;
};
