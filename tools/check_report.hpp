/// What `sorvel check` says about what it has found.
#pragma once

#include "tools/check_analysis.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sorvel::check {

struct Device {
    std::string name;
    double rate_hz = 0.0;
    bool isMonitor = false; ///< hears what the machine plays
};

struct Report {
    Device input;
    std::optional<Device> output; ///< nothing: nothing was to be played
    // Nothing of these where a rate cannot carry the band.
    std::optional<Background> background;
    std::optional<Found> found;
    double listened_s = 0.0;
    int textsSent = 0, textsHeard = 0;
    std::uint64_t overruns = 0; ///< times that the capture lost sound
    std::uint64_t gaps = 0;     ///< times that the playback broke off
};

enum class Verdict : std::uint8_t { Good, CannotCarry, NoSound, NotHeard, Disturbed, Weak, Lossy };
Verdict verdict(const Report& report);

/// Of the 32 tones those that a receiver tells from the noise.
int clearTones(const Found& found);

/// One line each: what is wrong, and what to try. Empty when all is well.
std::vector<std::string> advice(const Report& report);
/// For people, at most 80 columns but for the advice.
std::vector<std::string> lines(const Report& report);
/// One object, without a line break.
std::string jsonLine(const Report& report);

} // namespace sorvel::check
