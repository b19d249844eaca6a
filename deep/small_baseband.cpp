#include "deep/small_baseband.hpp"

#include "deep/target_clones.hpp"

#include <algorithm>
#include <cmath>

namespace sorvel::deep::small {

namespace {

constexpr float kLargest = 127.0F;
constexpr float kSilence = 1e-30F;

SORVEL_DEEP_CLONES
float largest(const float* values) {
    float most = 0.0F;
    for (std::size_t i = 0; i < kBlock; ++i) {
        const float magnitude = values[i] < 0.0F ? -values[i] : values[i];
        most = magnitude > most ? magnitude : most;
    }
    return most;
}

SORVEL_DEEP_CLONES
void toBytes(const float* values, float factor, std::int8_t* bytes) {
    for (std::size_t i = 0; i < kBlock; ++i) {
        const float scaled = values[i] * factor;
        bytes[i] = static_cast<std::int8_t>(scaled + (scaled < 0.0F ? -0.5F : 0.5F));
    }
}

SORVEL_DEEP_CLONES
void toFloats(const std::int8_t* bytes, std::size_t count, float scale, float* values) {
    for (std::size_t i = 0; i < count; ++i) values[i] = scale * static_cast<float>(bytes[i]);
}

} // namespace

void Baseband::reset() noexcept {
    m_blocks.fill({});
    m_scales.fill(0);
    m_oldest = 0;
    m_end = 0;
}

void Baseband::append(const float* re, const float* im) noexcept {
    // A scale that was rounded down would not hold the largest.
    const float most = 1.005F * std::max({largest(re), largest(im), kSilence});
    const ShortFloat scale = shortened(most / kLargest);
    const float factor = 1.0F / lengthened(scale);
    Block& block = m_blocks[m_oldest];
    toBytes(re, factor, block.re.data());
    toBytes(im, factor, block.im.data());
    m_scales[m_oldest] = scale;
    m_oldest = (m_oldest + 1) % kBlocks;
    m_end += static_cast<std::int64_t>(kBlock);
}

void Baseband::read(std::int64_t from, std::size_t count, float* re, float* im) const noexcept {
    while (count > 0) {
        const std::int64_t place = from - first();
        std::size_t part = count;
        if (place < 0 || from >= m_end) {
            if (place < 0)
                part = static_cast<std::size_t>(std::min(static_cast<std::int64_t>(count), -place));
            std::fill_n(re, part, 0.0F);
            std::fill_n(im, part, 0.0F);
        } else {
            const auto at = static_cast<std::size_t>(place);
            const std::size_t inBlock = at % kBlock;
            part = std::min(count, kBlock - inBlock);
            const std::size_t slot = (m_oldest + at / kBlock) % kBlocks;
            const float scale = lengthened(m_scales[slot]);
            toFloats(m_blocks[slot].re.data() + inBlock, part, scale, re);
            toFloats(m_blocks[slot].im.data() + inBlock, part, scale, im);
        }
        from += static_cast<std::int64_t>(part);
        count -= part;
        re += part;
        im += part;
    }
}

} // namespace sorvel::deep::small
