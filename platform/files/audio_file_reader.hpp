#pragma once

#include "platform/files/audio_file.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace sorvel {

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

} // namespace sorvel
