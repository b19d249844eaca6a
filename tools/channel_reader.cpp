#include "tools/channel_reader.hpp"

#include <utility>

namespace sorvel {

namespace {

constexpr std::size_t kAhead = 10; // blocks of 100 ms

} // namespace

ChannelReader::ChannelReader(AudioFileReader& reader, std::optional<std::uint32_t> channel)
    : m_reader(reader), m_channels(static_cast<std::size_t>(reader.channels())),
      m_block_frames(static_cast<std::size_t>(reader.sampleRate_hz()) / 10),
      m_ahead(m_channels > 1 && !channel && reader.frames() ? kAhead : 0), m_mono(m_block_frames) {
    if (m_channels == 1) return;
    if (channel)
        m_channel = *channel - 1;
    else
        m_choice.emplace(reader.sampleRate_hz(), m_channels);
    m_interleaved.resize((m_ahead + 1) * m_block_frames * m_channels);
    m_frames.resize(m_ahead + 1);
}

std::span<const float> ChannelReader::next() {
    if (m_channels == 1) return std::span(m_mono).first(m_reader.read(m_mono));
    while (!m_isAtEnd && m_read <= m_given + m_ahead) m_isAtEnd = readBlock() == 0;
    if (m_given == m_read) {
        if (m_damage) std::rethrow_exception(std::exchange(m_damage, nullptr));
        return {};
    }
    ++m_given;
    return taken(m_channel, m_mono);
}

std::span<const float> ChannelReader::beside(std::uint32_t channel) {
    m_beside.resize(m_block_frames);
    return taken(channel - 1, m_beside);
}

/// Of the block that was given last.
std::span<const float> ChannelReader::taken(std::size_t channel, std::vector<float>& mono) const {
    const std::size_t slot = (m_given - 1) % m_frames.size(), frames = m_frames[slot];
    const std::span<float> result = std::span(mono).first(frames);
    takeChannel(std::span(m_interleaved).subspan(slot * m_block_frames * m_channels, frames * m_channels),
                m_channels, channel, result);
    return result;
}

/// @return frames, 0 at the end
std::size_t ChannelReader::readBlock() {
    const std::size_t slot = m_read % m_frames.size();
    const auto block =
        std::span(m_interleaved).subspan(slot * m_block_frames * m_channels, m_block_frames * m_channels);
    std::size_t frames = 0;
    try {
        frames = m_reader.readAll(block);
    } catch (const AudioFileError&) {
        m_damage = std::current_exception(); // what lies before it is still to be given
    }
    if (frames == 0) return 0;
    m_frames[slot] = frames;
    ++m_read;
    if (m_choice) m_channel = m_choice->look(block.first(frames * m_channels));
    return frames;
}

} // namespace sorvel
