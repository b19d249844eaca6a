#include "deep/energies.hpp"

#include "deep/target_clones.hpp"
#include "deep/tone_comb.hpp"
#include "deep/window.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sorvel::deep {

namespace {

constexpr std::int64_t kStep_samples = 32; // from one end tried to the next
constexpr std::size_t kRank = 4;           // the fifth quietest of 17 chunks
constexpr float kRankOfNoise = 0.336F;     // its mean, for powers with mean 1
constexpr std::size_t kNeighbours = 108;   // half bins to either side: 140 Hz
constexpr std::size_t kStride = 6;         // of the neighbours asked; adjacent bins know the same
constexpr float kWhistle = 4.0F;           // times the neighbours

inline float compressed(float e) { return e > 16.0F ? 8.0F * std::sqrt(e) - 16.0F : e; }

SORVEL_DEEP_CLONES
void scaleBy(float* values, std::size_t count, float factor) {
    for (std::size_t i = 0; i < count; ++i) values[i] *= factor;
}

/// Keeps the five smallest of each column in order, one row at a time.
SORVEL_DEEP_CLONES
void fifthSmallest(const ShortFloat* rows, std::size_t columns, float* out) {
    constexpr std::size_t kTile = 64;
    for (std::size_t from = 0; from < columns; from += kTile) {
        const std::size_t n = std::min(kTile, columns - from);
        ShortFloat least[kRank + 1][kTile];
        for (auto& rank : least) std::fill(rank, rank + kTile, ShortFloat{0x7f7f});
        for (std::size_t chunk = 0; chunk < kChunks; ++chunk) {
            const ShortFloat* const row = rows + chunk * columns + from;
            for (std::size_t i = 0; i < n; ++i) {
                ShortFloat value = row[i];
                for (auto& rank : least) {
                    const ShortFloat smaller = std::min(rank[i], value);
                    value = std::max(rank[i], value);
                    rank[i] = smaller;
                }
            }
        }
        for (std::size_t i = 0; i < n; ++i) out[from + i] = lengthened(least[kRank][i]);
    }
}

/// Powers of every second half bin, from the transform's order.
SORVEL_DEEP_CLONES
void everySecondPower(const float* re, const float* im, std::size_t count, float* out) {
    for (std::size_t i = 0; i < count; ++i) out[2 * i] = re[i] * re[i] + im[i] * im[i];
}

SORVEL_DEEP_CLONES
void shorten(const float* from, std::size_t count, float factor, ShortFloat* to) {
    for (std::size_t i = 0; i < count; ++i) to[i] = shortened(from[i] * factor);
}

SORVEL_DEEP_CLONES
void turnHalfBin(const float* turn, const float* in, float* re, float* im) {
    for (std::size_t i = 0; i < kChunk; ++i) {
        const float c = turn[i], s = turn[kChunk + i];
        re[i] = in[i] * c + in[kChunk + i] * s;
        im[i] = in[kChunk + i] * c - in[i] * s;
    }
}

} // namespace

Refinement::Refinement(Transform& transform, Workspace& workspace)
    : m_transform(transform), m_workspace(workspace), m_window(trapezoid(kChunk)), m_halfBin(2 * kChunk) {
    for (std::size_t i = 0; i < kChunk; ++i) {
        const double angle = std::numbers::pi * static_cast<double>(i) / kPoints;
        m_halfBin[i] = static_cast<float>(std::cos(angle));
        m_halfBin[kChunk + i] = static_cast<float>(std::sin(angle));
    }
}

void Refinement::begin(std::int64_t end, int shift) noexcept {
    m_workspace.begin<Work>();
    m_end = end;
    m_shift = shift;
    m_best = {end, static_cast<float>(shift), -1.0F};
}

void Refinement::tryEnd(SampleView samples, int which) noexcept {
    const std::int64_t end = m_end + (which - 1) * kStep_samples;
    const Work& work = spectra(samples, end);
    for (int half = -2; half <= 2; ++half) {
        const float shift = static_cast<float>(m_shift) + 0.5F * static_cast<float>(half);
        const float f = fit(work, shift);
        if (f > m_best.fit) m_best = {end, shift, f};
    }
}

void Refinement::finish(SampleView samples, ToneEnergies& energies) noexcept {
    const Work& work = spectra(samples, m_best.end);
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk) {
        const ShortFloat* const row = &work.spectra[chunk * kBins];
        for (std::size_t tone = 0; tone < kTones; ++tone) {
            const std::size_t bin = placeOf(tone, m_best.shift);
            energies[chunk][tone] = lengthened(row[bin]) / work.noise[bin];
        }
    }
}

