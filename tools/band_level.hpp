/// How loud the transmissions' band is, for a level meter.
#pragma once

#include "sdk/audio.hpp"

#include <array>
#include <atomic>
#include <cmath>
#include <numbers>

namespace sorvel {

/// RMS level of the band around 18.75 kHz, block by block.
///
/// One band-pass section of 1.5 kHz width (Bristow-Johnson, "Cookbook formulae for audio equalizer
/// biquad filter coefficients", constant 0 dB peak gain). Thread: `hear` on the capture thread,
/// `level_dbfs` on any; neither allocates nor locks.
class BandLevel {
public:
    void hear(const AudioBuffer& block) noexcept {
        const double rate = block.format().sampleRate;
        const auto samples = block.floatSamples(0);
        if (rate < 2 * kHighest_hz || block.frameLength() == 0 || samples.empty()) return;
        if (rate != m_rate) tune(rate);
        double power = 0.0;
        for (std::size_t i = 0; i < block.frameLength(); ++i) {
            const auto x = static_cast<double>(samples[i * block.stride()]);
            const double y = m_b0 * (x - m_x[1]) - m_a1 * m_y[0] - m_a2 * m_y[1];
            m_x = {x, m_x[0]};
            m_y = {y, m_y[0]};
            power += y * y;
        }
        if (!std::isfinite(power)) { // a sample was none: begin afresh
            m_x = m_y = {};
            return;
        }
        // A sine of full scale is 0 dBFS.
        m_level_dbfs = static_cast<float>(10.0 * std::log10(2.0 * power / block.frameLength() + 1e-12));
    }

    double level_dbfs() const noexcept { return static_cast<double>(m_level_dbfs.load()); }

private:
    static constexpr double kMiddle_hz = 18750.0, kWidth_hz = 1500.0, kHighest_hz = 19500.0;

    void tune(double rate) noexcept {
        const double w = 2.0 * std::numbers::pi * kMiddle_hz / rate;
        const double alpha = std::sin(w) * kWidth_hz / (2.0 * kMiddle_hz);
        m_b0 = alpha / (1.0 + alpha);
        m_a1 = -2.0 * std::cos(w) / (1.0 + alpha);
        m_a2 = (1.0 - alpha) / (1.0 + alpha);
        m_x = m_y = {};
        m_rate = rate;
    }

    double m_rate = 0.0, m_b0 = 0.0, m_a1 = 0.0, m_a2 = 0.0;
    std::array<double, 2> m_x{}, m_y{}; // the last two inputs and outputs, newest first
    std::atomic<float> m_level_dbfs = -120.0F;
};

} // namespace sorvel
