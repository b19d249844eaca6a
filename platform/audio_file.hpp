/// Sound from files and pipes as floats, and sound to WAV files and streams.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>

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

/// Reads a recording from its start to its end.
///
/// Thread: one at a time. `read` allocates nothing; on a pipe or a device it waits for as much as
/// was asked for.
class AudioFileReader {
public:
    static constexpr int kMaxChannels = 64;

    /// @param path  a file in any format that libsndfile reads, a pipe, or "-": standard input. From a pipe
    ///              WAV, AU and Ogg are understood; formats that must be searched, like FLAC, are not.
    /// @param raw   the file has no header, and this is what it holds
    /// @throws AudioFileError  also for a rate outside 8000 to 384000 Hz or more than 64 channels
    explicit AudioFileReader(const std::string& path, const std::optional<RawAudio>& raw = std::nullopt);
    ~AudioFileReader();
    AudioFileReader(AudioFileReader&&) noexcept;
    AudioFileReader& operator=(AudioFileReader&&) noexcept;

    int sampleRate_hz() const noexcept;
    int channels() const noexcept;
    /// What is read from, for those who have to end a wait for it.
    int descriptor() const noexcept;
    /// What the header promises; less may come. Empty where only the end of a pipe will tell.
    std::optional<std::uint64_t> frames() const noexcept;

    /// Fills `mono` with the mean of the channels; see mixToMono for samples that are not finite.
    /// @return samples written; fewer than asked for only at the end, then 0
    /// @throws AudioFileError  when the data is damaged or cannot be read
    std::size_t read(std::span<float> mono);
    /// Fills `interleaved`, a whole number of frames, with all channels, as they are stored.
    /// @return frames written; otherwise as read
    std::size_t readAll(std::span<float> interleaved);

private:
    struct Source;
    std::unique_ptr<Source> m_source;
};

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
