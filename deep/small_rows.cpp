#include "deep/small_rows.hpp"

#include "deep/small_tables.hpp"
#include "deep/target_clones.hpp"
#include "deep/tone_comb.hpp"

#include <bit>
#include <cmath>

namespace sorvel::deep::small {

namespace {

// As in Rows, where they are told.
constexpr float kLogOfNoise = 0.577F;
constexpr float kRate = 0.003F;
constexpr float kLargestLog = 3.0F;
constexpr float kLoud = 2.0F;
constexpr Byte kNever = 255;
constexpr std::size_t kSpan_rows = 12 * kRowsOfChunk; // longer than any chunk repeats

/// At the shifts from `first` to `last` a tone stands in bin + shift.
struct Run {
    std::int16_t bin;
    std::int8_t first, last;
};

// Motion scales frequencies: over 101 shifts a tone moves by up to two bins more or less.
constexpr std::size_t kMostRuns = 5;
struct Comb {
    std::array<Run, kTones * kMostRuns> runs{};
    std::array<std::size_t, kTones + 1> starts{};
};
constexpr Comb kComb = [] {
    Comb comb;
    std::size_t count = 0;
    for (std::size_t tone = 0; tone < kTones; ++tone) {
        comb.starts[tone] = count;
        for (int shift = -kMostShift; shift <= kMostShift; ++shift) {
            const int bin = toneBin(tone) - Spectrum::kFirstBin - shift + rounded(shift * toneScale(tone));
            if (shift == -kMostShift || comb.runs[count - 1].bin != bin)
                comb.runs[count++] = {static_cast<std::int16_t>(bin), static_cast<std::int8_t>(shift), 0};
            comb.runs[count - 1].last = static_cast<std::int8_t>(shift);
        }
    }
    comb.starts[kTones] = count;
    return comb;
}();

/// Natural logarithm within 0.01, for numbers that are neither tiny nor infinite.
float roughLog(float x) {
    const auto bits = std::bit_cast<std::int32_t>(x);
    const float exponent = static_cast<float>((bits >> 23) - 127);
    const float m = std::bit_cast<float>((bits & 0x7fffff) | 0x3f800000);
    return 0.6931472F * (exponent + (-0.33582878F * m + 2.0F) * m - 1.65871022F);
}

SORVEL_DEEP_CLONES
void whitenBins(float scale, float* power, float* colour, Byte* quietest, const Byte* before) {
    for (std::size_t i = 0; i < Spectrum::kBins; ++i) {
        const float coloured = power[i] * scale * colour[i];
        const float least = ofByte(std::min(quietest[i], before[i]));
        quietest[i] = std::min(quietest[i], toByte(coloured));
        const float e = least > kLoud ? coloured / least : coloured;
        const float surplus =
            std::min(std::max(roughLog(e + 1e-20F) + kLogOfNoise, -kLargestLog), kLargestLog);
        colour[i] = std::min(std::max(colour[i] * (1.0F - kRate * surplus), 1e-6F), 1e6F);
        power[i] = e;
    }
}

/// The strongest of 16 tones, at every shift.
SORVEL_DEEP_CLONES
void strongest(std::size_t firstTone, const float* power, float* most) {
    std::fill_n(most, kShifts, 0.0F);
    for (std::size_t i = kComb.starts[firstTone]; i < kComb.starts[firstTone + 16]; ++i) {
        const Run run = kComb.runs[i];
        const float* const in = power + run.bin + run.first;
        float* const out = most + run.first + kMostShift;
        const int count = run.last - run.first + 1;
        for (int k = 0; k < count; ++k) out[k] = in[k] > out[k] ? in[k] : out[k];
    }
}

} // namespace

void Rows::reset() noexcept {
    m_colour.fill(1.0F);
    m_quietest.fill(kNever);
    m_before.fill(0);
    m_rowsOfSpan = 0;
}

void Rows::take(std::span<float, Spectrum::kBins> power, std::span<float, kShifts> score) noexcept {
    whiten(power);
    std::array<float, kShifts> high{};
    strongest(0, power.data(), score.data());
    strongest(16, power.data(), high.data());
    for (std::size_t i = 0; i < kShifts; ++i) score[i] = compressed(score[i]) + compressed(high[i]);
}

void Rows::whiten(std::span<float, Spectrum::kBins> power) noexcept {
    whitenBins(1.0F / ToneComb::noise(power), power.data(), m_colour.data(), m_quietest.data(),
               m_before.data());
    if (++m_rowsOfSpan < kSpan_rows) return;
    m_rowsOfSpan = 0;
    m_before = m_quietest;
    m_quietest.fill(kNever);
}

} // namespace sorvel::deep::small
