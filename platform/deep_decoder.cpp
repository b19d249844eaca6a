#include "platform/deep_decoder.hpp"

#include "deep/receiver.hpp"
#include "platform/audio/rate_converter.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <utility>

namespace sorvel {

namespace {

constexpr std::size_t kPiece_samples = 512;

bool isTaken(const AudioFormat& format) {
    return format.sampleType == SampleType::Float32 && format.channelCount >= 1 &&
           (format.interleaved || format.channelCount == 1) &&
           format.sampleRate >= deep::Receiver::kLowestRate_hz &&
           format.sampleRate <= deep::Receiver::kHighestRate_hz;
}

} // namespace

DeepDecoder::DeepDecoder(Texts texts, Observer observer) : m_texts(texts), m_observer(std::move(observer)) {}

DeepDecoder::~DeepDecoder() = default;

bool DeepDecoder::prepare(const AudioFormat& captured, const std::string& prefix) {
    const bool isOwnRate = isTaken(captured);
    m_format = isOwnRate ? captured : kTargetFormat;
    make(m_format.sampleRate, prefix);
    return isOwnRate;
}

/// A prefix that no text can have makes a receiver that hears nothing.
void DeepDecoder::make(double sampleRate_hz, const std::string& prefix) {
    m_receiver =
        std::make_unique<deep::Receiver>(sampleRate_hz, m_texts == Texts::All ? std::string() : prefix);
    m_prefix = prefix;
}

std::int32_t DeepDecoder::Decode(const void* waveform, std::int32_t waveformSize, void* payloadBuffer,
                                 const std::string& prefix) {
    if (!m_receiver || m_format != kTargetFormat || prefix != m_prefix) {
        m_format = kTargetFormat;
        make(m_format.sampleRate, prefix);
    }
    // Copied, as nothing says how the caller's bytes are aligned.
    std::array<std::int16_t, kPiece_samples> piece{};
    const auto* bytes = static_cast<const std::byte*>(waveform);
    for (std::size_t left = static_cast<std::size_t>(std::max(waveformSize, 0)) / sizeof(std::int16_t);
         left > 0;) {
        const std::size_t count = std::min(left, piece.size());
        std::memcpy(piece.data(), bytes, count * sizeof(std::int16_t));
        m_receiver->push(std::span<const std::int16_t>(piece).first(count));
        bytes += count * sizeof(std::int16_t);
        left -= count;
    }
    return takeText(payloadBuffer);
}

std::int32_t DeepDecoder::DecodeCaptured(const AudioBuffer& block, void* payloadBuffer) {
    if (!m_receiver || block.format() != m_format || m_format.sampleType != SampleType::Float32) return -1;
    std::array<float, kPiece_samples> mono{};
    const std::size_t channels = m_format.channelCount;
    auto samples = block.floatSamples(0).first(block.frameLength() * channels);
    while (!samples.empty()) {
        const std::size_t frames = std::min(samples.size() / channels, mono.size());
        mixToMono(samples, channels, std::span(mono).first(frames));
        m_receiver->push(std::span<const float>(mono).first(frames));
        samples = samples.subspan(frames * channels);
    }
    return takeText(payloadBuffer);
}

/// A second one of the same block waits for the next.
std::int32_t DeepDecoder::takeText(void* payloadBuffer) {
    deep::Reception heard;
    if (!m_receiver->poll(heard)) return 0;
    if (m_observer) m_observer(heard);
    const std::size_t length = strnlen(heard.text.data(), heard.text.size());
    std::memcpy(payloadBuffer, heard.text.data(), length);
    return static_cast<std::int32_t>(length);
}

std::unique_ptr<Decoder> makeDeepDecoder() { return std::make_unique<DeepDecoder>(); }

} // namespace sorvel
