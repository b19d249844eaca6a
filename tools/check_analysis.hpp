/// What `sorvel check` plays, and what it finds in what it hears: plain functions over samples of
/// full scale 1.0, without devices. A sine of full scale has 0 dBFS, and so has noise of its power.
///
/// A probe is a short tone, as loud as one of a transmission's two. They lie on the grid of the
/// transmissions' tones, 46.875 Hz apart, from 17.5 to 20 kHz, and sound one after another in a
/// shuffled order, so that a row of them is found by its pattern, and an echo of one does not lie
/// in the next one's place.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace sorvel::check {

inline constexpr std::size_t kProbes = 55;
inline constexpr std::size_t kFirstTone = 11; ///< of the 32 tones among the probes
inline constexpr std::size_t kTones = 32;

double probe_hz(std::size_t probe) noexcept;

/// What is played: quiet, the probes, the transmissions, the first probes again, quiet.
struct Program {
    std::vector<float> samples;
    double distance_s = 0.0; ///< from the first probes to their return
};
Program program(std::span<const std::vector<float>> transmissions, double rate_hz, int volume_percent);

/// A tone that is there all the time.
struct Whistle {
    double frequency_hz = 0.0;
    double level_dbfs = 0.0;
    double overNoise_db = 0.0; ///< over the noise beside it, in 9 Hz
};

struct Background {
    double peak = 0.0;       ///< of all samples
    double noise_dbfs = 0.0; ///< from 18 to 19.5 kHz, whistles included
    /// How much weaker the noise is there than from 16 to 17.5 kHz. Rooms and microphones give a few
    /// dB, what removes the band gives 30 and more.
    double falloff_db = 0.0;
    std::vector<Whistle> whistles; ///< from 17.5 to 20 kHz, strongest first
};
/// @param quiet  0.5 s or more in which nothing was played, at 40 kHz or more
Background background(std::span<const float> quiet, double rate_hz);

struct Tone {
    double frequency_hz = 0.0;
    double level_dbfs = 0.0;
    double snr_db = 0.0; ///< in 46.9 Hz
};

struct Found {
    double start_s = 0.0;         ///< of the first probe in the recording
    std::vector<Tone> response;   ///< of all probes, by frequency
    std::optional<double> late_s; ///< of the returning probes: below 0 sound was lost, above 0 it stood
                                  ///< still. Nothing: they did not return
};
/// Where the probes are. @return nothing: they are not there
std::optional<Found> findProbes(std::span<const float> recording, double rate_hz, double distance_s);

} // namespace sorvel::check
