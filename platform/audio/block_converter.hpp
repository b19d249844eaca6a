#pragma once

#include "sdk/audio.hpp"

#include <memory>

namespace sorvel {

/// Captured blocks of floats to 16-bit mono at another rate, through LiveRateConverter: every block
/// comes out at full length, from the first one on.
///
/// @return null unless `from` is Float32, interleaved or of one channel, at 8 to 384 kHz, and `to` is Int16
///         mono in the same range
std::unique_ptr<AudioConverter> makeBlockConverter(const AudioFormat& from, const AudioFormat& to);

} // namespace sorvel
