/// What happens to a transmission between loudspeaker and microphone, for the
/// demonstration and for tests.
///
/// Sound is a run of floats of full scale 1.0. Whatever is random follows from its seed alone.
/// Nothing here is meant for real time: every function allocates its result.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace sorvel::air {

/// The band that tones lie in, Hz.
inline constexpr double kLowestTone_hz = 18000.0;
inline constexpr double kHighestTone_hz = 19500.0;

/// Mean of the squares from the first sample that is not 0 to the last: the power of a transmission
/// while it sounds, with full scale as 1. 0 for silence.
double tonePower(std::span<const float> sound);

void amplify(std::span<float> sound, double gain_db);
/// Cuts off at `limit` to both sides, as a microphone that is driven too hard does.
void clip(std::span<float> sound, float limit);

/// Adds white noise.
///
/// The in-band signal-to-noise ratio is `tonePower` over the noise power within 18.0 to 19.5 kHz.
/// White noise of variance v at rate R has v * 1500 Hz / (R / 2) there, so at 48 kHz the whole
/// noise is 12 dB stronger than its part in the band: 0 dB in-band are -12 dB over all.
///
/// @param tonePower  of the transmission alone, before anything else was added to it
void addWhiteNoise(std::span<float> sound, double inBandSnr_db, double tonePower, double sampleRate_hz,
                   std::uint32_t seed);

/// A room's impulse response: the direct sound, 1.0 at time 0, and an exponentially decaying noise
/// behind it, as in J.-D. Polack, "La transmission de l'énergie sonore dans les salles" (1988):
/// h(t) = b(t) exp(-d t) with b white and d = 3 ln 10 / RT60.
///
/// @param rt60_s           time in which the noise decays by 60 dB; the response is as long
/// @param directToRoom_db  energy of the direct sound over that of the noise; 0 dB some metres away
std::vector<float> roomResponse(double rt60_s, double directToRoom_db, double sampleRate_hz,
                                std::uint32_t seed);

/// Sound through a response: signal.size() + response.size() - 1 samples, empty if either is.
/// Blockwise in the frequency domain, within 1e-5 of the largest sample of the plain sum.
std::vector<float> convolved(std::span<const float> signal, std::span<const float> response);

/// The sound as a clock hears it that runs `clockError_ppm` fast and starts `delay_samples` early:
/// sample k is taken at time (k - delay) / (1 + ppm / 1e6). Fractions count. Interpolated by a sinc
/// under a Hann window of 64 samples: flat to 0.1 dB up to 0.85 of half the rate.
std::vector<float> reclocked(std::span<const float> sound, double clockError_ppm, double delay_samples = 0.0);

} // namespace sorvel::air
