#include "deep/rows.hpp"

#include "deep/target_clones.hpp"
#include "deep/window.hpp"

#include <algorithm>
#include <bit>
#include <cmath>

namespace sorvel::deep {

namespace {

constexpr std::size_t kPoints = 1024;
constexpr float kLogOfNoise = 0.577F; // minus the mean of their logarithm
constexpr float kRate = 0.003F;       // of the colour, per row
constexpr float kLargestLog = 3.0F;
constexpr std::size_t kSpans = 12; // of a chunk each, that a whistle has to fill

/// Natural logarithm within 0.01, for numbers that are neither tiny nor infinite.
inline float roughLog(float x) {
    const auto bits = std::bit_cast<std::int32_t>(x);
    const float exponent = static_cast<float>((bits >> 23) - 127);
    const float m = std::bit_cast<float>((bits & 0x7fffff) | 0x3f800000);
    return 0.6931472F * (exponent + (-0.33582878F * m + 2.0F) * m - 1.65871022F);
}

SORVEL_DEEP_CLONES
void colour(float* power, const float* colours, std::size_t count, float scale) {
    for (std::size_t i = 0; i < count; ++i) power[i] *= scale * colours[i];
}

SORVEL_DEEP_CLONES
void follow(const float* power, float* colours, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const float surplus =
            std::min(std::max(roughLog(power[i] + 1e-20F) + kLogOfNoise, -kLargestLog), kLargestLog);
        colours[i] = std::min(std::max(colours[i] * (1.0F - kRate * surplus), 1e-6F), 1e6F);
    }
}

} // namespace

Rows::Rows(Transform& transform)
    : m_transform(transform), m_comb(kPoints, kMostShift), m_bins(m_comb.bins()), m_window(trapezoid(kChunk)),
      m_re(kPoints), m_im(kPoints), m_power(m_bins), m_colour(m_bins), m_lines(m_bins, kSpans, kRowsOfChunk) {
    reset();
}

void Rows::reset() noexcept {
    std::fill(m_colour.begin(), m_colour.end(), 1.0F);
    m_lines.reset();
}

std::span<const float, kShifts> Rows::take(const float* re, const float* im) noexcept {
    limitBursts(re, im, kChunk, m_re.data(), m_im.data());
    applyWindow(m_window, m_re.data(), m_im.data());
    std::fill(m_re.begin() + kChunk, m_re.end(), 0.0F);
    std::fill(m_im.begin() + kChunk, m_im.end(), 0.0F);
    m_transform.forward(m_re.data(), m_im.data());
    m_comb.powers(m_re.data(), m_im.data(), m_power.data());
    whiten();
    m_comb.scores(m_power.data(), 1.0F, -kMostShift, kMostShift, m_scores.data());
    return m_scores;
}

void Rows::whiten() noexcept {
    colour(m_power.data(), m_colour.data(), m_bins, 1.0F / ToneComb::noise(m_power));
    m_lines.takeOut(m_power);
    follow(m_power.data(), m_colour.data(), m_bins);
}

} // namespace sorvel::deep
