#pragma once

#include "deep/energies.hpp"
#include "deep/small_float.hpp"
#include "deep/small_spectrum.hpp"

#include <array>
#include <span>

namespace sorvel::deep::small {

/// From a candidate's rough place to the energies of its tones, as deep::Refinement, in 9.5 KiB: of the
/// spectra only the tones' bins at five shifts are kept, and the five quietest of every whole bin.
///
/// Thread: one at a time. Allocates nothing.
class Refinement {
public:
    static constexpr int kEnds = 3; ///< steps of `tryEnd` per candidate

    /// @param end    number of the sample behind the transmission, within half a row
    /// @param shift  in bins
    void begin(std::int64_t end, int shift) noexcept;
    /// Looks at one of the three ends.
    ///
    /// @param power  scratch
    void tryEnd(const Baseband& baseband, Spectrum& spectrum, std::span<float, Spectrum::kBins> power,
                int which) noexcept;

    const Place& place() const noexcept { return m_best; }
    void energies(ToneEnergies& energies) const noexcept; ///< at the best place so far

private:
    static constexpr std::size_t kTried = 5; // shifts, half a bin apart
    static constexpr std::size_t kRank = 4;  // the fifth quietest of 17 chunks
    using Energies = std::array<std::array<ShortFloat, kTones>, kChunks>;

    void takeChunk(std::size_t chunk, Spectrum& spectrum, std::span<float, Spectrum::kBins> power) noexcept;
    void measureNoise(std::span<float, Spectrum::kBins> noise) const noexcept;
    float fit(std::size_t tried, std::span<const float, Spectrum::kBins> noise) const noexcept;
    float shiftOf(std::size_t tried) const noexcept {
        return static_cast<float>(m_shift) + 0.5F * (static_cast<float>(tried) - 2.0F);
    }

    std::array<std::array<Byte, Spectrum::kBins>, kRank + 1> m_quietest{}; // ascending
    std::array<Energies, kTried> m_tones{};                                // over their chunk's noise
    Energies m_bestTones{};                                                // over their bin's too
    std::array<std::array<std::int16_t, kTones>, kTried> m_halfBins{};
    std::int64_t m_end = 0;
    int m_shift = 0;
    Place m_best;
};

} // namespace sorvel::deep::small
