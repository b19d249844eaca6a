#include "deep/dewarp.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

namespace sorvel::deep {

namespace {

constexpr double kRate_hz = 8000.0 / 3.0;

void turnBy(const FrequencyTrack& track, double kept_hz, std::span<float> re, std::span<float> im,
            double first_samples, double sign) noexcept {
    double turns = 0.0;
    for (std::size_t i = 0; i < re.size(); ++i) {
        const auto angle = static_cast<float>(sign * 2.0 * std::numbers::pi * (turns - std::floor(turns)));
        const float c = std::cos(angle), s = std::sin(angle);
        const float r = re[i];
        re[i] = r * c - im[i] * s;
        im[i] = r * s + im[i] * c;
        turns += (track.at(first_samples + static_cast<double>(i) + 0.5) - kept_hz) / kRate_hz;
    }
}

} // namespace

double FrequencyTrack::at(double at_samples) const noexcept {
    const double chunks = (at_samples - firstMiddle_samples) / spacing_samples;
    const double spacing_s = spacing_samples / kRate_hz;
    if (chunks <= 0.0) return hz.front() + hz_s.front() * chunks * spacing_s;
    constexpr double kLast = kChunkCount - 1;
    if (chunks >= kLast) return hz.back() + hz_s.back() * (chunks - kLast) * spacing_s;
    const auto left = std::min(static_cast<std::size_t>(chunks), static_cast<std::size_t>(kChunkCount - 2));
    const double u = chunks - static_cast<double>(left);
    const double v = 1.0 - u;
    return (1.0 + 2.0 * u) * v * v * hz[left] + u * u * (3.0 - 2.0 * u) * hz[left + 1] +
           u * v * spacing_s * (v * hz_s[left] - u * hz_s[left + 1]);
}

double FrequencyTrack::mean() const noexcept {
    return std::accumulate(hz.begin(), hz.end(), 0.0) / kChunkCount;
}

void takeTrackOut(const FrequencyTrack& track, double kept_hz, std::span<float> re, std::span<float> im,
                  double first_samples) noexcept {
    turnBy(track, kept_hz, re, im, first_samples, -1.0);
}

void putTrackBack(const FrequencyTrack& track, double kept_hz, std::span<float> re, std::span<float> im,
                  double first_samples) noexcept {
    turnBy(track, kept_hz, re, im, first_samples, 1.0);
}

} // namespace sorvel::deep
