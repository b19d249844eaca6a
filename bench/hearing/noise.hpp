/// What else sounds: noise, bursts and whistles, each added at a power relative to the tones'.
#pragma once

#include "bench/hearing/draws.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace sorvel::hearing {

enum class Colour : std::uint8_t { White, Pink };

double fromDecibels(double power_db);

/// Noise of mean power `inBandPower` within 18.0 to 19.5 kHz. White: a constant density up to half
/// the rate. Pink: a density of 1 / f from 20 Hz on.
void addNoise(std::span<float> sound, Colour colour, double inBandPower, double rate_hz,
              std::mt19937 generator);

/// White noise in short pieces.
struct Bursts {
    double level_db = 10.0; ///< in the band, while a burst lasts, over the tones
    double length_s = 0.02;
    double period_s = 0.15;
};
void addBursts(std::span<float> sound, const Bursts& bursts, double tonePower, double rate_hz,
               const Draw& draw);

/// One tone that does not end, somewhere in the band.
struct Whistle {
    double level_db = 10.0;      ///< over the transmission's two tones together
    double sweep_hz_per_s = 0.0; ///< up and down within +-75 Hz, as a screen's supply does
};
void addWhistle(std::span<float> sound, const Whistle& whistle, double tonePower, double rate_hz,
                std::mt19937& generator);

} // namespace sorvel::hearing
