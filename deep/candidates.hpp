#pragma once

#include "deep/rows.hpp"

#include <optional>

namespace sorvel::deep {

/// Where a transmission may have ended.
struct Candidate {
    std::int64_t row = 0;        ///< whose end it is, counted from 0
    float strength = 0.0F;       ///< sum over the 17 chunks at the best shift
    std::array<int, 3> shifts{}; ///< in bins, best first
    std::size_t shiftCount = 0;
};

/// Adds rows a chunk apart, as a transmission of each shift has them (a source that comes closer is also
/// shorter), and finds the ends where the sum over the 17 chunks stands out.
///
/// Thread: one at a time. Allocates in the constructor only.
class Candidates {
public:
    static constexpr int kPatience = 4; ///< rows that must pass without a stronger one

    Candidates();
    void reset() noexcept;

    /// Takes the row whose number follows the last one's.
    ///
    /// @return the candidate that ended four rows before, if there is one
    std::optional<Candidate> take(std::span<const float, kShifts> row) noexcept;

private:
    static constexpr std::size_t kRows =
        160;                      // more than the 128 + 2 of a transmission, and a candidate's age
    using Packed = std::uint16_t; // eighths

    void pack(std::span<const float, kShifts> row) noexcept;
    void sum() noexcept;
    const Packed* packedRow(std::int64_t row) const noexcept {
        return &m_rows[static_cast<std::size_t>(row % static_cast<std::int64_t>(kRows)) * kShifts];
    }
    bool hasManyChunks(std::int64_t row, std::size_t shift) const noexcept;
    int age(std::size_t chunksBack, std::size_t shift) const noexcept {
        return m_ages[chunksBack * kShifts + shift];
    }

    /// Shifts at which a chunk lies the same number of rows back.
    struct Run {
        std::uint8_t first, count, rowsBack;
    };

    std::vector<Packed> m_rows;
    std::vector<std::uint8_t> m_ages; // rows back, of each of the 17 chunks and each shift
    std::vector<Run> m_runs;
    std::array<std::int32_t, kShifts> m_sums{};
    std::int64_t m_next = 0; // row

    struct Best {
        float strength = 0.0F;
        std::array<int, 3> shifts{};
        std::size_t shiftCount = 0;
    };
    Best best() const noexcept;
    std::array<Best, 2 * kPatience + 1> m_bests; // of the last rows
};

} // namespace sorvel::deep
