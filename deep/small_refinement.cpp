#include "deep/small_refinement.hpp"

#include "deep/target_clones.hpp"
#include "deep/tone_comb.hpp"

#include <algorithm>
#include <cmath>

namespace sorvel::deep::small {

namespace {

// As in deep::Refinement, where they are told.
constexpr std::int64_t kStep_samples = 32;
constexpr float kRankOfNoise = 0.336F;
constexpr std::size_t kNeighbours = 54;
constexpr std::size_t kStride = 3;
constexpr float kWhistle = 4.0F;
constexpr float kMost = 1e12F;    // of an energy, so that what is reckoned from it is a number
constexpr std::size_t kEvery = 4; // the smooth noise changes slowly

/// Half bin of a tone, negative below the centre, for a shift in half bins.
int halfBin(std::size_t tone, int halfShift) {
    const double bin = 2.0 * toneBin(tone) + halfShift * toneScale(tone);
    return std::clamp(static_cast<int>(std::lround(bin)), 2 * Spectrum::kFirstBin,
                      2 * (Spectrum::kFirstBin + static_cast<int>(Spectrum::kBins)) - 3);
}

/// Of a half bin, from that of the whole ones: between two, the louder one's.
float noiseAt(int half, std::span<const float, Spectrum::kBins> noise) {
    const auto at = static_cast<std::size_t>(half - 2 * Spectrum::kFirstBin);
    return at % 2 == 0 ? noise[at / 2] : std::max(noise[at / 2], noise[at / 2 + 1]);
}

/// Keeps the smallest of each bin in order.
template <std::size_t kRanks>
SORVEL_DEEP_CLONES void insert(std::array<std::array<Byte, Spectrum::kBins>, kRanks>& least,
                               const float* power, float scale) {
    for (std::size_t i = 0; i < Spectrum::kBins; ++i) {
        Byte value = toByte(power[i] * scale);
        for (auto& rank : least) {
            const Byte smaller = std::min(rank[i], value);
            value = std::max(rank[i], value);
            rank[i] = smaller;
        }
    }
}

} // namespace

void Refinement::begin(std::int64_t end, int shift) noexcept {
    m_end = end;
    m_shift = shift;
    m_best = {end, static_cast<float>(shift), -1.0F};
    for (std::size_t tried = 0; tried < kTried; ++tried)
        for (std::size_t tone = 0; tone < kTones; ++tone)
            m_halfBins[tried][tone] =
                static_cast<std::int16_t>(halfBin(tone, 2 * shift + static_cast<int>(tried) - 2));
}

void Refinement::tryEnd(const Baseband& baseband, Spectrum& spectrum, std::span<float, Spectrum::kBins> power,
                        int which) noexcept {
    const std::int64_t end = m_end + (which - 1) * kStep_samples;
    for (auto& rank : m_quietest) rank.fill(255);
    // What comes closer is also shorter.
    const auto length = static_cast<float>(static_cast<double>(kChunk) / ratioOfShift(m_shift));
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk) {
        const float back = static_cast<float>(kChunks - chunk) * length;
        spectrum.take(baseband, end - std::lround(back));
        takeChunk(chunk, spectrum, power);
    }
    measureNoise(power);
    for (std::size_t tried = 0; tried < kTried; ++tried) {
        const float f = fit(tried, power);
        if (f <= m_best.fit) continue;
        m_best = {end, shiftOf(tried), f};
        for (std::size_t tone = 0; tone < kTones; ++tone) {
            const float quiet = 1.0F / noiseAt(m_halfBins[tried][tone], power);
            for (std::size_t chunk = 0; chunk < kChunks; ++chunk)
                m_bestTones[chunk][tone] = shortened(lengthened(m_tones[tried][chunk][tone]) * quiet);
        }
    }
}

void Refinement::takeChunk(std::size_t chunk, Spectrum& spectrum,
                           std::span<float, Spectrum::kBins> power) noexcept {
    std::array<std::array<float, kTones>, kTried> tones{};
    for (std::size_t quarter = 0; quarter < 4; ++quarter) {
        spectrum.turn(quarter);
        if (quarter % 2 == 0) spectrum.someWholeBins(power);
        for (std::size_t tried = 0; tried < kTried; ++tried) {
            for (std::size_t tone = 0; tone < kTones; ++tone) {
                const int bin = m_halfBins[tried][tone];
                if ((static_cast<unsigned>(bin) & 3U) == quarter) tones[tried][tone] = spectrum.power(bin);
            }
        }
    }
    const float scale = 1.0F / ToneComb::noise(power);
    insert(m_quietest, power.data(), scale);
    for (std::size_t tried = 0; tried < kTried; ++tried)
        for (std::size_t tone = 0; tone < kTones; ++tone)
            m_tones[tried][chunk][tone] = shortened(tones[tried][tone] * scale);
}

void Refinement::measureNoise(std::span<float, Spectrum::kBins> noise) const noexcept {
    for (std::size_t i = 0; i < noise.size(); ++i) noise[i] = ofByte(m_quietest[kRank][i]) / kRankOfNoise;
    std::array<float, (Spectrum::kBins + kEvery - 1) / kEvery> smooth{};
    std::array<float, 2 * kNeighbours / kStride + 1> asked{};
    for (std::size_t bin = 0; bin < noise.size(); bin += kEvery) {
        std::size_t count = 0;
        const std::size_t low = bin > kNeighbours ? bin - kNeighbours : 0;
        for (std::size_t i = low; i <= std::min(bin + kNeighbours, noise.size() - 1); i += kStride)
            asked[count++] = noise[i];
        std::nth_element(asked.begin(), asked.begin() + static_cast<std::ptrdiff_t>(count / 2),
                         asked.begin() + static_cast<std::ptrdiff_t>(count));
        smooth[bin / kEvery] = asked[count / 2];
    }
    for (std::size_t i = 0; i < noise.size(); ++i)
        if (noise[i] <= kWhistle * smooth[i / kEvery]) noise[i] = smooth[i / kEvery];
}

float Refinement::fit(std::size_t tried, std::span<const float, Spectrum::kBins> noise) const noexcept {
    std::array<float, kTones> quiet{}; // one over the noise
    for (std::size_t tone = 0; tone < kTones; ++tone)
        quiet[tone] = 1.0F / noiseAt(m_halfBins[tried][tone], noise);
    float sum = 0.0F;
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk) {
        for (std::size_t side = 0; side < 2; ++side) {
            float most = 0.0F;
            for (std::size_t tone = side * 16; tone < side * 16 + 16; ++tone)
                most = std::max(most, lengthened(m_tones[tried][chunk][tone]) * quiet[tone]);
            sum += compressed(most);
        }
    }
    return sum;
}

void Refinement::energies(ToneEnergies& energies) const noexcept {
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk)
        for (std::size_t tone = 0; tone < kTones; ++tone)
            energies[chunk][tone] = std::min(lengthened(m_bestTones[chunk][tone]), kMost);
}

} // namespace sorvel::deep::small
