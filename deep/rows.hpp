#pragma once

#include "deep/band.hpp"
#include "deep/line_tracker.hpp"
#include "deep/tone_comb.hpp"
#include "deep/transform.hpp"

#include <array>
#include <span>
#include <vector>

namespace sorvel::deep {

inline constexpr int kMostShift = 50; ///< bins of 2.604 Hz: 2.4 m/s
inline constexpr std::size_t kShifts = 2 * kMostShift + 1;

/// How much a window of one chunk's length looks like a chunk, for every shift of its tones: the strongest
/// of the low nibble's tones plus the strongest of the high nibble's.
///
/// Each bin is measured against the median of its spectrum, so that loudness does not count, and against
/// its own past, so that steady tones and slopes whiten away: slopes within some 8 s, slowly enough to leave
/// the tones of padded texts, and whistles once they have been there for 2.3 s, longer than
/// any chunk repeats.
///
/// Thread: one at a time. Allocates in the constructor only.
class Rows {
public:
    /// @param transform  of 1024 points, lent for good; may serve others too
    explicit Rows(Transform& transform);
    void reset() noexcept;

    /// Takes the chunk's length of samples that ends with the newest.
    ///
    /// @return by shift from -50 to 50; noise alone gives 6.8 on average. Good until the next call
    std::span<const float, kShifts> take(const float* re, const float* im) noexcept;

private:
    void whiten() noexcept;

    Transform& m_transform;
    ToneComb m_comb;
    std::size_t m_bins;
    std::vector<float> m_window;
    std::vector<float> m_re, m_im;
    std::vector<float> m_power, m_colour;
    LineTracker m_lines;
    std::array<float, kShifts> m_scores{};
};

} // namespace sorvel::deep
