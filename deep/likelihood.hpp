#pragma once

#include "deep/energies.hpp"

namespace sorvel::deep {

/// How a transmission seems to have reached the microphone.
struct Air {
    float ratio = 0.0F;    ///< energy of a tone over the noise's, dB
    float echo = 0.0F;     ///< part of a tone's energy that rings on into the next chunk; 0: none
    bool isFading = false; ///< tones come with strengths of their own
    float evidence = 0.0F; ///< logarithm of how much likelier than noise this is
};

/// From energies to what is known of every nibble, under the model of the air that explains all 34 best.
///
/// Where a tone was sent, its energy e over the noise is spread as (Proakis, Digital Communications, on
/// non-coherent detection of orthogonal signals)
///   steady: ln I0(2 sqrt(r e)) - r, for a signal of ratio r over noise;
///   fading (Rayleigh): e r / (1 + r) - ln(1 + r), tones with strengths of their own;
///   echo: as fading, over a noise of 1 + g (e' + 0.12 e''), where e' and e'' are the same tone's energies
///   one and two chunks earlier, which still ring.
/// The models are tried over a grid of r (4 to 22 dB, with echo to 40) and g.
///
/// Three in a hundred nibbles are taken to be anything, so that one burst does not decide.
///
///     AirSearch search;
///     while (!search.step(energies, 22)) {}         // some models at a time, between blocks of sound
///     const Air air = search.finish(energies, scores);
///
/// Thread: one at a time per object. Allocates nothing.
class AirSearch {
public:
    /// Tries some models more. True: all are tried.
    bool step(const ToneEnergies& energies, int models) noexcept;
    /// Fills the scores under the best model.
    Air finish(const ToneEnergies& energies, Scores& scores) const noexcept;

private:
    Air m_best;
    int m_bestModel = 0;
    int m_next = 0;
};

/// All of it at once.
Air score(const ToneEnergies& energies, Scores& scores) noexcept;

/// A tone's energy over the noise's in one bin is this much over the signal-to-noise ratio of the band: half
/// of the power, in 1500 Hz times 192 ms bins, less the trapezoid's share.
inline constexpr float kBandOverTone_dB = 21.6F;

/// How a transmission arrived whose bytes are known.
struct Arrival {
    float snr_db = 0.0F; ///< power of the tones over that of the noise from 18 to 19.5 kHz
    float echo = 0.0F;   ///< part of a tone's energy that was still there a chunk later
};
/// @param bytes  as sent, parity included
Arrival arrival(const ToneEnergies& energies, std::span<const std::uint8_t, kChunks> bytes) noexcept;

/// What remains of a nibble's probabilities when a few in a hundred may be anything: ln(16 p').
void toScores(std::span<float, 16> probabilities) noexcept;

} // namespace sorvel::deep
