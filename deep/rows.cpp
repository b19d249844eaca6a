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
constexpr float kNever = 3e38F;
constexpr float kLoud = 2.0F; // the quietest of 13 rows of noise, a chunk apart, has a thirteenth of its mean

/// Natural logarithm within 0.01, for numbers that are neither tiny nor infinite.
inline float roughLog(float x) {
    const auto bits = std::bit_cast<std::int32_t>(x);
    const float exponent = static_cast<float>((bits >> 23) - 127);
    const float m = std::bit_cast<float>((bits & 0x7fffff) | 0x3f800000);
    return 0.6931472F * (exponent + (-0.33582878F * m + 2.0F) * m - 1.65871022F);
}

SORVEL_DEEP_CLONES
void whitenBins(float* power, float* colour, float* quietest, const float* line, std::size_t count,
                float scale) {
    for (std::size_t i = 0; i < count; ++i) {
        const float coloured = power[i] * scale * colour[i];
        quietest[i] = std::min(quietest[i], coloured);
        const float e = coloured / line[i];
        const float surplus =
            std::min(std::max(roughLog(e + 1e-20F) + kLogOfNoise, -kLargestLog), kLargestLog);
        colour[i] = std::min(std::max(colour[i] * (1.0F - kRate * surplus), 1e-6F), 1e6F);
        power[i] = e;
    }
}

SORVEL_DEEP_CLONES
void shorten(const float* from, std::size_t count, ShortFloat* to) {
    for (std::size_t i = 0; i < count; ++i) to[i] = shortened(from[i]);
}

SORVEL_DEEP_CLONES
void quietestOfAll(const ShortFloat* spans, std::size_t count, std::size_t bins, float* line) {
    for (std::size_t i = 0; i < bins; ++i) {
        ShortFloat least = spans[i];
        for (std::size_t span = 1; span < count; ++span) least = std::min(least, spans[span * bins + i]);
        line[i] = lengthened(least) > kLoud ? lengthened(least) : 1.0F;
    }
}

} // namespace

Rows::Rows(Transform& transform)
    : m_transform(transform), m_comb(kPoints, kMostShift), m_bins(m_comb.bins()), m_window(trapezoid(kChunk)),
      m_re(kPoints), m_im(kPoints), m_power(m_bins), m_colour(m_bins), m_quietest(m_bins),
      m_quietestOf(kSpans * m_bins), m_line(m_bins) {
    reset();
}

void Rows::reset() noexcept {
    std::fill(m_colour.begin(), m_colour.end(), 1.0F);
    std::fill(m_line.begin(), m_line.end(), 1.0F);
    std::fill(m_quietest.begin(), m_quietest.end(), kNever);
    std::fill(m_quietestOf.begin(), m_quietestOf.end(), ShortFloat{0});
    m_rowsOfSpan = 0;
    m_span = 0;
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
    const float scale = 1.0F / ToneComb::noise(m_power);
    whitenBins(m_power.data(), m_colour.data(), m_quietest.data(), m_line.data(), m_bins, scale);
    if (++m_rowsOfSpan == kRowsOfChunk) followLines();
}

void Rows::followLines() noexcept {
    m_rowsOfSpan = 0;
    shorten(m_quietest.data(), m_bins, m_quietestOf.data() + m_span * m_bins);
    m_span = (m_span + 1) % kSpans;
    std::fill(m_quietest.begin(), m_quietest.end(), kNever);
    quietestOfAll(m_quietestOf.data(), kSpans, m_bins, m_line.data());
}

} // namespace sorvel::deep
