#include "deep/likelihood.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <random>

namespace {

using namespace sorvel::deep;

struct Sent {
    std::array<std::array<std::size_t, 2>, kChunks> tones{};
    ToneEnergies energies{};
};

enum class Kind { Steady, Fading, Ringing };

/// Energies as such air leaves them: a tone's amplitude and complex noise of mean power 1, and where it
/// rings, what it was in the chunk before.
Sent heard(Kind kind, double ratio_db, unsigned seed) {
    std::mt19937 generator(seed);
    std::normal_distribution<double> normal(0.0, std::sqrt(0.5));
    const double amplitude = std::pow(10.0, ratio_db / 20.0);
    Sent sent;
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk) {
        for (std::size_t side = 0; side < 2; ++side) sent.tones[chunk][side] = 16 * side + generator() % 16;
        for (std::size_t tone = 0; tone < kTones; ++tone) {
            double re = normal(generator), im = normal(generator);
            const double fadingRe = normal(generator), fadingIm = normal(generator);
            if (kind == Kind::Ringing && chunk > 0) {
                const auto before = static_cast<double>(sent.energies[chunk - 1][tone]);
                const double ring = std::sqrt(1.0 + 0.3 * before);
                re *= ring;
                im *= ring;
            }
            if (tone == sent.tones[chunk][tone / 16]) {
                re += kind == Kind::Steady ? amplitude : amplitude * fadingRe;
                im += kind == Kind::Steady ? 0.0 : amplitude * fadingIm;
            }
            sent.energies[chunk][tone] = static_cast<float>(re * re + im * im);
        }
    }
    return sent;
}

/// How much likelier energy `e` is with a tone of `ratio` over the noise than without, for any phase.
double steadyRatio(double e, double ratio) {
    constexpr int kSteps = 100; // exact but for rounding, as the sum is over a whole turn
    double sum = 0.0;
    for (int i = 0; i < kSteps; ++i)
        sum += std::exp(2.0 * std::sqrt(ratio * e) * std::cos(2.0 * std::numbers::pi * i / kSteps) - ratio);
    return sum / kSteps;
}

/// The same for any amplitude of a mean power, by the midpoint rule over the square root of the power.
double fadingRatio(double e, double ratio) {
    constexpr int kSteps = 300;
    const double most = 6.0 * std::sqrt(ratio);
    double sum = 0.0;
    for (int i = 0; i < kSteps; ++i) {
        const double amplitude = most * (i + 0.5) / kSteps;
        const double power = amplitude * amplitude;
        sum += 2.0 * amplitude / ratio * std::exp(-power / ratio) * steadyRatio(e, power);
    }
    return sum * most / kSteps;
}

/// Exponential densities of noise with and without the tone, over what still rings.
double ringingRatio(const Sent& sent, std::size_t chunk, std::size_t tone, double ratio, double ring) {
    const auto e = static_cast<double>(sent.energies[chunk][tone]);
    double noise = 1.0;
    if (chunk > 0) noise += ring * static_cast<double>(sent.energies[chunk - 1][tone]);
    if (chunk > 1) noise += ring * 0.12 * static_cast<double>(sent.energies[chunk - 2][tone]);
    return std::exp(-e / (noise + ratio)) / (noise + ratio) / (std::exp(-e / noise) / noise);
}

class LikelihoodOf : public testing::TestWithParam<Kind> {};

INSTANTIATE_TEST_SUITE_P(Air, LikelihoodOf, testing::Values(Kind::Steady, Kind::Fading, Kind::Ringing));

TEST_P(LikelihoodOf, TellsTheAirAndAgreesWithTheDensitiesInNumbers) {
    const Kind kind = GetParam();
    constexpr double kRatio_db = 14.0;
    for (unsigned seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        const Sent sent = heard(kind, kRatio_db, seed);
        Scores scores{};
        const Air air = score(sent.energies, scores);
        EXPECT_EQ(air.isFading, kind != Kind::Steady);
        EXPECT_EQ(air.echo > 0.0F, kind == Kind::Ringing);
        EXPECT_NEAR(air.ratio, kRatio_db, kind == Kind::Steady ? 1.5 : 4.0); // 34 tones that fade are few

        const double ratio = std::pow(10.0, 0.1 * static_cast<double>(air.ratio));
        for (std::size_t chunk = 0; chunk < kChunks; ++chunk) {
            for (std::size_t side = 0; side < 2; ++side) {
                std::array<double, 16> likelihoods{};
                double sum = 0.0;
                for (std::size_t value = 0; value < 16; ++value) {
                    const std::size_t tone = 16 * side + value;
                    const auto e = static_cast<double>(sent.energies[chunk][tone]);
                    likelihoods[value] = kind == Kind::Steady   ? steadyRatio(e, ratio)
                                         : kind == Kind::Fading ? fadingRatio(e, ratio)
                                                                : ringingRatio(sent, chunk, tone, ratio,
                                                                               static_cast<double>(air.echo));
                    sum += likelihoods[value];
                }
                for (std::size_t value = 0; value < 16; ++value)
                    EXPECT_NEAR(scores[2 * chunk + side][value],
                                std::log(16.0 * (0.97 * likelihoods[value] / sum + 0.03 / 16.0)), 2e-3)
                        << "chunk " << chunk << " side " << side << " value " << value;
            }
        }
    }
}

// Digital silence, and what overruns whatever it is squared with.
TEST(Likelihood, StaysANumberForEnergiesOfAnySize) {
    for (const float energy : {0.0F, 1e-30F, 1e6F, 1e18F}) {
        ToneEnergies energies{};
        for (auto& chunk : energies) chunk.fill(energy);
        energies[3][5] = 1e18F;
        Scores scores{};
        score(energies, scores);
        for (const auto& nibble : scores)
            for (const float value : nibble) ASSERT_TRUE(std::isfinite(value)) << energy;
    }
}

} // namespace
