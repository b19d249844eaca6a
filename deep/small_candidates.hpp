#pragma once

#include "deep/candidates.hpp"

#include <array>
#include <optional>
#include <span>

namespace sorvel::deep::small {

/// Finds ends of transmissions as deep::Candidates does, in 14 KiB: strengths are kept as bytes.
///
/// A byte counts quarters up to 16, then steps of 3 %. Rounding is moved from chunk to chunk, so that sums
/// over 17 of them tell smaller differences than one byte can.
///
/// Thread: one at a time. Allocates nothing.
class Candidates {
public:
    static constexpr int kPatience = deep::Candidates::kPatience;

    void reset() noexcept;

    /// Takes the row whose number follows the last one's.
    ///
    /// @return the candidate that ended four rows before, if there is one
    std::optional<Candidate> take(std::span<const float, kShifts> row) noexcept;

private:
    static constexpr std::size_t kRows = 136; // of a transmission's 130, and a candidate's age

    void pack(std::span<const float, kShifts> row) noexcept;
    std::size_t slot(std::int64_t row) const noexcept {
        return static_cast<std::size_t>(row % static_cast<std::int64_t>(kRows));
    }
    bool hasManyChunks(std::int64_t row, std::size_t shift) const noexcept;

    struct Best {
        float strength = 0.0F;
        std::array<std::int8_t, 3> shifts{};
        std::uint8_t shiftCount = 0;
    };
    Best best() const noexcept;

    std::array<std::array<std::uint8_t, kShifts>, kRows> m_rows{};
    std::int64_t m_next = 0;
    std::array<Best, 2 * kPatience + 1> m_bests{}; // of the last rows
};

} // namespace sorvel::deep::small
