#pragma once

#include "bench/hearing/draws.hpp"

namespace sorvel::hearing {

inline constexpr double kSpeedOfSound_m_s = 343.0;

/// How the microphone moves towards the loudspeaker: a mean speed, a swing on top of it, and a
/// movement from rest to rest. Distances are closed forms, so that no error adds up.
struct Motion {
    double mean_m_s = 0.0; ///< positive: towards the loudspeaker, which raises the tones
    double swing_m_s = 0.0;
    double swing_hz = 2.0; ///< of a walker's hand
    double swingPhase = 0.0;
    double lift_m_s = 0.0; ///< highest speed of a raised cosine of `lift_s`
    double lift_s = 1.0;
    double liftStart_s = 0.0;

    bool isAtRest() const { return mean_m_s == 0.0 && swing_m_s == 0.0 && lift_m_s == 0.0; }
    double speed_m_s(double time_s) const;
    /// Since time 0; 0 there.
    double distance_m(double time_s) const;
};

/// The same with phase and start drawn.
Motion drawn(Motion motion, const Draw& draw);

} // namespace sorvel::hearing
