#pragma once

#include "deep/short_float.hpp"

#include <cstddef>
#include <span>
#include <vector>

namespace sorvel::deep {

/// Tells whistles from tones as they come: what is loud in a bin even in its quietest moment of some
/// seconds. No chunk's tone is there for so long, nor is noise loud in its quietest moments.
///
/// Thread: one at a time per object. Allocates in the constructor only.
class LineTracker {
public:
    /// Remembers `spans` spans of `rowsPerSpan` rows: a whistle is known once it filled them all, and
    /// forgotten with the first row without it.
    LineTracker(std::size_t bins, std::size_t spans, std::size_t rowsPerSpan);
    void reset() noexcept;

    /// Divides the powers of a row, over the mean of the noise, by the lines known so far, then learns.
    ///
    /// @return whether a line of 9 dB or more is known since this row that was none before
    bool takeOut(std::span<float> power) noexcept;

private:
    bool endSpan() noexcept;

    std::size_t m_spans, m_rowsPerSpan;
    std::vector<float> m_line;            // by bin: the quietest moment of all spans, if that is loud; else 1
    std::vector<ShortFloat> m_quietest;   // by bin: of the span under way
    std::vector<ShortFloat> m_quietestOf; // by span, then by bin
    std::size_t m_row = 0;                // of the span under way
    std::size_t m_span = 0;
};

} // namespace sorvel::deep
