#include "deep/line_filter.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>

namespace sorvel::deep {

namespace {

// The memory's rows.
constexpr std::size_t kRe = 0, kIm = 1, kHann = 2;
constexpr std::size_t kSmallest = 3; // and the next two: the three smallest powers of each bin
constexpr std::size_t kMask = 6;
constexpr std::size_t kPending = 7; // the lines in the second half of the block before, real and imaginary

constexpr std::size_t kSurroundings = 64; // bins
constexpr float kOverSurroundings = 10.0F;

} // namespace

void LineFilter::begin(Transform& transform, std::span<float> memory) noexcept {
    m_transform = &transform;
    m_memory = memory;
    std::fill_n(row(kSmallest), 3 * kBlock_samples, std::numeric_limits<float>::max());
    std::fill_n(row(kPending), kBlock_samples, 0.0F);
    for (std::size_t i = 0; i < kBlock_samples; ++i) {
        const double angle =
            2.0 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(kBlock_samples);
        row(kHann)[i] = static_cast<float>(0.5 - 0.5 * std::cos(angle));
    }
}

void LineFilter::transformBlock(const float* re, const float* im) noexcept {
    for (std::size_t i = 0; i < kBlock_samples; ++i) {
        row(kRe)[i] = re[i] * row(kHann)[i];
        row(kIm)[i] = im[i] * row(kHann)[i];
    }
    m_transform->forward(row(kRe), row(kIm));
}

void LineFilter::study(const float* re, const float* im) noexcept {
    transformBlock(re, im);
    float* const least = row(kSmallest);
    float* const second = row(kSmallest + 1);
    float* const third = row(kSmallest + 2);
    for (std::size_t i = 0; i < kBlock_samples; ++i) {
        const float power = row(kRe)[i] * row(kRe)[i] + row(kIm)[i] * row(kIm)[i];
        third[i] = std::min(third[i], std::max(second[i], power));
        second[i] = std::min(second[i], std::max(least[i], power));
        least[i] = std::min(least[i], power);
    }
}

bool LineFilter::findLines() noexcept {
    const float* const level = row(kSmallest + 2);
    float* const mask = row(kMask);
    std::fill_n(mask, kBlock_samples, 0.0F);
    bool hasLines = false;
    for (std::size_t from = 0; from < kBlock_samples; from += kSurroundings) {
        std::array<float, kSurroundings> sorted{};
        std::copy_n(level + from, kSurroundings, sorted.begin());
        std::nth_element(sorted.begin(), sorted.begin() + kSurroundings / 2, sorted.end());
        const float threshold = kOverSurroundings * sorted[kSurroundings / 2];
        for (std::size_t i = from; i < from + kSurroundings; ++i) {
            if (!(level[i] > threshold)) continue;
            hasLines = true;
            for (std::size_t near = i + kBlock_samples - 2; near <= i + kBlock_samples + 2; ++near)
                mask[near % kBlock_samples] = 1.0F / static_cast<float>(kBlock_samples);
        }
    }
    return hasLines;
}

void LineFilter::subtract(float* re, float* im) noexcept {
    transformBlock(re, im);
    for (std::size_t i = 0; i < kBlock_samples; ++i) {
        row(kRe)[i] *= row(kMask)[i];
        row(kIm)[i] *= row(kMask)[i];
    }
    m_transform->forward(row(kIm), row(kRe)); // with the parts exchanged it turns the other way
    // The windows of neighbours add up to one, and so do the lines in them.
    float* const pending = row(kPending);
    for (std::size_t i = 0; i < kHop_samples; ++i) {
        re[i] -= row(kRe)[i] + pending[i];
        im[i] -= row(kIm)[i] + pending[kHop_samples + i];
        pending[i] = row(kRe)[kHop_samples + i];
        pending[kHop_samples + i] = row(kIm)[kHop_samples + i];
    }
}

} // namespace sorvel::deep
