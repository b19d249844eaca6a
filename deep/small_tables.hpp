/// Constant tables of the small receiver, made by the compiler, so that they can stay in flash.
#pragma once

#include "deep/band.hpp"

#include <algorithm>
#include <array>
#include <numbers>

namespace sorvel::deep::small {

namespace detail {

/// For |x| up to a turn or so, within 1e-14.
constexpr double sine(double x) {
    double term = x;
    double sum = x;
    for (int k = 1; k < 20; ++k) {
        term *= -x * x / ((2.0 * k) * (2.0 * k + 1.0));
        sum += term;
    }
    return sum;
}

constexpr double root(double x) {
    double y = x > 1.0 ? x : 1.0;
    for (int i = 0; i < 40; ++i) y = 0.5 * (y + x / y);
    return y;
}

/// Modified Bessel function of the first kind and order 0, of twice the root of `quarterSquare`.
constexpr double besselI0(double quarterSquare) {
    double term = 1.0;
    double sum = 1.0;
    for (int k = 1; term > 1e-12 * sum; ++k) {
        term *= quarterSquare / (static_cast<double>(k) * k);
        sum += term;
    }
    return sum;
}

} // namespace detail

inline constexpr std::size_t kTurn = 2048; ///< entries of a whole turn

/// cos(2 pi i / 2048). The sine's negative lies a quarter of a turn on.
inline constexpr std::array<float, kTurn> kCosines = [] {
    std::array<float, kTurn> table{};
    constexpr std::size_t kEighth = kTurn / 8;
    const auto put = [&](std::size_t at, double value) { table[at % kTurn] = static_cast<float>(value); };
    for (std::size_t i = 0; i <= 2 * kEighth; ++i) {
        const double x = 2.0 * std::numbers::pi * static_cast<double>(i) / kTurn;
        const double value = i == 2 * kEighth ? 0.0 : detail::sine(std::numbers::pi / 2.0 - x);
        put(i, value);
        put(kTurn - i, value);
        put(kTurn / 2 - i, -value);
        put(kTurn / 2 + i, -value);
    }
    return table;
}();
inline constexpr std::size_t kQuarterTurn = kTurn / 4;

/// The band filter of the front end from its middle outwards: 3 ms of windowed sinc (Kaiser and Schafer, "On
/// the use of the I0-sinh window for spectrum analysis", 1980; beta 7.86), half its amplitude at 1330 Hz.
struct BandFilter {
    static constexpr double kRate_hz = 384000.0; ///< of the table's entries
    static constexpr std::size_t kReach = 1152;  ///< entries until it is zero
    static constexpr double kCutoff_hz = 1330.0;
    static constexpr double kBeta = 7.86;

    std::array<float, kReach + 2> weights{};
    double sum = 0.0; ///< of the whole filter's entries
};
inline constexpr BandFilter kBandFilter = [] {
    BandFilter filter;
    for (std::size_t i = 0; i < BandFilter::kReach; ++i) {
        const double turns = BandFilter::kCutoff_hz / BandFilter::kRate_hz * static_cast<double>(i);
        const double x = 2.0 * std::numbers::pi * turns;
        const double sinc = i == 0 ? 1.0
                                   : detail::sine(2.0 * std::numbers::pi *
                                                  (turns - static_cast<double>(static_cast<int>(turns)))) /
                                         x;
        const double place = static_cast<double>(i) / BandFilter::kReach;
        const double half = BandFilter::kBeta / 2.0;
        const double weight = sinc * detail::besselI0(half * half * (1.0 - place * place));
        filter.weights[i] = static_cast<float>(weight);
        filter.sum += i == 0 ? weight : 2.0 * weight;
    }
    return filter;
}();

/// The window matched to a chunk: rising and falling over 15 % of it, of unit energy.
inline constexpr std::array<float, kChunk> kTrapezoid = [] {
    std::array<double, kChunk> shape{};
    double energy = 0.0;
    for (std::size_t i = 0; i < kChunk; ++i) {
        const double from = (static_cast<double>(i) + 0.5) / kChunk;
        shape[i] = std::min({1.0, from / 0.15, (1.0 - from) / 0.15});
        energy += shape[i] * shape[i];
    }
    const double amplitude = detail::root(energy);
    std::array<float, kChunk> weights{};
    for (std::size_t i = 0; i < kChunk; ++i) weights[i] = static_cast<float>(shape[i] / amplitude);
    return weights;
}();

/// Nearest whole number, as the functions of the library are none for constants.
constexpr int rounded(double x) { return static_cast<int>(x < 0.0 ? x - 0.5 : x + 0.5); }

} // namespace sorvel::deep::small
