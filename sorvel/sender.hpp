#pragma once

#include "modem/ggwave.h"
#include "sorvel/channel_choice.hpp"
#include "sorvel/rate_conversion.hpp"

#include <cstdint>
#include <string_view>

namespace sorvel::stream {

/// What keeps `text` from being sent; SORVEL_OK if nothing does.
int obstacleToText(std::string_view text) noexcept;

/// Texts or messages to samples of one channel. One thread at a time; the constructor allocates.
class Sender {
public:
    enum class Content : std::uint8_t { Texts, Messages };

    Sender(Content content, SampleFormat format, double sampleRate_hz, int volume_percent);
    /// False: there was not enough memory.
    bool isReady() const { return m_modem.heapSize() > 0; }

    int obstacle(std::string_view bytes) const noexcept;
    /// Samples of a transmission of `bytes`, to which there is no obstacle.
    std::size_t size_samples(std::string_view bytes) noexcept;
    /// @param samples  room for size_samples(bytes), at any address
    void send(std::string_view bytes, std::byte* samples) noexcept;

private:
    void queue(std::string_view bytes) noexcept;
    void store(std::span<const float> samples, std::byte* at) const noexcept;

    Content m_content;
    SampleFormat m_format;
    int m_volume_percent;
    double m_ratio; // samples made per sample of the modem
    GGWave m_modem;
    RateConversion m_conversion;
};

} // namespace sorvel::stream
