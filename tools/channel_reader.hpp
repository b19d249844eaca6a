#pragma once

#include "platform/audio/channel_choice.hpp"
#include "platform/files/audio_file_reader.hpp"

#include <cstddef>
#include <exception>
#include <optional>
#include <span>
#include <vector>

namespace sorvel {

/// One channel of a recording: the only one, the one that is asked for, or the better one, see
/// ChannelChoice. In a file it looks one second ahead, so that a transmission is taken whole from its
/// best channel; from a pipe, whose sender may be live, sound comes as it is read.
class ChannelReader {
public:
    /// @param reader   outlives it
    /// @param channel  from 1 on, one that there is; none: the better one
    ChannelReader(AudioFileReader& reader, std::optional<std::uint32_t> channel);

    /// @return up to 100 ms, good until the next call; empty at the end
    /// @throws AudioFileError  as the reader does, after all that lies before the damage
    std::span<const float> next();
    /// Another channel, from 1 on, of what `next` gave last; good until the next call of either.
    std::span<const float> beside(std::uint32_t channel);

private:
    std::size_t readBlock();
    std::span<const float> taken(std::size_t channel, std::vector<float>& mono) const;

    AudioFileReader& m_reader;
    const std::size_t m_channels, m_block_frames;
    const std::size_t m_ahead; // blocks
    std::optional<ChannelChoice> m_choice;
    std::size_t m_channel = 0;
    std::vector<float> m_interleaved;  // ring of blocks
    std::vector<std::size_t> m_frames; // in each of them
    std::size_t m_read = 0, m_given = 0;
    bool m_isAtEnd = false;
    std::exception_ptr m_damage; // that was met ahead
    std::vector<float> m_mono, m_beside;
};

} // namespace sorvel
