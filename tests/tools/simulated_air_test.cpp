#include "tools/simulated_air.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <random>

namespace {

using namespace sorvel;
using Samples = std::vector<float>;

constexpr double kRate_hz = 48000.0;

Samples tone(double frequency_hz, std::size_t n, double shift_samples = 0.0, double step = 1.0) {
    Samples samples(n);
    for (std::size_t i = 0; i < n; ++i)
        samples[i] =
            static_cast<float>(0.5 * std::sin(2.0 * std::numbers::pi * frequency_hz *
                                              (static_cast<double>(i) - shift_samples) * step / kRate_hz));
    return samples;
}

/// Power at one frequency, as the plain transform has it.
double powerAt(const Samples& sound, double frequency_hz) {
    double re = 0, im = 0;
    for (std::size_t i = 0; i < sound.size(); ++i) {
        const double angle = 2.0 * std::numbers::pi * frequency_hz * static_cast<double>(i) / kRate_hz;
        re += static_cast<double>(sound[i]) * std::cos(angle);
        im += static_cast<double>(sound[i]) * std::sin(angle);
    }
    return 2.0 * (re * re + im * im) / std::pow(static_cast<double>(sound.size()), 2);
}

TEST(SimulatedAir, NoiseHasTheAskedPowerInTheBand) {
    Samples sound(4800);
    air::addWhiteNoise(sound, 6.0, 0.125, kRate_hz, 1);
    double inBand = 0;
    for (double f = 18000; f < 19500; f += 10) inBand += powerAt(sound, f); // every bin of 100 ms
    EXPECT_NEAR(10 * std::log10(0.125 / inBand), 6.0, 1.0);                 // 150 bins: 0.36 dB of deviation
    Samples again(4800);
    air::addWhiteNoise(again, 6.0, 0.125, kRate_hz, 1);
    EXPECT_EQ(sound, again);
}

TEST(SimulatedAir, TonePowerIsThatOfTheSoundingPart) {
    Samples sound(1000);
    const Samples sounding = tone(18000, 4800, 0.5);
    sound.insert(sound.end(), sounding.begin(), sounding.end());
    sound.resize(20000);
    EXPECT_NEAR(air::tonePower(sound), 0.125, 0.001);
    EXPECT_EQ(air::tonePower(Samples(100)), 0.0);
}

TEST(SimulatedAir, ConvolutionIsThePlainSum) {
    std::mt19937 generator(1);
    std::normal_distribution<float> noise;
    for (const auto& [n, m] : {
             std::pair<std::size_t, std::size_t>{1,    1  },
              {5,    900},
              {3000, 700},
              {2500, 1  }
    }) {
        Samples a(n), b(m), expected(n + m - 1);
        for (float& x : a) x = noise(generator);
        for (float& x : b) x = noise(generator);
        for (std::size_t i = 0; i < n; ++i)
            for (std::size_t k = 0; k < m; ++k) expected[i + k] += a[i] * b[k];
        const Samples result = air::convolved(a, b);
        ASSERT_EQ(result.size(), expected.size());
        for (std::size_t i = 0; i < result.size(); ++i)
            ASSERT_NEAR(result[i], expected[i], 1e-3) << n << " x " << m;
    }
}

TEST(SimulatedAir, RoomDecaysBy60dBInItsTime) {
    const Samples room = air::roomResponse(0.4, 3.0, kRate_hz, 1);
    const auto energy = [&](double from_s, double to_s) {
        double sum = 0;
        for (auto i = static_cast<std::size_t>(from_s * kRate_hz);
             i < static_cast<std::size_t>(to_s * kRate_hz); ++i)
            sum += std::pow(static_cast<double>(room[i]), 2);
        return 10 * std::log10(sum);
    };
    EXPECT_EQ(room[0], 1.0F);
    EXPECT_NEAR(energy(0.05, 0.10) - energy(0.25, 0.30), 30.0, 1.0);
    EXPECT_NEAR(energy(1 / kRate_hz, 0.4), -3.0, 0.01);
}

TEST(SimulatedAir, ClockErrorAndDelayMoveATone) {
    constexpr double kPpm = 200, kDelay = 10.3;
    const Samples result = air::reclocked(tone(19500, 24000), kPpm, kDelay);
    const Samples expected = tone(19500, result.size(), kDelay, 1.0 / (1.0 + kPpm * 1e-6));
    EXPECT_NEAR(static_cast<double>(result.size()), 24000 * (1 + kPpm * 1e-6) + kDelay, 1.0);
    for (std::size_t i = 100; i + 100 < result.size(); ++i) ASSERT_NEAR(result[i], expected[i], 0.005) << i;
}

} // namespace
