/// How sound lies in files, and what can go wrong with them.
/// writes.
#pragma once

#include <cstdint>
#include <stdexcept>

namespace sorvel {

/// One line for the user: what failed, on which file, and what to try.
class AudioFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Standard output was closed by its reader, as `head` does. Not worth a line.
class OutputClosed : public std::runtime_error {
public:
    OutputClosed() : std::runtime_error("the reader of standard output is gone") {}
};

/// How samples are stored, little-endian. U8: silence at 128.
enum class StoredFormat : std::uint8_t { U8, I16, I32, F32 };

/// What has to be said about samples without a header.
struct RawAudio {
    int sampleRate_hz = 0;
    StoredFormat format = StoredFormat::I16;
    int channels = 1;
};

} // namespace sorvel
