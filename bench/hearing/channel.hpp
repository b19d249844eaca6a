/// One simulated way from a loudspeaker to a receiver, and what is drawn for one trial on it.
#pragma once

#include "bench/hearing/codec.hpp"
#include "bench/hearing/device.hpp"
#include "bench/hearing/draws.hpp"
#include "bench/hearing/echo.hpp"
#include "bench/hearing/motion.hpp"
#include "bench/hearing/noise.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sorvel::hearing {

/// What every text of a trial begins with.
inline constexpr std::string_view kPrefix = "acme";

/// What acts on the sound stands in the order in which it acts.
///
/// Levels are relative to the tone power: the mean square of the transmission as it arrives, both
/// tones and the echo together, from the direct sound's start to its end; without the microphone's
/// slope, so that there it is the strongest tone's.
struct Channel {
    std::size_t textLength = 15; ///< characters, kPrefix.size() or more
    int transmissions = 1;
    bool isSameText = true; ///< of several transmissions; else each has its own
    double gap_s = 0.0;     ///< between two; up to 0.1 s more is drawn

    double before_s = 0.6; ///< of what else sounds, before the first transmission

    Motion motion{};
    double clockError_ppm = 0.0;
    std::optional<Room> room{};
    double slope_db = 0.0;
    std::vector<Whistle> whistles{};
    std::optional<Bursts> bursts{};
    std::optional<double> snr_db{}; ///< none: no noise but that of 16 bits
    Colour colour = Colour::White;
    double gainStep_db = 0.0;
    std::optional<Dropouts> dropouts{};
    std::optional<double> clip{}; ///< limit, relative to the highest sample
    std::optional<Codec> codec{};
    double peak_dbfs = -6.0; ///< highest sample of the recording
};

/// What a trial sends and what arrives.
struct Scene {
    std::vector<std::string> texts; ///< different ones
    double end_s = 0.0;             ///< of the last transmission, since the first sample
    std::vector<float> sound;
};

/// A text that begins with `prefix`.
std::string drawnText(std::string_view prefix, std::size_t length, std::mt19937& generator);

/// What else sounds, the transmissions at a random sub-sample offset, 0.9 s more.
///
/// @throws std::runtime_error, one line, if a codec's program is missing or fails
Scene makeScene(const Channel& channel, double rate_hz, const Draw& draw);

} // namespace sorvel::hearing
