#include "deep/small_spectrum.hpp"

#include "deep/small_tables.hpp"
#include "deep/target_clones.hpp"

#include <algorithm>

namespace sorvel::deep::small {

namespace {

constexpr float kExcess = 5.0F; // of a sample's power over the fifth quietest part's, as in limitBursts

// Where the transform leaves X[k]: digits of k in base 4, turned round.
constexpr std::array<std::uint16_t, kChunk> kPlaces = [] {
    std::array<std::uint16_t, kChunk> places{};
    for (std::size_t k = 0; k < kChunk; ++k)
        places[k] = static_cast<std::uint16_t>(k % 4 * 128 + k / 4 % 4 * 32 + k / 16 % 4 * 8 +
                                               k / 64 % 4 * 2 + k / 256);
    return places;
}();

SORVEL_DEEP_CLONES
float sumOfPowers(const float* re, const float* im) {
    float sum = 0.0F;
    for (std::size_t i = 0; i < kBlock; ++i) sum += re[i] * re[i] + im[i] * im[i];
    return sum;
}

SORVEL_DEEP_CLONES
void limitAndWeigh(float most, float* re, float* im) {
    for (std::size_t i = 0; i < kChunk; ++i) {
        const float p = re[i] * re[i] + im[i] * im[i];
        const float scale = (p > most ? most / p : 1.0F) * kTrapezoid[i];
        re[i] *= scale;
        im[i] *= scale;
    }
}

SORVEL_DEEP_CLONES
void turnBy(std::size_t quarter, float* re, float* im) {
    for (std::size_t i = 0; i < kChunk; ++i) {
        const float c = kCosines[quarter * i], s = kCosines[quarter * i + kQuarterTurn]; // e^-j: c + j s
        const float r = re[i], q = im[i];
        re[i] = r * c - q * s;
        im[i] = r * s + q * c;
    }
}

/// One pass in radix 4 of `points` at a time, decimation in frequency, in place.
SORVEL_DEEP_CLONES
void quarterAll(std::size_t points, float* re, float* im) {
    const std::size_t m = points / 4;
    const std::size_t step = kTurn / points;
    for (std::size_t base = 0; base < kChunk; base += points) {
        for (std::size_t p = 0; p < m; ++p) {
            float* const r = re + base + p;
            float* const i = im + base + p;
            const float acr = r[0] + r[2 * m], aci = i[0] + i[2 * m];
            const float amr = r[0] - r[2 * m], ami = i[0] - i[2 * m];
            const float bdr = r[m] + r[3 * m], bdi = i[m] + i[3 * m];
            const float bmr = i[m] - i[3 * m], bmi = r[3 * m] - r[m]; // (b - d) times -i
            const float r1 = amr + bmr, i1 = ami + bmi;
            const float r2 = acr - bdr, i2 = aci - bdi;
            const float r3 = amr - bmr, i3 = ami - bmi;
            const float* const w1 = &kCosines[p * step];
            const float* const w2 = &kCosines[2 * p * step];
            const float* const w3 = &kCosines[3 * p * step];
            r[0] = acr + bdr;
            i[0] = aci + bdi;
            r[m] = r1 * w1[0] - i1 * w1[kQuarterTurn];
            i[m] = r1 * w1[kQuarterTurn] + i1 * w1[0];
            r[2 * m] = r2 * w2[0] - i2 * w2[kQuarterTurn];
            i[2 * m] = r2 * w2[kQuarterTurn] + i2 * w2[0];
            r[3 * m] = r3 * w3[0] - i3 * w3[kQuarterTurn];
            i[3 * m] = r3 * w3[kQuarterTurn] + i3 * w3[0];
        }
    }
}

SORVEL_DEEP_CLONES
void halveAll(float* re, float* im) {
    for (std::size_t i = 0; i < kChunk; i += 2) {
        const float r = re[i], q = im[i];
        re[i] = r + re[i + 1];
        im[i] = q + im[i + 1];
        re[i + 1] = r - re[i + 1];
        im[i + 1] = q - im[i + 1];
    }
}

} // namespace

void Spectrum::take(const Baseband& baseband, std::int64_t from) noexcept {
    m_baseband = &baseband;
    m_from = from;
    baseband.read(from, kChunk, m_re.data(), m_im.data());
    std::array<float, kRowsOfChunk> parts{};
    for (std::size_t i = 0; i < parts.size(); ++i)
        parts[i] = sumOfPowers(m_re.data() + i * kBlock, m_im.data() + i * kBlock);
    std::nth_element(parts.begin(), parts.begin() + 4, parts.end());
    m_most = kExcess * parts[4] / static_cast<float>(kBlock);
}

void Spectrum::turn(std::size_t quarter) noexcept {
    m_baseband->read(m_from, kChunk, m_re.data(), m_im.data());
    limitAndWeigh(m_most, m_re.data(), m_im.data());
    if (quarter > 0) turnBy(quarter, m_re.data(), m_im.data());
    m_quarter = quarter;
    transform();
}

void Spectrum::transform() noexcept {
    for (std::size_t points = kChunk; points >= 8; points /= 4) quarterAll(points, m_re.data(), m_im.data());
    halveAll(m_re.data(), m_im.data());
}

float Spectrum::power(int halfBin) const noexcept {
    const auto k = static_cast<std::size_t>(halfBin - static_cast<int>(m_quarter)) / 4 % kChunk;
    const std::size_t at = kPlaces[k];
    return m_re[at] * m_re[at] + m_im[at] * m_im[at];
}

void Spectrum::wholeBins(std::span<float, kBins> powers) noexcept {
    for (const std::size_t quarter : {0U, 2U}) {
        turn(quarter);
        someWholeBins(powers);
    }
}

void Spectrum::someWholeBins(std::span<float, kBins> powers) const noexcept {
    for (std::size_t i = m_quarter / 2; i < kBins; i += 2)
        powers[i] = power(2 * (kFirstBin + static_cast<int>(i)));
}

} // namespace sorvel::deep::small
