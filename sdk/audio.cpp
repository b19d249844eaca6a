#include "sdk/audio.hpp"

#include <algorithm>
#include <cmath>

namespace sorvel {

namespace {

std::size_t bytesPerFrame(const AudioFormat& format) {
    return format.channelCount *
           (format.sampleType == SampleType::Float32 ? sizeof(float) : sizeof(std::int16_t));
}

constexpr double kBlocksPerSecond = 10.0;
// Above, 96000 times the frames of a block would no longer fit the listener's 32 bits.
constexpr double kHighestRate = 447000.0;

} // namespace

AudioBuffer::AudioBuffer(const AudioFormat& format, std::uint32_t frameCapacity, std::size_t minimumBytes)
    : m_format(format), m_minimumBytes(minimumBytes) {
    reset(frameCapacity);
}

void AudioBuffer::reset(std::uint32_t frameCapacity) {
    m_frameLength = 0;
    m_frameCapacity = 0; // stays so if there is no memory
    const std::size_t needed = std::max(frameCapacity * bytesPerFrame(m_format), m_minimumBytes);
    std::fill(m_memory.begin(), m_memory.end(), std::byte{0});
    if (needed > m_memory.size()) m_memory.resize(needed);
    m_frameCapacity = frameCapacity;
}

void AudioBuffer::setFrameLength(std::uint32_t frames) noexcept {
    m_frameLength = std::min(frames, m_frameCapacity);
}

template <typename Sample>
std::span<const Sample> AudioBuffer::samples(SampleType type, std::uint32_t channel) const noexcept {
    if (m_format.sampleType != type || channel >= m_format.channelCount) return {};
    const std::size_t all = std::size_t{m_frameCapacity} * m_format.channelCount;
    const std::span<const Sample> memory(reinterpret_cast<const Sample*>(m_memory.data()), all);
    if (m_format.interleaved) return memory.subspan(std::min<std::size_t>(channel, all));
    return memory.subspan(std::size_t{channel} * m_frameCapacity, m_frameCapacity);
}

std::span<const float> AudioBuffer::floatSamples(std::uint32_t channel) const noexcept {
    return samples<float>(SampleType::Float32, channel);
}

std::span<const std::int16_t> AudioBuffer::int16Samples(std::uint32_t channel) const noexcept {
    return samples<std::int16_t>(SampleType::Int16, channel);
}

std::span<float> AudioBuffer::floatSamples(std::uint32_t channel) noexcept {
    const auto view = samples<float>(SampleType::Float32, channel);
    return {const_cast<float*>(view.data()), view.size()};
}

std::span<std::int16_t> AudioBuffer::int16Samples(std::uint32_t channel) noexcept {
    const auto view = samples<std::int16_t>(SampleType::Int16, channel);
    return {const_cast<std::int16_t*>(view.data()), view.size()};
}

BlockLengths::BlockLengths(double sampleRate) noexcept
    // The comparisons are written so that a rate that is not a number ends at the lowest.
    : m_blockFrames((sampleRate > kBlocksPerSecond ? std::min(sampleRate, kHighestRate) : kBlocksPerSecond) /
                    kBlocksPerSecond) {}

std::uint32_t BlockLengths::next() noexcept {
    m_owed += m_blockFrames;
    const double frames = std::floor(m_owed);
    m_owed -= frames;
    return std::min(static_cast<std::uint32_t>(frames), longest()); // the sum may have been rounded up
}

std::uint32_t BlockLengths::longest() const noexcept {
    return static_cast<std::uint32_t>(std::ceil(m_blockFrames));
}

} // namespace sorvel
