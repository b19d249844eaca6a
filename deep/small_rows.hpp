#pragma once

#include "deep/rows.hpp"
#include "deep/small_float.hpp"
#include "deep/small_spectrum.hpp"

#include <array>
#include <span>

namespace sorvel::deep::small {

/// How much the last chunk's length looks like a chunk, for every shift of its tones, as Rows tells it, in
/// 4 KiB.
///
/// A steady tone whitens away once it has been there for one whole span of 2.3 s, which takes 2.3 to 4.6 s:
/// Rows, which keeps twelve spans, needs 2.5 s.
///
/// Thread: one at a time. Allocates nothing.
class Rows {
public:
    void reset() noexcept;

    /// @param power  scratch; before: of the whole bins of a chunk
    /// @param score  by shift from -50 to 50; noise alone gives 6.8 on average
    void take(std::span<float, Spectrum::kBins> power, std::span<float, kShifts> score) noexcept;

private:
    void whiten(std::span<float, Spectrum::kBins> power) noexcept;

    std::array<float, Spectrum::kBins> m_colour{};
    std::array<Byte, Spectrum::kBins> m_quietest{}; // of the span under way
    std::array<Byte, Spectrum::kBins> m_before{};   // of the one before
    std::size_t m_rowsOfSpan = 0;
};

} // namespace sorvel::deep::small
