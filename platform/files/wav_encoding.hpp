/// The bytes of a WAV file of one channel.
#pragma once

#include "platform/files/audio_file.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sorvel {

unsigned bytesPerSample(StoredFormat format);

/// Everything before the samples.
std::vector<std::byte> wavHeader(std::uint32_t rate_hz, StoredFormat format, std::uint32_t frames);

/// Appends a sample of full scale 1.0, as WavWriter::write stores it.
void append(std::vector<std::byte>& bytes, float sample, StoredFormat format);

} // namespace sorvel
