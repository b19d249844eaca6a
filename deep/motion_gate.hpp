#pragma once

#include "deep/line_tracker.hpp"
#include "deep/tone_comb.hpp"
#include "deep/transform.hpp"

#include <array>
#include <cstdint>
#include <vector>

namespace sorvel::deep {

/// Notices transmissions whose source changes its speed, from windows short enough (64 ms) that a tone
/// hardly slides within one.
///
/// Every block of 64 samples gives scores of 51 shifts. Their best path over the last 136 rows, the length
/// of a transmission, is worth H: while H stands above its threshold at a peak, or on a plateau as
/// transmissions make that follow one another closely, the row is a candidate for an end. Its place is
/// good to some rows only. The path is reckoned anew for each row, but only while a cheaper sum that
/// forgets with time says that it could be worth it.
///
/// Whistles are taken out once they have been there for 2.3 s, and slopes by a tracker of each bin's lower
/// quartile, which tones do not move.
///
/// Thread: one at a time per object. Allocates in the constructor only.
class MotionGate {
public:
    static constexpr std::size_t kWindow_samples = 171;
    /// A candidate is known this much after its row: soon where the worth falls at once, as behind a
    /// transmission.
    static constexpr std::uint64_t kSoonest_rows = 4, kLatency_rows = 12;

    MotionGate();

    /// One block further: hands over the last 171 samples. @param row  counts blocks, one up per call
    void push(const float* re, const float* im, std::uint64_t row) noexcept;

    /// Takes the candidate that the last push found, if it found one.
    bool takeCandidate(std::uint64_t& endRow) noexcept;

    /// A text was delivered whose transmission ended in `endRow`: rows up to it no longer count.
    void forget(std::uint64_t endRow) noexcept;

    void reset() noexcept;

    /// The worth of the last row's path; 0 while it is not worth a look.
    float worth() const noexcept { return m_worth[m_row % kKept]; }

private:
    static constexpr int kReach = 25;
    static constexpr std::size_t kShifts = 2 * kReach + 1;
    static constexpr std::size_t kRows = 136;
    static constexpr std::size_t kKept = 2 * kLatency_rows + 1;
    static constexpr std::size_t kPad = 8; // on either side of the shifts, as far as a path can step in a row
    using Path = std::array<float, kShifts + 2 * kPad + 5>;

    void beginAnew(std::uint64_t row) noexcept;
    float bestPath() const noexcept;
    void decide() noexcept;
    bool isEnd(std::uint64_t age) const noexcept;
    void take(std::uint64_t row) noexcept;

    Transform m_transform;
    ToneComb m_comb;
    std::vector<float> m_window, m_re, m_im, m_power, m_colour;
    LineTracker m_lines;
    std::vector<float> m_scores; // a ring of kRows rows, kShifts each
    Path m_path{};               // the sum that forgets
    std::array<float, kKept> m_worth{};
    std::uint64_t m_row = 0;
    std::uint64_t m_firstRow = 0; // the first that counts
    std::uint64_t m_candidate = 0;
    std::uint64_t m_lastCandidate = 0;
    bool m_isWaiting = false;
    bool m_hasRows = false;
};

} // namespace sorvel::deep
