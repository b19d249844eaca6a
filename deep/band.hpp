/// The transmission as the deep receiver sees it, and the units its parts count in.
///
/// The band from 18 to 19.5 kHz is taken down to complex samples around its centre. A chunk, the time of
/// one coded byte, is then 512 samples; its two tones (low nibble, high nibble) are single bins of the
/// 1024-point transform of a chunk, 18 bins apart from tone to tone.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace sorvel::deep {

inline constexpr double kBasebandRate_hz = 8000.0 / 3.0;
inline constexpr double kCentre_hz = 56000.0 / 3.0; ///< of the band, seven times the rate
inline constexpr double kToneSpacing_hz = 46.875;
inline constexpr double kMiddle_hz = 18726.5625; ///< of the tones, where a shift is counted
inline constexpr float kSpeedOfSound_m_s = 343.0F;

inline constexpr std::size_t kBlock = 64;  ///< samples from one row to the next, 24 ms
inline constexpr std::size_t kChunk = 512; ///< samples of one coded byte, 192 ms
inline constexpr std::size_t kChunks = 17; ///< coded bytes of a transmission
inline constexpr std::size_t kRowsOfChunk = kChunk / kBlock;
inline constexpr std::size_t kTransmission = kChunks * kChunk;
inline constexpr std::size_t kTones = 32; ///< 16 of the low nibble, then 16 of the high one
inline constexpr std::size_t kNibbles = 2 * kChunks;

inline constexpr double kBin_hz = kBasebandRate_hz / 1024.0; ///< a shift counts in these, 2.604 Hz

/// Bin of a tone in a 1024-point transform, negative below the centre.
constexpr int toneBin(std::size_t tone) { return -256 + 18 * static_cast<int>(tone); }
/// Frequency of a tone, Hz, as it is sent.
constexpr double tone_hz(std::size_t tone) { return 18000.0 + kToneSpacing_hz * static_cast<double>(tone); }
/// How far a tone's bin moves where the middle of the tones moves by one: motion scales frequencies.
constexpr double toneScale(std::size_t tone) { return tone_hz(tone) / kMiddle_hz; }

/// Ratio of a frequency received to the one sent, for a shift in bins of 2.604 Hz.
constexpr double ratioOfShift(double shift) { return 1.0 + shift * kBin_hz / kMiddle_hz; }

/// For every nibble, low before high, and every value of it: the natural logarithm of 16 times its
/// probability after what was heard.
using Scores = std::array<std::array<float, 16>, kNibbles>;

} // namespace sorvel::deep
