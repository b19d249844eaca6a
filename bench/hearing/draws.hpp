/// Random numbers of one trial: from the set, the seed and the trial's number alone, and a stream of
/// its own for each thing that is drawn, so that a channel which draws more leaves the others' draws
/// as they were.
#pragma once

#include <cstdint>
#include <random>

namespace sorvel::hearing {

/// Settings are tuned on one set and reported on the other; no draw belongs to both.
enum class DrawSet : std::uint32_t { Tuning = 1, Reporting = 2 };

enum class Stream : std::uint32_t { Text, Timing, Motion, Room, Noise, Whistles, Bursts, Dropouts, Gain };

struct Draw {
    DrawSet set = DrawSet::Tuning;
    std::uint32_t seed = 1;
    std::uint32_t trial = 0;

    std::mt19937 generator(Stream stream) const {
        std::seed_seq all{static_cast<std::uint32_t>(set), seed, trial, static_cast<std::uint32_t>(stream)};
        return std::mt19937(all);
    }
};

inline double uniform(std::mt19937& generator, double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(generator);
}

} // namespace sorvel::hearing
