#include "tools/recording_decoder.hpp"

#include "payload/encoding.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace sorvel {

namespace {

constexpr std::string_view kDamaged = "ERROR"; // what the payload's text says when its check byte is wrong

/// A rate that the modem takes as it is, and blocks of some 100 ms in which it completes the most frames:
/// whole ones where it converts by two or not at all.
struct OwnRate {
    int rate_hz;
    std::size_t block_samples;
};
constexpr std::array kOwnRates{
    OwnRate{48000, 5120 },
    OwnRate{96000, 10240},
    OwnRate{44100, 4410 }
};

const OwnRate& rateFor(double sampleRate_hz) {
    const auto* const found = std::find_if(kOwnRates.begin(), kOwnRates.end(), [&](const OwnRate& own) {
        return static_cast<double>(own.rate_hz) == sampleRate_hz;
    });
    return found != kOwnRates.end() ? *found : kOwnRates.front();
}

ggwave_Parameters parameters(int rate_hz) {
    ggwave_Parameters result = ggwave_getDefaultParameters();
    result.payloadLength = encoding::kPayloadBytes;
    result.sampleRateInp = static_cast<float>(rate_hz);
    result.operatingMode = GGWAVE_OPERATING_MODE_RX; // room for waveforms to send would be the most of it
    return result;
}

std::string lowerCased(std::string text) {
    for (char& letter : text)
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    return text;
}

} // namespace

RecordingDecoder::RecordingDecoder(const std::string& prefix, std::function<void(const Heard&)> deliver)
    : m_prefix(lowerCased(prefix)), m_deliver(std::move(deliver)),
      m_modem(parameters(kOwnRates.front().rate_hz)) {}

double RecordingDecoder::start(double sampleRate_hz) {
    const OwnRate& own = rateFor(sampleRate_hz);
    m_rate_hz = own.rate_hz;
    m_block.resize(own.block_samples);
    m_modem.prepare(parameters(own.rate_hz));
    m_gathered = 0;
    m_pushed = m_decoded = 0;
    m_isComplete = false;
    return m_rate_hz;
}

void RecordingDecoder::push(std::span<const float> samples) {
    m_pushed += samples.size();
    while (!samples.empty()) {
        if (m_gathered == 0 && samples.size() >= m_block.size()) {
            decode(samples.first(m_block.size()));
            samples = samples.subspan(m_block.size());
            continue;
        }
        const auto piece = samples.first(std::min(samples.size(), m_block.size() - m_gathered));
        std::copy(piece.begin(), piece.end(), m_block.begin() + static_cast<std::ptrdiff_t>(m_gathered));
        m_gathered += piece.size();
        samples = samples.subspan(piece.size());
        if (m_gathered < m_block.size()) continue;
        m_gathered = 0;
        decode(m_block);
    }
}

void RecordingDecoder::complete() {
    m_isComplete = true;
    std::fill(m_block.begin() + static_cast<std::ptrdiff_t>(m_gathered), m_block.end(), 0.0F);
    if (std::exchange(m_gathered, 0) > 0) decode(m_block);
    std::fill(m_block.begin(), m_block.end(), 0.0F);
    while (static_cast<double>(m_decoded) < static_cast<double>(m_pushed) + m_rate_hz) decode(m_block);
}

double RecordingDecoder::length_s() const { return static_cast<double>(m_pushed) / m_rate_hz; }

void RecordingDecoder::decode(std::span<const float> block) {
    m_decoded += block.size();
    m_modem.decode(block.data(), static_cast<unsigned>(block.size_bytes()));
    ggvector<std::uint8_t> data;
    if (m_modem.rxTakeData(data) != encoding::kPayloadBytes) return;
    std::array<char, encoding::kPayloadBytes> payload{};
    std::memcpy(payload.data(), data.data(), payload.size());
    const std::string text = encoding::extractStrings(payload.data());
    if (text == kDamaged || text.empty() || !text.starts_with(m_prefix)) return;
    const std::uint64_t end = m_isComplete ? std::min(m_decoded, m_pushed) : m_decoded;
    m_deliver({text, static_cast<double>(end) / m_rate_hz});
}

} // namespace sorvel
