#include "tools/message.hpp"

#include "telemetry/environment.hpp"
#include "tools/command.hpp"
#include "tools/transmission.hpp"

#include <algorithm>
#include <cstring>

namespace sorvel {

namespace {

constexpr float kStep = 1.0F / 32768.0F;
// A message that broke off is given up after the longest duration there is.
constexpr std::size_t kLongest_frames = GGWave::kMaxRecordedFrames + 40;

ggwave_Parameters parameters(int operatingMode) {
    ggwave_Parameters result = ggwave_getDefaultParameters();
    result.operatingMode = operatingMode;
    return result;
}

} // namespace

std::vector<float> messageTransmission(const std::string& bytes, ggwave_ProtocolId protocolId,
                                       int volume_percent) {
    if (bytes.empty() || bytes.size() > GGWave::kMaxLengthVariable)
        throw UsageError("a message has 1 to " + std::to_string(GGWave::kMaxLengthVariable) +
                         " bytes, this one has " + std::to_string(bytes.size()));
    GGWave modem(parameters(GGWAVE_OPERATING_MODE_TX));
    const bool isRow = protocolId >= 0 && protocolId < GGWAVE_PROTOCOL_COUNT;
    if (!isRow || !modem.txProtocols()[static_cast<std::size_t>(protocolId)].enabled)
        throw UsageError("there is no protocol " + std::to_string(protocolId) +
                         "; give --protocol an id of the --protocol-file");
    modem.init(static_cast<int>(bytes.size()), bytes.data(), protocolId, volume_percent);
    if (modem.encodeSize_samples() == 0)
        throw UsageError("with this protocol the message lasts longer than 2048 frames; shorten it or use "
                         "fewer framesPerTx");
    std::vector<float> samples(modem.encode() / sizeof(float));
    std::memcpy(samples.data(), modem.txWaveform(), samples.size() * sizeof(float));
    return samples;
}

bool isPrintable(const std::string& bytes) {
    const bool hasControls = std::any_of(bytes.begin(), bytes.end(), [](char byte) {
        const auto c = static_cast<unsigned char>(byte);
        return (c < 0x20 && c != '\t' && c != '\n' && c != '\r') || c == 0x7F;
    });
    // U+0080 to U+009F, which drive terminals as well, begin with this byte and one below 0xA0.
    bool hasHighControls = false;
    for (std::size_t i = 0; i + 1 < bytes.size(); ++i)
        hasHighControls |= bytes[i] == '\xC2' && static_cast<unsigned char>(bytes[i + 1]) < 0xA0;
    return !hasControls && !hasHighControls && isUtf8(bytes);
}

bool isOneLine(const std::string& bytes) {
    // U+2028 and U+2029 end lines too.
    return isPrintable(bytes) && bytes.find_first_of("\t\n\r") == std::string::npos &&
           bytes.find("\xE2\x80\xA8") == std::string::npos && bytes.find("\xE2\x80\xA9") == std::string::npos;
}

std::string inHex(const std::string& bytes) {
    std::string hex;
    for (const char byte : bytes) {
        const auto c = static_cast<unsigned char>(byte);
        hex += "0123456789abcdef"[c >> 4];
        hex += "0123456789abcdef"[c & 15];
    }
    return hex;
}

MessageReceiver::MessageReceiver(std::function<void(const HeardMessage&)> deliver)
    : m_deliver(std::move(deliver)), m_modem(parameters(GGWAVE_OPERATING_MODE_RX)) {}

double MessageReceiver::start(double) {
    m_modem.prepare(parameters(GGWAVE_OPERATING_MODE_RX));
    m_gathered = 0;
    m_frames = 0;
    m_dither.seed(1); // the same recording always gives the same
    return kTransmissionRate_hz;
}

void MessageReceiver::complete() {
    static constexpr std::array<float, kFrame_samples> kSilence{};
    push(std::span(kSilence).first(kFrame_samples - m_gathered));
    for (std::size_t i = 0; i < 8; ++i) push(kSilence);
    for (std::size_t i = 0; i < kLongest_frames && m_modem.rxReceiving(); ++i) push(kSilence);
}

void MessageReceiver::push(std::span<const float> samples) {
    std::uniform_real_distribution<float> half(-0.5F * kStep, 0.5F * kStep);
    for (const float sample : samples) {
        m_frame[m_gathered++] = sample + half(m_dither) + half(m_dither);
        if (m_gathered == m_frame.size()) decodeFrame();
    }
}

void MessageReceiver::decodeFrame() {
    m_gathered = 0;
    ++m_frames;
    m_modem.decode(m_frame.data(), sizeof m_frame);
    ggvector<std::uint8_t> data;
    const int length = m_modem.rxTakeData(data);
    if (length == 0) return;
    HeardMessage heard;
    if (length > 0) heard.bytes.emplace(data.begin(), data.end());
    heard.time_s = static_cast<double>(m_frames * kFrame_samples) / kTransmissionRate_hz;
    m_deliver(heard);
}

} // namespace sorvel
