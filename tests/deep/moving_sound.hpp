#pragma once

#include "deep/motion_search.hpp"
#include "deep/tone_comb.hpp"
#include "deep/transform.hpp"
#include "deep/window.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstdint>
#include <functional>
#include <numbers>
#include <random>
#include <span>
#include <vector>

/// Transmissions of a moving source, written down in baseband from the definition: every sample is the
/// sum of the tones at the moment it left the source.
namespace moving_sound {

inline constexpr double kRate_hz = 8000.0 / 3.0;
inline constexpr double kCentre_hz = 56000.0 / 3.0;
inline constexpr int kChunks = 17;

using Nibbles = std::array<int, 2 * kChunks>; // low, high of each chunk
using Speed = std::function<double(double)>;  // m/s towards the microphone at a time in seconds

struct Sound {
    std::vector<float> re, im;
    explicit Sound(std::size_t samples) : re(samples), im(samples) {}
};

inline Nibbles randomNibbles(std::mt19937& random) {
    Nibbles nibbles;
    for (int& nibble : nibbles) nibble = static_cast<int>(random() % 16);
    return nibbles;
}

/// Swings about a mean.
inline Speed swing(double mean_m_s, double peak_m_s, double rate_hz, double phase) {
    return
        [=](double t) { return mean_m_s + peak_m_s * std::sin(2 * std::numbers::pi * rate_hz * t + phase); };
}

/// Adds a transmission that begins to arrive at `begin_s`, each tone at amplitude 1. `path_s` is the delay
/// of this path and `gain` its strength. @return when it has arrived whole, in samples
inline double addTransmission(Sound& sound, const Nibbles& nibbles, double begin_s, const Speed& speed,
                              std::complex<double> gain = 1.0) {
    double source_s = 0.0; // of the transmission, at the source
    double end = 0.0;
    for (auto i = static_cast<std::size_t>(std::ceil(begin_s * kRate_hz)); i < sound.re.size(); ++i) {
        const double t = static_cast<double>(i) / kRate_hz;
        if (source_s >= kChunks * 0.192) {
            end = static_cast<double>(i);
            break;
        }
        const auto chunk = static_cast<std::size_t>(source_s / 0.192);
        const double part = source_s / 0.192 - static_cast<double>(chunk);
        const double height = std::min({1.0, part / 0.15, (1.0 - part) / 0.15});
        for (std::size_t half = 0; half < 2; ++half) {
            const double tone_hz =
                18000.0 + 46.875 * (nibbles[2 * chunk + half] + 16.0 * static_cast<double>(half));
            const double angle = 2 * std::numbers::pi * (tone_hz * source_s - kCentre_hz * (t - begin_s));
            const std::complex<double> sample = gain * std::polar(height, angle);
            sound.re[i] += static_cast<float>(sample.real());
            sound.im[i] += static_cast<float>(sample.imag());
        }
        source_s += (1.0 + speed(t - begin_s) / 343.0) / kRate_hz;
    }
    return end;
}

/// White noise, so that both tones together stand `snr_db` over what falls between 18 and 19.5 kHz.
inline void addNoise(Sound& sound, double snr_db, std::mt19937& random) {
    const double power = 2.0 * std::pow(10.0, -snr_db / 10.0) * kRate_hz / 1500.0;
    std::normal_distribution<float> noise(0.0F, static_cast<float>(std::sqrt(power / 2.0)));
    for (std::size_t i = 0; i < sound.re.size(); ++i) {
        sound.re[i] += noise(random);
        sound.im[i] += noise(random);
    }
}

/// A steady tone, `over_db` over the transmission's two together.
inline void addWhistle(Sound& sound, double frequency_hz, double over_db) {
    const double amplitude = std::sqrt(2.0) * std::pow(10.0, over_db / 20.0);
    for (std::size_t i = 0; i < sound.re.size(); ++i) {
        const double turns = (frequency_hz - kCentre_hz) * static_cast<double>(i) / kRate_hz;
        const auto sample = std::polar(amplitude, 2 * std::numbers::pi * turns);
        sound.re[i] += static_cast<float>(sample.real());
        sound.im[i] += static_cast<float>(sample.imag());
    }
}

/// How many of the 34 nibbles a plain decision finds in what the search has turned back.
inline int nibblesRight(const sorvel::deep::MotionSearch& search, const Nibbles& sent, int extraShift = 0) {
    using namespace sorvel::deep;
    const int shift = search.shift() + extraShift;
    const double scale = 1.0 + shift * kBin_hz / kMiddle_hz;
    Transform transform(1024);
    const std::vector<float> window = trapezoid(512, 0.15);
    int right = 0;
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk) {
        const double end = 64.0 + 8704.0 - static_cast<double>(kChunks - 1 - chunk) * 512.0 / scale;
        const auto from = static_cast<std::size_t>(std::max(0L, std::lround(end) - 512));
        std::array<float, 1024> re{}, im{};
        for (std::size_t i = 0; i < 512; ++i) {
            re[i] = search.re()[from + i] * window[i];
            im[i] = search.im()[from + i] * window[i];
        }
        transform.forward(re.data(), im.data());
        for (std::size_t half = 0; half < 2; ++half) {
            int found = 0;
            float most = -1.0F;
            for (int tone = 0; tone < 16; ++tone) {
                const double hz =
                    (18000.0 + 46.875 * (tone + 16.0 * static_cast<double>(half))) * scale - kCentre_hz;
                const auto bin = static_cast<std::size_t>(std::lround(hz / kBin_hz) + 1024) % 1024;
                const float power = re[bin] * re[bin] + im[bin] * im[bin];
                if (power > most) {
                    most = power;
                    found = tone;
                }
            }
            right += found == sent[2 * chunk + half] ? 1 : 0;
        }
    }
    return right;
}

} // namespace moving_sound
