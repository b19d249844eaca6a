/// The sums of samples under the kernel, for outputs whose samples lie side by side.
///
/// A weight lies `distance * step` entries into the table, where step is 32 entries per input sample divided
/// by the widening. For an output at `position` (0 to 1) behind a whole time, the samples up to that time lie
/// m + position away, those after it m + 1 - position. With m * step split into a whole entry and an offset,
/// the entries of all 64 m for one further step along the table form a row: the sums run over rows of
/// neighbouring weights, and never look one up.
///
/// Sums run in eight lanes, in one vector or two, in the same order and so with the same bits everywhere. (Of
/// a vector wider than the processor's, g++ 12 keeps the sums in memory.) All is templates, each width is
/// used in one source file only: so nothing compiled for AVX2 is ever linked into the
/// code for other processors.
#pragma once

#include "modem/sinc_kernel.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <span>

#if defined(__x86_64__) && !defined(__AVX2__)
#define SORVEL_SUMS_AVX2 // chosen at run time, from sinc_sums_avx2.cpp
#endif

namespace sorvel::detail {

/// A run of outputs whose samples lie side by side.
struct Stretch {
    std::span<const float> samples; // from the first of the 127 under the kernel at the time `begin` on
    int begin;
    double end; // of the times that are due
    double factor;
    OutputClock& clock;
    std::span<float> out;
};

struct KernelWeights {
    std::span<const float, SincKernel::kRows * SincKernel::kRowSize> rows;
    std::span<const float, SincKernel::kRowSize> offsets;
    std::span<const float, SincKernel::kPairs> halfRate;
    double step;
    bool isHalfRate;
};

#ifdef __AVX2__
inline constexpr std::size_t kNativeWidth = 8;
#else
inline constexpr std::size_t kNativeWidth = 4;
#endif

std::size_t sumStretchAvx2(const KernelWeights& weights, const Stretch& stretch);

template <std::size_t Width>
struct VectorOf {
    typedef float type __attribute__((vector_size(Width * sizeof(float))));
};

template <class Vector>
void load(Vector& v, const float* from) {
    std::memcpy(&v, from, sizeof v);
}
template <class Vector>
void store(float* to, const Vector& v) {
    std::memcpy(to, &v, sizeof v);
}

template <std::size_t Width>
struct Lanes {
    using Vector = typename VectorOf<Width>::type;
    static constexpr std::size_t kCount = 8, kParts = kCount / Width;

    Vector part[kParts]{};

