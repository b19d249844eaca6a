#pragma once

#include "deep/motion_path.hpp"

#include <array>
#include <span>

namespace sorvel::deep {

/// A frequency over the time of a transmission: its value and slope at the middle of each chunk, and the
/// cubic between them that has both; straight on before the first and behind the last.
struct FrequencyTrack {
    std::array<double, kChunkCount> hz{};
    std::array<double, kChunkCount> hz_s{};
    double firstMiddle_samples = 0.0; // where in the sound the first chunk's middle is
    double spacing_samples = 512.0;   // between middles

    /// At sample `at`.
    double at(double at_samples) const noexcept;
    double mean() const noexcept;
};

/// Turns the samples from `first` on back by the track less `kept_hz`, so that a source that followed the
/// track seems to have moved at a constant speed. Phase starts at 0 with the first sample.
void takeTrackOut(const FrequencyTrack& track, double kept_hz, std::span<float> re, std::span<float> im,
                  double first_samples) noexcept;

/// Undoes the former.
void putTrackBack(const FrequencyTrack& track, double kept_hz, std::span<float> re, std::span<float> im,
                  double first_samples) noexcept;

} // namespace sorvel::deep
