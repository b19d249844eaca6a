#pragma once

#include "platform/files/audio_file.hpp"

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace sorvel {

/// Writes one channel as WAV.
///
/// A file appears under its name only once `finish` has been called: until then its samples are in
/// a temporary file without a name, which goes away with the writer or the process. File systems
/// that have no such files get a hidden one beside the destination. A file that is replaced hands on
/// its mode; a link is followed, and stays. What is no regular file (a device, a named pipe) is
/// written to directly.
///
/// Thread: one at a time.
class WavWriter {
public:
    /// @param path    or "-": a stream to standard output
    /// @param frames  how many will be written. A stream has its header first and cannot be corrected later.
    /// @throws AudioFileError  also when `frames` make more than the 4 GiB of a WAV file, and for a
    ///                         file that is read-only
    WavWriter(const std::string& path, int sampleRate_hz, StoredFormat format, std::uint64_t frames);
    ~WavWriter();
    WavWriter(WavWriter&&) noexcept;
    WavWriter& operator=(WavWriter&&) noexcept;

    /// Rounds and clips to the format; F32 keeps what lies beyond full scale.
    /// @throws AudioFileError  when the medium is full or fails
    /// @throws OutputClosed    when its reader has gone
    void write(std::span<const float> samples);
    /// Puts the file in place. Nothing is written afterwards.
    /// @throws as write
    void finish();

private:
    struct Target;
    std::unique_ptr<Target> m_target;
};

/// Takes away the hidden temporary file of the writer in use, if it has one. For a handler of signals
/// that end the process; to be called nowhere else.
void removeTemporaryFile() noexcept;

} // namespace sorvel
