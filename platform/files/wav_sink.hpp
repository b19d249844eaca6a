/// Where the bytes of a WAV file go.
#pragma once

#include "platform/files/audio_file.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace sorvel {

/// A stream, or a file that appears once it is whole; what fails is told as WavWriter tells it.
class WavSink {
public:
    virtual ~WavSink() = default;
    virtual void write(std::span<const std::byte> bytes) = 0;
    virtual void finish() = 0;
};

/// @param frames  that will be written
/// @throws AudioFileError  also for what is read-only, a terminal or a folder
std::unique_ptr<WavSink> openedSink(const std::string& path, int sampleRate_hz, StoredFormat format,
                                    std::uint64_t frames);

} // namespace sorvel
