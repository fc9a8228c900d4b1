#pragma once

#include <QObject>
#include <QTimer>

#include <random>
#include <vector>

/**
 * A stand-in for an audio engine: every 50 ms it makes a block of a slowly swelling sine
 * with a little noise on each channel, measures its RMS and peak levels and hands them to
 * the meter controller as {"rms": [..], "peak": [..]}.
 */
class SoundLabSignalGenerator : public QObject
{
    Q_OBJECT
public:
    explicit SoundLabSignalGenerator(int channels, QObject *parent = nullptr);

    void start();
    void stop();
    /** The factor applied to the signal, 1 at first; setGain() keeps it within 0.05 to 2. */
    double gain() const { return m_gain; }
    void setGain(double gain);

private:
    void produceBlock();

    QTimer m_timer;
    std::vector<double> m_phases;
    double m_time = 0;
    double m_gain = 1.0;
    std::mt19937 m_random;
};
