#include "deep/sub_blocks.hpp"

#include "deep/likelihood.hpp"
#include "deep/target_clones.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sorvel::deep {

namespace {

constexpr float kSharpness = 18.0F; // of the probabilities over the mean share of a tone

SORVEL_DEEP_CLONES
float powerAt(const float* re, const float* im, const float* cosine, const float* sine) {
    float r = 0.0F;
    float q = 0.0F;
    for (std::size_t i = 0; i < kBlock; ++i) {
        r += re[i] * cosine[i] + im[i] * sine[i];
        q += im[i] * cosine[i] - re[i] * sine[i];
    }
    return r * r + q * q;
}

} // namespace

void SubBlocks::tune(Work& work, float shift) noexcept {
    for (std::size_t tone = 0; tone < kTones; ++tone) {
        const double bin = toneBin(tone) + static_cast<double>(shift) * toneScale(tone);
        const double step = 2.0 * std::numbers::pi * bin / 1024.0;
        for (std::size_t i = 0; i < kBlock; ++i) {
            const auto angle = static_cast<float>(step * static_cast<double>(i));
            work.cosines[tone * kBlock + i] = std::cos(angle);
            work.sines[tone * kBlock + i] = std::sin(angle);
        }
    }
}

void SubBlocks::score(SampleView samples, const Place& place, Scores& scores) noexcept {
    Work& work = m_workspace.begin<Work>();
    tune(work, place.shift);
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk) {
        const double back =
            static_cast<double>((kChunks - chunk) * kChunk) / ratioOfShift(static_cast<double>(place.shift));
        const std::int64_t start = place.end - std::lround(back);
        for (std::size_t side = 0; side < 2; ++side) {
            auto& values = scores[2 * chunk + side];
            values.fill(0.0F);
            for (std::size_t block = 1; block < kRowsOfChunk; ++block) {
                const std::size_t from =
                    samples.index(start + static_cast<std::int64_t>(block * kBlock), kBlock);
                std::array<float, 16> shares{};
                float sum = 1e-30F;
                for (std::size_t i = 0; i < 16; ++i) {
                    const std::size_t tone = 16 * side + i;
                    shares[i] = powerAt(samples.re + from, samples.im + from, &work.cosines[tone * kBlock],
                                        &work.sines[tone * kBlock]);
                    sum += shares[i];
                }
                for (std::size_t i = 0; i < 16; ++i) values[i] += shares[i] / sum;
            }
            float total = 0.0F;
            for (float& value : values) {
                value = std::exp(kSharpness / static_cast<float>(kRowsOfChunk - 1) * value);
                total += value;
            }
            for (float& value : values) value /= total;
            toScores(values);
        }
    }
}

} // namespace sorvel::deep
