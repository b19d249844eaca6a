#include "sorvel/channel_choice.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace sorvel::stream {

namespace {

constexpr double kMiddle_hz = 18750.0, kWidth_hz = 1500.0, kHighest_hz = 19500.0;
constexpr double kWindow_s = 0.1;
constexpr double kNewShare = 0.25; // of a window in the average
constexpr double kClearlyMore = 2.0;
constexpr double kSilence = 1e-18; // smaller numbers become denormal, on which some processors are slow

template <typename Sample>
Sample load(const std::byte* at) {
    Sample sample;
    std::memcpy(&sample, at, sizeof sample);
    return sample;
}

float sampleAt(SampleFormat format, const std::byte* at) {
    if (format == SampleFormat::I16) return (1.0F / 32768.0F) * static_cast<float>(load<std::int16_t>(at));
    const auto sample = load<float>(at);
    return std::fabs(sample) <= 1e6F ? sample : 0.0F; // nor not a number
}

} // namespace

ChannelChoice::ChannelChoice(SampleFormat format, std::size_t channels, double sampleRate_hz)
    : m_format(format), m_channels(channels),
      m_window_frames(channels > 1 && sampleRate_hz >= 2.0 * kHighest_hz
                          ? static_cast<std::size_t>(sampleRate_hz * kWindow_s)
                          : 0),
      m_left_frames(m_window_frames) {
    // Bristow-Johnson, "Cookbook formulae for audio equalizer biquad filter coefficients",
    // band-pass of constant 0 dB peak gain.
    const double w = 2.0 * std::numbers::pi * kMiddle_hz / sampleRate_hz;
    const double alpha = std::sin(w) * kWidth_hz / (2.0 * kMiddle_hz);
    m_gain = alpha / (1.0 + alpha);
    m_a1 = -2.0 * std::cos(w) / (1.0 + alpha);
    m_a2 = (1.0 - alpha) / (1.0 + alpha);
}

void ChannelChoice::take(const std::byte* samples, std::span<float> mono) noexcept {
    while (!mono.empty()) {
        const std::size_t frames = m_window_frames == 0 ? mono.size() : std::min(mono.size(), m_left_frames);
        const std::byte* chosen = samples + m_chosen * sampleBytes(m_format);
        for (float& sample : mono.first(frames)) {
            sample = sampleAt(m_format, chosen);
            chosen += frameBytes();
        }
        if (m_window_frames > 0) measure(samples, frames);
        samples += frames * frameBytes();
        mono = mono.subspan(frames);
    }
}

void ChannelChoice::measure(const std::byte* samples, std::size_t frames) noexcept {
    for (Channel& channel : m_channels) {
        const std::byte* at = samples;
        for (std::size_t frame = 0; frame < frames; ++frame, at += frameBytes()) {
            const auto x = static_cast<double>(sampleAt(m_format, at));
            double y = m_gain * (x - channel.x2) - m_a1 * channel.y1 - m_a2 * channel.y2;
            if (std::fabs(y) < kSilence) y = 0.0;
            channel.x2 = channel.x1;
            channel.x1 = x;
            channel.y2 = channel.y1;
            channel.y1 = y;
            channel.energy += y * y;
        }
        samples += sampleBytes(m_format);
    }
    m_left_frames -= frames;
    if (m_left_frames == 0) choose();
}

void ChannelChoice::choose() noexcept {
    m_left_frames = m_window_frames;
    for (Channel& channel : m_channels) {
        channel.level += kNewShare * (channel.energy - channel.level);
        channel.energy = 0.0;
    }
    const auto best = std::max_element(m_channels.begin(), m_channels.end(),
                                       [](const Channel& a, const Channel& b) { return a.level < b.level; });
    if (best->level > kClearlyMore * m_channels[m_chosen].level)
        m_chosen = static_cast<std::size_t>(best - m_channels.begin());
}

void ChannelChoice::reset() noexcept {
    std::fill(m_channels.begin(), m_channels.end(), Channel{});
    m_chosen = 0;
    m_left_frames = m_window_frames;
}

} // namespace sorvel::stream
