#pragma once

#include "deep/band.hpp"
#include "deep/short_float.hpp"

#include <array>
#include <cstdint>

namespace sorvel::deep::small {

/// The last 4 s of the baseband in 21 KiB: blocks of 64 samples, each part as 8 bits times a scale that the
/// block's largest gives. What that adds lies 43 dB below noise, and further below a single tone.
///
/// Samples are named by their number since the beginning, as in Baseband.
///
/// Thread: one at a time. Allocates nothing.
class Baseband {
public:
    static constexpr std::size_t kBlocks = 162;

    void reset() noexcept;
    /// Takes the 64 samples that follow.
    void append(const float* re, const float* im) noexcept;

    std::int64_t end() const noexcept { return m_end; } ///< number of the sample that comes next
    std::int64_t first() const noexcept { return m_end - static_cast<std::int64_t>(kBlocks * kBlock); }

    /// Copies `count` samples from number `from` on; what is not kept is silence.
    void read(std::int64_t from, std::size_t count, float* re, float* im) const noexcept;

private:
    struct Block {
        std::array<std::int8_t, kBlock> re{}, im{};
    };
    std::array<Block, kBlocks> m_blocks{};
    std::array<ShortFloat, kBlocks> m_scales{};
    std::size_t m_oldest = 0;
    std::int64_t m_end = 0;
};

} // namespace sorvel::deep::small
