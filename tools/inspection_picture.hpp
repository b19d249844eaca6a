#pragma once

#include "tools/inspection.hpp"

#include <string>

namespace sorvel::inspection {

inline constexpr int kPictureWidth = 1000, kPictureHeight = 560; ///< pixels

/// What part of the recording a picture shows, seconds from its start.
struct Part {
    double from_s = 0.0, to_s = 0.0;
};

/// Where the spectrogram lies in the picture, pixels; the tests find marks by it.
inline constexpr double kLeft = 62.0, kTop = 92.0, kWidth = 900.0, kRowHeight = 2.0;

/// Draws spectrogram, marks, nibbles and facts.
/// @throws as Picture
void draw(const std::string& path, const Report& report, const Spectrogram& spectrogram, const Part& part);

} // namespace sorvel::inspection
