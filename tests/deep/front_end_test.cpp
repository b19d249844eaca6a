#include "deep/front_end.hpp"

#include <cmath>
#include <complex>
#include <gtest/gtest.h>
#include <numbers>
#include <random>
#include <span>
#include <vector>

namespace {

using sorvel::deep::FrontEnd;
using Complex = std::complex<double>;

constexpr double kAmplitude = 0.3;
constexpr double kPhase = 1.0;

std::vector<float> tone(double frequency_hz, double rate_hz, double duration_s) {
    std::vector<float> samples(static_cast<std::size_t>(rate_hz * duration_s));
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double turns = frequency_hz * static_cast<double>(i) / rate_hz;
        samples[i] = static_cast<float>(
            kAmplitude * std::cos(2.0 * std::numbers::pi * (turns - std::floor(turns)) + kPhase));
    }
    return samples;
}

/// What comes out while `samples` are handed over in blocks of `block`.
template <typename Sample>
std::vector<Complex> baseband(FrontEnd& frontEnd, const std::vector<Sample>& samples, std::size_t block) {
    std::vector<Complex> result;
    for (std::size_t at = 0; at < samples.size(); at += block) {
        std::span<const Sample> left =
            std::span<const Sample>(samples).subspan(at, std::min(block, samples.size() - at));
        while (!left.empty()) {
            float re[64], im[64];
            const std::size_t written = frontEnd.take(left, re, im);
            for (std::size_t i = 0; i < written; ++i) result.emplace_back(re[i], im[i]);
        }
    }
    return result;
}

/// A tone that was always there, as it is by definition.
Complex expected(double frequency_hz, std::size_t k) {
    const double turns = (frequency_hz - 56000.0 / 3.0) * static_cast<double>(k) * 3.0 / 8000.0;
    return std::polar(kAmplitude, 2.0 * std::numbers::pi * turns + kPhase);
}

class FrontEndAtRate : public testing::TestWithParam<double> {};

INSTANTIATE_TEST_SUITE_P(Rates, FrontEndAtRate,
                         testing::Values(40000.0, 44100.0, 44099.5, 48000.0, 96000.0, 384000.0));

// From the lowest tone of a source that leaves at 2.4 m/s to the highest of one that comes as fast.
TEST_P(FrontEndAtRate, TakesTonesOfTheBandDownInPlace) {
    const double rate_hz = GetParam();
    for (const double frequency_hz : {17875.0, 18000.0, 18666.0, 19453.1, 19580.0}) {
        SCOPED_TRACE(testing::Message() << frequency_hz << " Hz");
        FrontEnd frontEnd(rate_hz);
        const auto out = baseband(frontEnd, tone(frequency_hz, rate_hz, 0.3), 441);
        ASSERT_NEAR(static_cast<double>(out.size()), 0.297 * 8000.0 / 3.0, 2.0); // the filter needs 3 ms more
        double worst = 0.0;
        for (std::size_t k = 10; k < out.size(); ++k) // the tone's beginning is under the filter before
            worst = std::max(worst, std::abs(out[k] - expected(frequency_hz, k)));
        EXPECT_LT(worst, 0.0115 * kAmplitude); // 0.1 dB, and 0.7 degrees
    }
}

// All that would fold to within 900 Hz of the centre, where tones are looked for: what is 1750 Hz off and
// more. At 17,000 Hz, which folds to 19,667 Hz, it is only 44 dB down.
TEST_P(FrontEndAtRate, HoldsBackWhatWouldFoldOntoTones) {
    const double rate_hz = GetParam();
    for (const double frequency_hz : {300.0, 10000.0, 16000.0, 16910.0, 20420.0, 21333.0, 23000.0, 90000.0}) {
        if (frequency_hz + 56000.0 / 3.0 > rate_hz - 1750.0) continue; // its mirror image is as near
        FrontEnd frontEnd(rate_hz);
        const auto out = baseband(frontEnd, tone(frequency_hz, rate_hz, 0.3), 4800);
        double power = 0.0;
        for (std::size_t k = 10; k < out.size(); ++k) power += std::norm(out[k]);
        power /= static_cast<double>(out.size() - 10) * kAmplitude * kAmplitude;
        EXPECT_LT(10.0 * std::log10(power + 1e-30), -78.0) << frequency_hz << " Hz"; // -80 and less measured
    }
}

TEST_P(FrontEndAtRate, DoesNotCareForBlockLengthsAndBeginsAnewAfterReset) {
    const double rate_hz = GetParam();
    std::mt19937 generator(3);
    std::normal_distribution<float> noise(0.0F, 0.2F);
    std::vector<float> samples(static_cast<std::size_t>(0.4 * rate_hz));
    for (float& x : samples) x = noise(generator);
    std::vector<std::int16_t> rounded;
    for (const float x : samples) rounded.push_back(static_cast<std::int16_t>(std::lround(16384.0F * x)));

    FrontEnd frontEnd(rate_hz);
    const auto whole = baseband(frontEnd, samples, samples.size());
    for (const std::size_t block : {1U, 64U, 441U, 10000U}) {
        frontEnd.reset();
        const auto parts = baseband(frontEnd, samples, block);
        ASSERT_EQ(parts.size(), whole.size()) << block;
        // The mixer's phase is rounded to float where a piece begins.
        for (std::size_t k = 0; k < whole.size(); ++k)
            ASSERT_LT(std::abs(parts[k] - whole[k]), 1e-6) << block << " at " << k;
    }
    frontEnd.reset();
    const auto of16Bits = baseband(frontEnd, rounded, 1000);
    ASSERT_EQ(of16Bits.size(), whole.size());
    for (std::size_t k = 0; k < whole.size(); ++k)
        ASSERT_LT(std::abs(2.0 * of16Bits[k] - whole[k]), 1e-4) << k; // three steps of rounding
}

// An hour on, the phase is what it was.
TEST(FrontEnd, KeepsItsPhaseForAnHour) {
    constexpr double kRate_hz = 44099.5;
    FrontEnd frontEnd(kRate_hz);
    const std::vector<float> silence(44100, 0.0F);
    std::size_t before = 0;
    std::size_t taken = 0;
    for (int second = 0; second < 3600; ++second) {
        before += baseband(frontEnd, silence, silence.size()).size();
        taken += silence.size();
    }
    constexpr double kFrequency_hz = 18421.875;
    std::vector<float> samples(8820);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double turns = std::fmod(kFrequency_hz * static_cast<double>(taken + i) / kRate_hz, 1.0);
        samples[i] = static_cast<float>(kAmplitude * std::cos(2.0 * std::numbers::pi * turns + kPhase));
    }
    const auto out = baseband(frontEnd, samples, samples.size());
    for (std::size_t k = 30; k < out.size(); ++k)
        ASSERT_LT(std::abs(out[k] - expected(kFrequency_hz, before + k)), 0.0115 * kAmplitude) << k;
}

} // namespace
