#include "deep/rows.hpp"

#include "deep/target_clones.hpp"
#include "deep/window.hpp"

#include <algorithm>
#include <bit>
#include <cmath>

namespace sorvel::deep {

namespace {

constexpr std::size_t kPoints = 1024;
constexpr float kMedianOfNoise = 0.693F; // of powers with mean 1
constexpr float kLogOfNoise = 0.577F;    // minus the mean of their logarithm
constexpr float kRate = 0.003F;          // of the colour, per row
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
void quietestOfAll(const float* spans, std::size_t count, std::size_t bins, float* line) {
    std::copy(spans, spans + bins, line);
    for (std::size_t span = 1; span < count; ++span)
        for (std::size_t i = 0; i < bins; ++i) line[i] = std::min(line[i], spans[span * bins + i]);
    for (std::size_t i = 0; i < bins; ++i) line[i] = line[i] > kLoud ? line[i] : 1.0F;
}

SORVEL_DEEP_CLONES
void compressBins(float* e, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) e[i] = e[i] > 16.0F ? 8.0F * std::sqrt(e[i]) - 16.0F : e[i];
}

SORVEL_DEEP_CLONES
void raise(float* to, const float* from, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) to[i] = std::max(to[i], from[i]);
}

} // namespace

Rows::Rows()
    : m_transform(kPoints), m_window(trapezoid(kChunk)), m_re(kPoints), m_im(kPoints), m_power(kBins),
      m_colour(kBins), m_quietest(kBins), m_quietestOf(kSpans * kBins), m_line(kBins) {
    for (std::size_t tone = 0; tone < kTones; ++tone) {
        const auto bin = [&](int shift) {
            return toneBin(tone) + static_cast<int>(std::lround(shift * toneScale(tone))) - kFirstBin;
        };
        for (int shift = -kMostShift; shift <= kMostShift;) {
            int end = shift + 1;
            while (end <= kMostShift && bin(end) - bin(shift) == end - shift) ++end;
            m_runs.push_back({static_cast<std::uint8_t>(tone), static_cast<std::uint8_t>(shift + kMostShift),
                              static_cast<std::uint8_t>(end - shift), static_cast<std::int16_t>(bin(shift))});
            shift = end;
        }
    }
    reset();
}

void Rows::reset() noexcept {
    std::fill(m_colour.begin(), m_colour.end(), 1.0F);
    std::fill(m_line.begin(), m_line.end(), 1.0F);
    std::fill(m_quietest.begin(), m_quietest.end(), kNever);
    std::fill(m_quietestOf.begin(), m_quietestOf.end(), 0.0F);
    m_rowsOfSpan = 0;
    m_span = 0;
    m_median = 0.0F;
}

std::span<const float, kShifts> Rows::take(const float* re, const float* im) noexcept {
    limitBursts(re, im, kChunk, m_re.data(), m_im.data());
    applyWindow(m_window, m_re.data(), m_im.data());
    std::fill(m_re.begin() + kChunk, m_re.end(), 0.0F);
    std::fill(m_im.begin() + kChunk, m_im.end(), 0.0F);
    m_transform.forward(m_re.data(), m_im.data());
    // Bins below the centre lie at the end of the transform.
    constexpr std::size_t kBelow = -kFirstBin;
    powers(m_re.data() + kPoints - kBelow, m_im.data() + kPoints - kBelow, kBelow, m_power.data());
    powers(m_re.data(), m_im.data(), kBins - kBelow, m_power.data() + kBelow);
    whiten();
    compressBins(m_power.data(), kBins);
    sumTones();
    return m_low;
}

void Rows::whiten() noexcept {
    m_median = median(m_power.data(), kBins, m_median);
    const float scale = m_median > 0.0F ? kMedianOfNoise / m_median : 0.0F;
    whitenBins(m_power.data(), m_colour.data(), m_quietest.data(), m_line.data(), kBins, scale);
    if (++m_rowsOfSpan == kRowsOfChunk) followLines();
}

void Rows::followLines() noexcept {
    m_rowsOfSpan = 0;
    std::copy(m_quietest.begin(), m_quietest.end(),
              m_quietestOf.begin() + static_cast<std::ptrdiff_t>(m_span * kBins));
    m_span = (m_span + 1) % kSpans;
    std::fill(m_quietest.begin(), m_quietest.end(), kNever);
    quietestOfAll(m_quietestOf.data(), kSpans, kBins, m_line.data());
}

void Rows::sumTones() noexcept {
    m_low.fill(0.0F);
    m_high.fill(0.0F);
    for (const Run& run : m_runs) {
        auto& side = run.tone < kTones / 2 ? m_low : m_high;
        raise(side.data() + run.first, m_power.data() + run.bin, run.count);
    }
    for (std::size_t i = 0; i < kShifts; ++i) m_low[i] += m_high[i];
}

} // namespace sorvel::deep
