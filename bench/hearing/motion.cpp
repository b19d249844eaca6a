#include "bench/hearing/motion.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sorvel::hearing {

namespace {

constexpr double kTurn = 2.0 * std::numbers::pi;

} // namespace

double Motion::speed_m_s(double time_s) const {
    const double lifted_s = std::clamp(time_s - liftStart_s, 0.0, lift_s);
    return mean_m_s + swing_m_s * std::cos(kTurn * swing_hz * time_s + swingPhase) +
           lift_m_s * 0.5 * (1.0 - std::cos(kTurn * lifted_s / lift_s));
}

double Motion::distance_m(double time_s) const {
    double distance = mean_m_s * time_s;
    if (swing_m_s != 0.0) {
        const double turn = kTurn * swing_hz;
        distance += swing_m_s / turn * (std::sin(turn * time_s + swingPhase) - std::sin(swingPhase));
    }
    if (lift_m_s != 0.0) {
        const double lifted_s = std::clamp(time_s - liftStart_s, 0.0, lift_s);
        distance +=
            lift_m_s * (0.5 * lifted_s - lift_s / (2.0 * kTurn) * std::sin(kTurn * lifted_s / lift_s));
    }
    return distance;
}

Motion drawn(Motion motion, const Draw& draw) {
    std::mt19937 generator = draw.generator(Stream::Motion);
    motion.swingPhase = uniform(generator, 0.0, kTurn);
    motion.liftStart_s = uniform(generator, 0.2, 2.0);
    return motion;
}

} // namespace sorvel::hearing
