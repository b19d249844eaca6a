#include "deep/tone_comb.hpp"

#include "deep/target_clones.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>

namespace sorvel::deep {

namespace {

constexpr int kMostShifts = 128;

SORVEL_DEEP_CLONES
void squares(const float* __restrict re, const float* __restrict im, std::size_t n, float* __restrict power) {
    for (std::size_t i = 0; i < n; ++i) power[i] = re[i] * re[i] + im[i] * im[i];
}

/// Floats that are not negative stand in the order of their bits, so halving the range of bits halves the
/// logarithm's; counting goes many at a time where sorting does not.
SORVEL_DEEP_CLONES
float median(std::span<const float> values) {
    const auto half = static_cast<std::uint32_t>(values.size() / 2);
    std::uint32_t below = 0;
    for (std::uint32_t step = 1U << 30; step >= 1U << 15; step >>= 1) {
        const float middle = std::bit_cast<float>(below + step);
        std::uint32_t count = 0;
        for (const float value : values) count += value < middle ? 1U : 0U;
        if (count <= half) below += step;
    }
    return std::bit_cast<float>(below + (1U << 14));
}

template <typename Run>
inline void strongest(const std::vector<Run>& runs, const float* power, int first, int last,
                      float* __restrict most) {
    for (int i = 0; i <= last - first; ++i) most[i] = 0.0F;
    for (const Run& run : runs) {
        const int from = std::max(run.first, first);
        const int count = std::min(run.last, last) + 1 - from;
        const float* const in = power + run.bin + from;
        float* __restrict const out = most + (from - first);
        for (int i = 0; i < count; ++i) out[i] = in[i] > out[i] ? in[i] : out[i];
    }
}

/// As it is up to 16, then by its root: one loud bin must not outweigh the others.
inline float compressed(float e) {
    const float root = 8.0F * std::sqrt(e) - 16.0F;
    return e > 16.0F ? root : e;
}

template <typename Run>
SORVEL_DEEP_CLONES void combine(const std::vector<Run>& lowRuns, const std::vector<Run>& highRuns,
                                const float* power, float scale, int first, int last,
                                float* __restrict score) {
    std::array<float, kMostShifts> low{}, high{};
    strongest(lowRuns, power, first, last, low.data());
    strongest(highRuns, power, first, last, high.data());
    const int n = last - first + 1;
    for (int i = 0; i < n; ++i) {
        const auto at = static_cast<std::size_t>(i);
        score[i] = compressed(low[at] * scale) + compressed(high[at] * scale);
    }
}

} // namespace

ToneComb::ToneComb(std::size_t points, int reach) : m_points(points) {
    const int spacing = static_cast<int>(18 * points / 1024);
    const int lowest = -static_cast<int>(points / 4);
    const int margin = reach + reach / 16 + 1;
    m_firstBin = lowest - margin;
    m_bins = static_cast<std::size_t>(31 * spacing + 2 * margin + 1);
    for (int tone = 0; tone < 32; ++tone) {
        const double ratio = (18000.0 + 46.875 * tone) / kMiddle_hz;
        const auto extra = [ratio](int s) { return static_cast<int>(std::lround(s * ratio)) - s; };
        std::vector<Run>& runs = tone < 16 ? m_low : m_high;
        for (int s = -reach; s <= reach; ++s) {
            const int bin = lowest + tone * spacing + extra(s) - m_firstBin;
            if (s > -reach && extra(s) == extra(s - 1))
                runs.back().last = s;
            else
                runs.push_back({bin, s, s});
        }
    }
}

void ToneComb::powers(const float* re, const float* im, float* power) const noexcept {
    const auto below = static_cast<std::size_t>(-m_firstBin);
    squares(re + (m_points - below), im + (m_points - below), below, power);
    squares(re, im, m_bins - below, power + below);
}

float ToneComb::noise(std::span<const float> power) noexcept { return median(power) / 0.693F + 1e-30F; }

void ToneComb::scores(const float* power, float scale, int first, int last, float* score) const noexcept {
    combine(m_low, m_high, power, scale, first, last, score);
}

} // namespace sorvel::deep
