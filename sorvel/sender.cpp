#include "sorvel/sender.hpp"

#include "payload/encoding.hpp"
#include "sorvel/sorvel.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string>

namespace sorvel::stream {

namespace {

constexpr double kRate_hz = 48000.0; // at which the modem makes tones
constexpr std::size_t kPiece_samples = 512;

ggwave_Parameters parameters(Sender::Content content) {
    ggwave_Parameters result = GGWave::getDefaultParameters();
    result.payloadLength = content == Sender::Content::Texts ? static_cast<int>(encoding::kPayloadBytes) : -1;
    result.operatingMode = GGWAVE_OPERATING_MODE_TX;
    return result;
}

std::int16_t toInt16(float sample) {
    return static_cast<std::int16_t>(std::lrint(std::clamp(sample * 32768.0F, -32768.0F, 32767.0F)));
}

} // namespace

int obstacleToText(std::string_view text) noexcept {
    if (text.empty() || text.size() > encoding::kMaxTextLength) return SORVEL_ERROR_LENGTH;
    if (text.find_first_not_of(encoding::kAlphabet) != std::string_view::npos) return SORVEL_ERROR_CHARACTER;
    return SORVEL_OK;
}

Sender::Sender(Content content, SampleFormat format, double sampleRate_hz, int volume_percent)
    : m_content(content), m_format(format), m_volume_percent(volume_percent),
      m_ratio(sampleRate_hz / kRate_hz), m_modem(parameters(content)), m_conversion(kRate_hz, sampleRate_hz) {
}

int Sender::obstacle(std::string_view bytes) const noexcept {
    if (m_content == Content::Texts) return obstacleToText(bytes);
    return bytes.empty() || bytes.size() > GGWave::kMaxLengthVariable ? SORVEL_ERROR_LENGTH : SORVEL_OK;
}

void Sender::queue(std::string_view bytes) noexcept {
    std::array<char, encoding::kPayloadBytes> packed{};
    if (m_content == Content::Texts) {
        compressString(std::string(bytes), packed.data());
        bytes = std::string_view(packed.data(), packed.size());
    }
    m_modem.init(static_cast<int>(bytes.size()), bytes.data(), GGWAVE_PROTOCOL_DT_CUSTOM, m_volume_percent);
}

std::size_t Sender::size_samples(std::string_view bytes) noexcept {
    queue(bytes);
    return static_cast<std::size_t>(std::llround(m_modem.encodeSize_samples() * m_ratio));
}

void Sender::send(std::string_view bytes, std::byte* samples) noexcept {
    std::size_t left = size_samples(bytes);
    const std::size_t made = m_modem.encode() / sizeof(float);
    std::span<const float> waveform(static_cast<const float*>(m_modem.txWaveform()), made);

    static constexpr std::array<float, kPiece_samples> kSilence{};
    std::array<float, kPiece_samples> piece{};
    m_conversion.reset();
    while (left > 0) {
        // Silence behind the transmission brings out the rest.
        const auto in = waveform.empty() ? std::span<const float>(kSilence) : waveform;
        const auto step = m_conversion.convert(in, std::span(piece).first(std::min(left, piece.size())));
        if (!waveform.empty()) waveform = waveform.subspan(step.consumed);
        store(std::span<const float>(piece).first(step.produced), samples);
        samples += step.produced * sampleBytes(m_format);
        left -= step.produced;
    }
}

void Sender::store(std::span<const float> samples, std::byte* at) const noexcept {
    for (const float sample : samples) {
        if (m_format == SampleFormat::F32) {
            const float kept = std::clamp(sample, -1.0F, 1.0F);
            std::memcpy(at, &kept, sizeof kept);
        } else {
            const std::int16_t level = toInt16(sample);
            std::memcpy(at, &level, sizeof level);
        }
        at += sampleBytes(m_format);
    }
}

} // namespace sorvel::stream
