#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace sorvel::stream {

enum class SampleFormat : std::uint8_t { F32, I16 };

/// Bytes of one sample.
constexpr std::size_t sampleBytes(SampleFormat format) { return format == SampleFormat::F32 ? 4 : 2; }

/// From interleaved frames to the one channel that is heard: that with the most energy in the band.
///
/// Energies are taken over 0.1 s and averaged over some 0.4 s; another channel is taken when it has
/// twice the energy of the one in use. All on the sound's own time, so that lengths of blocks do
/// not matter.
///
/// Thread: one at a time. Only the constructor allocates.
class ChannelChoice {
public:
    ChannelChoice(SampleFormat format, std::size_t channels, double sampleRate_hz);

    /// @param samples  mono.size() frames, at any address
    void take(const std::byte* samples, std::span<float> mono) noexcept;
    std::size_t frameBytes() const noexcept { return m_channels.size() * sampleBytes(m_format); }
    void reset() noexcept;

private:
    /// One band-pass section and what came through it.
    struct Channel {
        double x1 = 0.0, x2 = 0.0, y1 = 0.0, y2 = 0.0; // the last inputs and outputs
        double energy = 0.0;                           // since the last choice
        double level = 0.0;                            // average of energies
    };

    void measure(const std::byte* samples, std::size_t frames) noexcept;
    void choose() noexcept;

    SampleFormat m_format;
    std::vector<Channel> m_channels;
    std::size_t m_chosen = 0;
    std::size_t m_window_frames;                 // 0: there is nothing to choose from
    std::size_t m_left_frames;                   // of the window
    double m_gain = 0.0, m_a1 = 0.0, m_a2 = 0.0; // of the band-pass
};

} // namespace sorvel::stream
