#pragma once

#include "deep/transform.hpp"

#include <cstdint>
#include <span>

namespace sorvel::deep {

/// Takes steady tones out of some seconds of baseband: whistles of lamps, screens and chargers.
///
/// A line is what stands far over its surroundings at the same bin of nearly every block of 1024 samples
/// (Hann window, half overlapping; a bin is 2.6 Hz). A chunk's tone cannot: it changes with the next one,
/// and even a text that repeats itself does so over half of its chunks only. A line takes with it about
/// 13 Hz of the sound around it.
///
/// Drive it over the blocks twice, `study` and then, if `findLines` found any, `subtract`, in order.
///
/// Thread: one at a time per object. Allocates nothing: works in memory lent to it.
class LineFilter {
public:
    static constexpr std::size_t kBlock_samples = 1024;
    static constexpr std::size_t kHop_samples = kBlock_samples / 2;
    static constexpr std::size_t kMemory_floats = 8 * kBlock_samples;

    /// @param transform  of 1024 points  @param memory  kMemory_floats, until the last block is done
    void begin(Transform& transform, std::span<float> memory) noexcept;

    static std::size_t blocks(std::size_t samples) noexcept { return samples / kHop_samples - 1; }

    void study(const float* re, const float* im) noexcept;
    /// @return whether there are lines
    bool findLines() noexcept;
    /// Of the block, the first half is then done, and the second one with the next block.
    void subtract(float* re, float* im) noexcept;

private:
    float* row(std::size_t index) const noexcept { return m_memory.data() + index * kBlock_samples; }
    void transformBlock(const float* re, const float* im) noexcept;

    Transform* m_transform = nullptr;
    std::span<float> m_memory;
};

} // namespace sorvel::deep
