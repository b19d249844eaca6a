#include "bench/hearing/noise.hpp"

#include "modem/fft.h"
#include "tools/simulated_air.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

namespace sorvel::hearing {

namespace {

constexpr double kLowestPink_hz = 20.0;
constexpr double kBand_hz = air::kHighestTone_hz - air::kLowestTone_hz;

/// White noise with its spectrum weighed by 1 / sqrt(f). One transform over all of it, so that nothing
/// is joined; what the transform has too much is not used.
void addPink(std::span<float> sound, double inBandPower, double rate_hz, std::mt19937 generator) {
    const std::size_t n = std::bit_ceil(std::max<std::size_t>(sound.size(), 2));
    std::vector<float> spectrum(n), turns(n / 2);
    std::vector<int> work(static_cast<std::size_t>(std::sqrt(static_cast<double>(n) / 2.0)) + 4);
    std::normal_distribution<float> normal;
    // Density D / f has D ln(19.5 / 18) in the band. A bin whose two parts are normal, of deviation s
    // each, becomes noise of power (2 s / n)^2.
    const double density = inBandPower / std::log(air::kHighestTone_hz / air::kLowestTone_hz);
    const double bin_hz = rate_hz / static_cast<double>(n);
    for (std::size_t k = 1; k < n / 2; ++k) {
        const double f = static_cast<double>(k) * bin_hz;
        if (f < kLowestPink_hz) continue;
        const auto deviation =
            static_cast<float>(0.5 * static_cast<double>(n) * std::sqrt(density / f * bin_hz));
        spectrum[2 * k] = deviation * normal(generator);
        spectrum[2 * k + 1] = deviation * normal(generator);
    }
    rdft(static_cast<int>(n), -1, spectrum.data(), work.data(), turns.data());
    const float scale = 2.0F / static_cast<float>(n);
    for (std::size_t i = 0; i < sound.size(); ++i) sound[i] += scale * spectrum[i];
}

/// Deviation of white noise that has `inBandPower` in the band.
float whiteDeviation(double inBandPower, double rate_hz) {
    return static_cast<float>(std::sqrt(inBandPower * (rate_hz / 2.0) / kBand_hz));
}

} // namespace

double fromDecibels(double power_db) { return std::pow(10.0, power_db / 10.0); }

void addNoise(std::span<float> sound, Colour colour, double inBandPower, double rate_hz,
              std::mt19937 generator) {
    if (colour == Colour::Pink) return addPink(sound, inBandPower, rate_hz, generator);
    std::normal_distribution<float> normal(0.0F, whiteDeviation(inBandPower, rate_hz));
    for (float& x : sound) x += normal(generator);
}

void addBursts(std::span<float> sound, const Bursts& bursts, double tonePower, double rate_hz,
               const Draw& draw) {
    std::mt19937 generator = draw.generator(Stream::Bursts);
    const double power = tonePower * fromDecibels(bursts.level_db);
    std::normal_distribution<float> normal(0.0F, whiteDeviation(power, rate_hz));
    const double offset_s = uniform(generator, 0.0, bursts.period_s);
    for (std::size_t i = 0; i < sound.size(); ++i) {
        const double time_s = static_cast<double>(i) / rate_hz + offset_s;
        if (std::fmod(time_s, bursts.period_s) < bursts.length_s) sound[i] += normal(generator);
    }
}

void addWhistle(std::span<float> sound, const Whistle& whistle, double tonePower, double rate_hz,
                std::mt19937& generator) {
    constexpr double kReach_hz = 75.0;
    const double amplitude = std::sqrt(2.0 * tonePower * fromDecibels(whistle.level_db));
    const double centre_hz = uniform(generator, air::kLowestTone_hz, air::kHighestTone_hz);
    double phase = uniform(generator, 0.0, 1.0);
    double offset_hz = whistle.sweep_hz_per_s == 0.0 ? 0.0 : uniform(generator, -kReach_hz, kReach_hz);
    double step_hz = whistle.sweep_hz_per_s / rate_hz;
    for (float& x : sound) {
        x += static_cast<float>(amplitude * std::sin(2.0 * std::numbers::pi * phase));
        phase += (centre_hz + offset_hz) / rate_hz;
        phase -= std::floor(phase);
        offset_hz += step_hz;
        if (std::abs(offset_hz) > kReach_hz) step_hz = -std::copysign(step_hz, offset_hz);
    }
}

} // namespace sorvel::hearing
