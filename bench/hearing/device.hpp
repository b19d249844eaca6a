/// What a microphone and its driver do to the sound they take in.
#pragma once

#include "bench/hearing/draws.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace sorvel::hearing {

/// A microphone whose response falls along a straight line in dB, from 0 at 18.0 kHz to -`fall_db`
/// at 19.5 kHz, flat below and above, with linear phase.
void slope(std::span<float> sound, double fall_db, double rate_hz);

/// Sound that did not arrive in time.
struct Dropouts {
    enum class Kind : std::uint8_t {
        Silent, ///< it is replaced by silence
        Lost    ///< what comes after it moves up
    };
    double length_s = 0.01;
    double perSecond = 1.0;
    Kind kind = Kind::Silent;
};
/// One gap at a random place in each 1 / perSecond seconds. @return seconds lost before `time_s`
double dropOut(std::vector<float>& sound, const Dropouts& dropouts, double rate_hz, double time_s,
               const Draw& draw);

/// Automatic gain: to `step_db` and back, for half of every second each, from a random moment on.
void stepGain(std::span<float> sound, double step_db, double rate_hz, const Draw& draw);

/// Scaled so that the highest sample is at `peak_dbfs`, then rounded to 16 bits.
void digitise(std::span<float> sound, double peak_dbfs);

} // namespace sorvel::hearing
