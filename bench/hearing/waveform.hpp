#pragma once

#include "bench/hearing/motion.hpp"

#include <array>
#include <cstddef>
#include <functional>
#include <span>
#include <string>

namespace sorvel::hearing {

/// The waveform of one transmission as a function of time: the modem's tones, each chunk two sines
/// under a trapezoid. It can be taken at any time, so that motion, clock errors and sub-sample
/// offsets are exact at every rate, where resampling would add an error of its own.
class Waveform {
public:
    static constexpr double kDuration_s = 3.264;
    static constexpr double kChunk_s = 0.192;
    /// Mean of the squares over a chunk of the two tones together, at full volume: two sines of
    /// amplitude 0.5, under a trapezoid of 0.15 + 0.7 + 0.15.
    static constexpr double kPower = 2 * 0.5 * 0.25 * (0.7 + 0.3 / 3.0);

    /// @param text  1 to 15 characters of encoding::kAlphabet
    /// @throws std::runtime_error if the modem refuses
    explicit Waveform(const std::string& text);

    /// At `time_s` since the start; 0 outside of the transmission.
    double at(double time_s) const;

private:
    struct Tone {
        double frequency_hz;
        double phase;
    };
    std::array<std::array<Tone, 2>, 17> m_chunks{};
};

/// How a microphone hears it.
struct Hearing {
    double rate_hz = 48000.0;
    double start_s = 0.0;        ///< of the transmission, since the first sample
    double clockError_ppm = 0.0; ///< positive: the tones sound too high
    Motion motion{};             ///< from `start_s` on
    /// Of the motion's speed: the cosine between the way of the sound and that of the microphone.
    double share = 1.0;

    double sourceTime_s(double time_s) const {
        const double since_s = time_s - start_s;
        return since_s * (1.0 + clockError_ppm * 1e-6) +
               (motion.isAtRest() ? 0.0 : share * motion.distance_m(since_s) / kSpeedOfSound_m_s);
    }
    /// When the transmission has ended.
    double end_s() const;
};

/// Adds the waveform to `sound`.
void add(const Waveform& waveform, const Hearing& hearing, double gain, std::span<float> sound);

} // namespace sorvel::hearing