/// Of the chunk's last sample, plus one. What comes closer is also shorter.
std::int64_t Refinement::chunkEnd(std::int64_t end, std::size_t chunk) const noexcept {
    const double back = static_cast<double>((kChunks - 1 - chunk) * kChunk) / ratioOfShift(m_shift);
    return end - std::lround(back);
}

const Refinement::Work& Refinement::spectra(SampleView samples, std::int64_t end) noexcept {
    Work& work = m_workspace.of<Work>();
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk) {
        const std::size_t from =
            samples.index(chunkEnd(end, chunk) - static_cast<std::int64_t>(kChunk), kChunk);
        float* const re = work.windowed.data();
        float* const im = re + kChunk;
        limitBursts(samples.re + from, samples.im + from, kChunk, re, im);
        applyWindow(m_window, re, im);
        spectrum(work, false);
        spectrum(work, true);
        shorten(work.power.data(), kBins, 1.0F / ToneComb::noise(work.power), &work.spectra[chunk * kBins]);
    }
    measureNoise(work);
    return work;
}

/// The whole bins, or those halfway between: two transforms of the 1024 points at hand give what one of
/// 2048 would.
void Refinement::spectrum(Work& work, bool isBetween) noexcept {
    if (isBetween) {
        turnHalfBin(m_halfBin.data(), work.windowed.data(), work.re.data(), work.im.data());
    } else {
        std::copy_n(work.windowed.begin(), kChunk, work.re.begin());
        std::copy_n(work.windowed.begin() + kChunk, kChunk, work.im.begin());
    }
    std::fill(work.re.begin() + kChunk, work.re.end(), 0.0F);
    std::fill(work.im.begin() + kChunk, work.im.end(), 0.0F);
    m_transform.forward(work.re.data(), work.im.data());
    constexpr std::size_t kBelow =
        -kFirstBin / 2; // whole bins below the centre, which the transform has last
    float* const power = work.power.data() + (isBetween ? 1 : 0);
    everySecondPower(work.re.data() + kPoints - kBelow, work.im.data() + kPoints - kBelow, kBelow, power);
    everySecondPower(work.re.data(), work.im.data(), kBins / 2 - kBelow, power + 2 * kBelow);
}

std::size_t Refinement::placeOf(std::size_t tone, float shift) noexcept {
    const float bin =
        2.0F * (static_cast<float>(toneBin(tone)) + shift * static_cast<float>(toneScale(tone)));
    const auto place = std::lround(bin) - kFirstBin;
    return static_cast<std::size_t>(std::clamp<long>(place, 0, kBins - 1));
}

float Refinement::fit(const Work& work, float shift) noexcept {
    std::array<std::size_t, kTones> places{};
    std::array<float, kTones> quiet{}; // one over the noise
    for (std::size_t tone = 0; tone < kTones; ++tone) {
        places[tone] = placeOf(tone, shift);
        quiet[tone] = 1.0F / work.noise[places[tone]];
    }
    float sum = 0.0F;
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk) {
        const ShortFloat* const row = &work.spectra[chunk * kBins];
        for (std::size_t side = 0; side < 2; ++side) {
            float most = 0.0F;
            for (std::size_t tone = 0; tone < kTones / 2; ++tone)
                most = std::max(most, lengthened(row[places[side * (kTones / 2) + tone]]) *
                                          quiet[side * (kTones / 2) + tone]);
            sum += compressed(most);
        }
    }
    return sum;
}

void Refinement::measureNoise(Work& work) noexcept {
    fifthSmallest(work.spectra.data(), kBins, work.noise.data());
    scaleBy(work.noise.data(), kBins, 1.0F / kRankOfNoise);
    // The smooth noise changes slowly, so it is reckoned at every eighth bin.
    constexpr std::size_t kEvery = 8;
    std::array<float, 2 * kNeighbours / kStride + 1> asked{};
    for (std::size_t bin = 0; bin < kBins; bin += kEvery) {
        std::size_t count = 0;
        const std::size_t low = bin > kNeighbours ? bin - kNeighbours : 0;
        for (std::size_t i = low; i <= std::min(bin + kNeighbours, kBins - 1); i += kStride)
            asked[count++] = work.noise[i];
        std::nth_element(asked.begin(), asked.begin() + static_cast<std::ptrdiff_t>(count / 2),
                         asked.begin() + static_cast<std::ptrdiff_t>(count));
        std::fill_n(work.smooth.begin() + static_cast<std::ptrdiff_t>(bin), std::min(kEvery, kBins - bin),
                    asked[count / 2]);
    }
    constexpr float kLeast = 1e-6F; // what is digital silence must not divide
    for (std::size_t i = 0; i < kBins; ++i)
        work.noise[i] =
            std::max(work.noise[i] > kWhistle * work.smooth[i] ? work.noise[i] : work.smooth[i], kLeast);
}

} // namespace sorvel::deep
