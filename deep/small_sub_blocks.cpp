#include "deep/small_sub_blocks.hpp"

#include "deep/likelihood.hpp"
#include "deep/small_tables.hpp"

#include <cmath>

namespace sorvel::deep::small {

namespace {

constexpr float kSharpness = 18.0F; // as in SubBlocks

using Samples = std::array<float, kBlock>;

/// Of a tone that turns by `step` entries of the table from sample to sample.
float powerAt(const Samples& re, const Samples& im, std::size_t step) {
    float r = 0.0F;
    float q = 0.0F;
    for (std::size_t i = 0, at = 0; i < kBlock; ++i, at = (at + step) % kTurn) {
        const float c = kCosines[at], s = kCosines[(at + kQuarterTurn) % kTurn];
        r += re[i] * c - im[i] * s;
        q += im[i] * c + re[i] * s;
    }
    return r * r + q * q;
}

} // namespace

void scoreSubBlocks(const Baseband& baseband, const Place& place, Scores& scores) noexcept {
    std::array<std::size_t, kTones> steps{};
    for (std::size_t tone = 0; tone < kTones; ++tone) {
        const double halfBins = 2.0 * (toneBin(tone) + static_cast<double>(place.shift) * toneScale(tone));
        steps[tone] = static_cast<std::size_t>(std::lround(halfBins) + static_cast<long>(2 * kTurn)) % kTurn;
    }
    const auto length =
        static_cast<float>(static_cast<double>(kChunk) / ratioOfShift(static_cast<double>(place.shift)));
    for (auto& values : scores) values.fill(0.0F);
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk) {
        const std::int64_t start = place.end - std::lround(static_cast<float>(kChunks - chunk) * length);
        for (std::size_t block = 1; block < kRowsOfChunk; ++block) {
            Samples re, im;
            baseband.read(start + static_cast<std::int64_t>(block * kBlock), kBlock, re.data(), im.data());
            for (std::size_t side = 0; side < 2; ++side) {
                std::array<float, 16> shares{};
                float sum = 1e-30F;
                for (std::size_t i = 0; i < 16; ++i) sum += shares[i] = powerAt(re, im, steps[16 * side + i]);
                for (std::size_t i = 0; i < 16; ++i) scores[2 * chunk + side][i] += shares[i] / sum;
            }
        }
    }
    for (auto& values : scores) {
        float total = 0.0F;
        for (float& value : values) {
            value = std::exp(kSharpness / static_cast<float>(kRowsOfChunk - 1) * value);
            total += value;
        }
        for (float& value : values) value /= total;
        toScores(values);
    }
}

} // namespace sorvel::deep::small