    float total() const {
        std::array<float, kCount> s{};
        for (std::size_t k = 0; k < kParts; ++k) store(s.data() + k * Width, part[k]);
        return ((s[0] + s[4]) + (s[1] + s[5])) + ((s[2] + s[6]) + (s[3] + s[7]));
    }
};

/// Without widening, all samples to one side lie equally far behind their entries, and the interpolation is
/// between two sums. The samples to the other side lie as far before theirs: their rows run backwards.
template <std::size_t Width>
float sumNarrow(const KernelWeights& weights, const float* taps, double position) {
    const double entries = position * weights.step;
    const int whole = static_cast<int>(entries);
    const float* const row = weights.rows.data() + whole * SincKernel::kRowSize;
    Lanes<Width> low, high;
    for (std::size_t i = 0; i < kKernelWidth; i += Lanes<Width>::kCount) {
        for (std::size_t k = 0; k < Lanes<Width>::kParts; ++k) {
            const std::size_t before = i + k * Width, after = before + kKernelWidth;
            typename Lanes<Width>::Vector x, weight;
            load(x, taps + before);
            load(weight, row + before);
            low.part[k] += x * weight;
            load(weight, row + SincKernel::kRowSize + before);
            high.part[k] += x * weight;
            load(x, taps + after - 1);
            load(weight, row + after);
            low.part[k] += x * weight;
            load(weight, row + SincKernel::kRowSize + after);
            high.part[k] += x * weight;
        }
    }
    const auto share = static_cast<float>(entries - whole);
    for (std::size_t k = 0; k < Lanes<Width>::kParts; ++k)
        low.part[k] += (high.part[k] - low.part[k]) * share;
    return low.total();
}

/// Adds eight weighted samples. A weight lies around its entry in the row after `row`: up to one entry before
/// it, where the offset is negative, or behind it.
template <std::size_t Width>
void addWidened(Lanes<Width>& sum, const float* row, const float* offsets, float offset, const float* taps) {
    for (std::size_t k = 0; k < Lanes<Width>::kParts; ++k) {
        typename Lanes<Width>::Vector low, middle, high, at, x;
        load(low, row + k * Width);
        load(middle, row + k * Width + SincKernel::kRowSize);
        load(high, row + k * Width + 2 * SincKernel::kRowSize);
        load(at, offsets + k * Width);
        load(x, taps + k * Width);
        at += offset;
        const typename Lanes<Width>::Vector zero{}, down = at < zero ? at : zero, up = at - down;
        sum.part[k] += x * (middle + ((middle - low) * down + (high - middle) * up));
    }
}

template <std::size_t Width>
float sumWidened(const KernelWeights& weights, const float* taps, double position) {
    const double before = position * weights.step, after = (1.0 - position) * weights.step;
    const int rowBefore = static_cast<int>(before), rowAfter = static_cast<int>(after);
    const auto offsetBefore = static_cast<float>(before - rowBefore);
    const auto offsetAfter = static_cast<float>(after - rowAfter);
    const float* const offsets = weights.offsets.data();
    const float* const firstHalf = weights.rows.data() + rowBefore * SincKernel::kRowSize;
    const float* const secondHalf = weights.rows.data() + rowAfter * SincKernel::kRowSize + kKernelWidth;

    Lanes<Width> sum;
    for (std::size_t i = 0; i < kKernelWidth; i += Lanes<Width>::kCount) {
        addWidened(sum, firstHalf + i, offsets + i, offsetBefore, taps + i);
        addWidened(sum, secondHalf + i, offsets + kKernelWidth + i, offsetAfter, taps + kKernelWidth - 1 + i);
    }
    return sum.total();
}

template <std::size_t Width>
std::size_t sumOneByOne(const KernelWeights& weights, const Stretch& stretch) {
    const bool isWidened = stretch.factor > 1.0;
    const auto gain = static_cast<float>(1.0 / stretch.factor);
    double next = stretch.clock.next;
    std::size_t n = 0;
    for (; n < stretch.out.size() && next < stretch.end; ++n) {
        const int whole = static_cast<int>(next);
        const float* const taps = stretch.samples.data() + (whole - stretch.begin);
        stretch.out[n] = isWidened ? gain * sumWidened<Width>(weights, taps, next - whole)
                                   : sumNarrow<Width>(weights, taps, next - whole);
        stretch.clock.latest = whole;
        next += stretch.factor;
    }
    stretch.clock.next = next;
    return n;
}

inline constexpr std::size_t kGroup = 8; // vectors of sums that stay in registers

/// Sums over pairs, farthest first: the small products do not drown in a large sum.
template <std::size_t Width>
void sumPairs(std::span<const float, SincKernel::kPairs> weights, const float* odd, float* sums) {
    typename Lanes<Width>::Vector s[kGroup]{};
    for (std::size_t k = SincKernel::kPairs; k-- > 0;) {
        const float* const left = odd + (SincKernel::kPairs - 1 - k);
        const float* const right = odd + (SincKernel::kPairs + k);
        for (std::size_t i = 0; i < kGroup; ++i) {
            typename Lanes<Width>::Vector a, b;
            load(a, left + i * Width);
            load(b, right + i * Width);
            s[i] += weights[k] * (a + b);
        }
    }
    for (std::size_t i = 0; i < kGroup; ++i) store(sums + i * Width, s[i]);
}

/// At factor 2 and whole times, half the samples fall on the zeros of the sinc, so that only the centre and
/// the samples at odd distances count. These are laid out side by side; the sums of neighbouring outputs then
/// run in step.
template <std::size_t Width>
std::size_t sumHalfRate(const KernelWeights& weights, const Stretch& stretch) {
    constexpr std::size_t kBlock = 128, kPairs = SincKernel::kPairs;
    const auto first = static_cast<int>(stretch.clock.next);
    const auto due = static_cast<std::size_t>(std::max(0.0, std::ceil((stretch.end - first) / 2.0)));
    const std::size_t outputs = std::min(stretch.out.size(), due);
    for (std::size_t done = 0; done < outputs; done += kBlock) {
        const std::size_t block = std::min(kBlock, outputs - done);
        const float* const taps = stretch.samples.data() + (first - stretch.begin) + 2 * done;
        std::array<float, 2 * kPairs + kBlock> odd{};
        std::array<float, kBlock> sums{};
        for (std::size_t i = 0; i < 2 * kPairs - 1 + block; ++i) odd[i] = taps[2 * i];
        for (std::size_t i = 0; i < block; i += kGroup * Width)
            sumPairs<Width>(weights.halfRate, odd.data() + i, sums.data() + i);
        for (std::size_t i = 0; i < block; ++i)
            stretch.out[done + i] = sums[i] + 0.5F * taps[kKernelWidth - 1 + 2 * i];
    }
    if (outputs > 0) {
        stretch.clock.latest = first + 2 * static_cast<int>(outputs - 1);
        stretch.clock.next += 2.0 * static_cast<double>(outputs);
    }
    return outputs;
}

template <std::size_t Width>
std::size_t sumStretchBy(const KernelWeights& weights, const Stretch& stretch) {
    return weights.isHalfRate ? sumHalfRate<Width>(weights, stretch) : sumOneByOne<Width>(weights, stretch);
}

} // namespace sorvel::detail
