#include "SoundLabSignalGenerator.h"

#include <QKMeterController.h>

#include <QVariant>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {
constexpr double sampleRate = 44100.0;
constexpr int blockMs = 50;
constexpr int framesPerBlock = int(sampleRate * blockMs / 1000);
} // namespace

SoundLabSignalGenerator::SoundLabSignalGenerator(int channels, QObject *parent)
    : QObject(parent), m_phases(std::max(channels, 1), 0.0), m_random(std::random_device{}())
{
    m_timer.setInterval(blockMs);
    connect(&m_timer, &QTimer::timeout, this, &SoundLabSignalGenerator::produceBlock);
}

void SoundLabSignalGenerator::start()
{
    m_timer.start();
}

void SoundLabSignalGenerator::stop()
{
    m_timer.stop();
}

void SoundLabSignalGenerator::setGain(double gain)
{
    m_gain = std::clamp(gain, 0.05, 2.0);
}

void SoundLabSignalGenerator::produceBlock()
{
    std::uniform_real_distribution<double> noise(-0.05, 0.05);
    QVariantList rmsLevels;
    QVariantList peakLevels;
    for (size_t channel = 0; channel < m_phases.size(); ++channel) {
        const double frequency = 220.0 * double(channel + 1);
        // Each channel swells and fades at its own pace, so the meters move.
        const double swell =
            0.5 + 0.45 * std::sin(2 * std::numbers::pi * (0.2 + 0.07 * channel) * m_time + channel);
        double sumOfSquares = 0;
        double peak = 0;
        double &phase = m_phases[channel];
        for (int frame = 0; frame < framesPerBlock; ++frame) {
            const double sample = m_gain * (swell * std::sin(phase) + noise(m_random));
            phase = std::fmod(phase + 2 * std::numbers::pi * frequency / sampleRate,
                              2 * std::numbers::pi);
            sumOfSquares += sample * sample;
            peak = std::max(peak, std::abs(sample));
        }
        rmsLevels << std::sqrt(sumOfSquares / framesPerBlock);
        peakLevels << peak;
    }
    m_time += blockMs / 1000.0;
    QKMeterController::defaultController()->input(
        QVariantMap{{QStringLiteral("rms"), rmsLevels}, {QStringLiteral("peak"), peakLevels}});
}
