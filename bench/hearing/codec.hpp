#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace sorvel::hearing {

enum class CodecKind : std::uint8_t { Mp3, Aac, Opus, Vorbis };

/// A lossy codec, both channels of a stereo file alike.
struct Codec {
    CodecKind kind = CodecKind::Mp3;
    int bitrate_kbit_s = 128;
};

/// Whether there is the program that codes.
bool codecsAreInstalled();

/// Coded and decoded again; the codec's delay stays, silence at the ends may be longer or shorter.
/// @throws std::runtime_error, one line, if the program is not installed or fails
std::vector<float> coded(std::span<const float> sound, const Codec& codec, double rate_hz);

} // namespace sorvel::hearing
