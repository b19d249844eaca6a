#pragma once

#include "bench/hearing/points.hpp"
#include "bench/hearing/receivers.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace sorvel::hearing {

inline constexpr std::array kKinds{Kind::Classic, Kind::DeepWithPrefix, Kind::DeepWithout,
                                   Kind::SmallWithPrefix, Kind::SmallWithout};

/// What one receiver made of one scene.
struct Outcome {
    bool isDelivered = false; ///< every text of the scene came out
    std::optional<double>
        delay_s; ///< from the last transmission's end to the block that brought the last text
    std::vector<std::string> wrong; ///< texts that nobody sent
};
/// Indexed by Kind.
using Outcomes = std::array<std::optional<Outcome>, kKinds.size()>;

struct Trial {
    const Point* point;
    double rate_hz;
    Draw draw;
};

/// Runs trials on several threads, each with receivers of its own; all receivers hear the same draws.
///
/// @param kinds   which ones are asked for
/// @param report  called once per trial, in their order
/// @throws what making a scene throws
void runTrials(const std::vector<Trial>& trials, const std::vector<Kind>& kinds, unsigned jobs,
               const std::function<void(const Trial&, const Outcomes&)>& report);

/// Share of trials with its 95 % interval (E. B. Wilson, "Probable inference, the law of succession,
/// and statistical inference", 1927).
struct Share {
    int delivered = 0, trials = 0;
    double share() const { return trials == 0 ? 0.0 : static_cast<double>(delivered) / trials; }
    std::array<double, 2> interval() const;
};

/// What the receivers did at one point.
struct Tally {
    std::array<Share, kKinds.size()> shares{};
    std::array<int, kKinds.size()> wrong{};
    std::array<std::vector<double>, kKinds.size()> delays_s{};
    void count(const Outcomes& outcomes);
};

} // namespace sorvel::hearing
