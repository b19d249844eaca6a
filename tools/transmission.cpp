#include "tools/transmission.hpp"

#include "modem/ggwave.h"
#include "payload/encoding.hpp"

#include <array>
#include <stdexcept>
#include <string_view>

namespace sorvel {

namespace {

/// The whole character at `at`, which in UTF-8 may be several bytes; what cannot be
/// printed by its number.
std::string shownCharacter(std::string_view text, std::size_t at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte < 0x20 || byte == 0x7F) return "character " + std::to_string(byte);
    std::size_t length = 1;
    while (byte >= 0xC0 && at + length < text.size() &&
           (static_cast<unsigned char>(text[at + length]) & 0xC0U) == 0x80U)
        ++length;
    std::string shown = "'";
    shown.append(text.substr(at, length)).push_back('\'');
    return shown;
}

std::string inLowerCase(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

class Transmitter {
public:
    Transmitter() : m_id(ggwave_init(parameters())) {}
    ~Transmitter() {
        if (m_id >= 0) ggwave_free(m_id);
    }
    Transmitter(const Transmitter&) = delete;
    Transmitter& operator=(const Transmitter&) = delete;

    int encode(const std::array<char, encoding::kPayloadBytes>& payload, int volume_percent, void* waveform) {
        const int query = waveform == nullptr ? 1 : 0;
        return ggwave_encode(m_id, payload.data(), static_cast<int>(payload.size()),
                             GGWAVE_PROTOCOL_DT_CUSTOM, volume_percent, waveform, query);
    }

private:
    // Captured and played at the rate at which tones are made: then no rate conversion inside the
    // modem cuts off the end of the waveform.
    static ggwave_Parameters parameters() {
        ggwave_Parameters result = ggwave_getDefaultParameters();
        result.payloadLength = static_cast<int>(encoding::kPayloadBytes);
        result.operatingMode = GGWAVE_OPERATING_MODE_TX;
        return result;
    }

    int m_id;
};

} // namespace

std::string obstacleToSending(const std::string& text) {
    const std::string alphabet = "can be sent: \"" + std::string(encoding::kAlphabet) + "\"";
    if (text.empty()) return "there is no text to send; 1 to 15 characters " + alphabet;
    const std::size_t wrong = text.find_first_not_of(encoding::kAlphabet);
    if (wrong != std::string::npos) {
        const std::string lower = inLowerCase(text);
        const bool wouldDo = lower.size() <= encoding::kMaxTextLength &&
                             lower.find_first_not_of(encoding::kAlphabet) == std::string::npos;
        return shownCharacter(text, wrong) + " cannot be sent; " +
               (wouldDo ? "try \"" + lower + "\" in lower case; " : std::string()) + "these characters " +
               alphabet;
    }
    if (text.size() > encoding::kMaxTextLength)
        return "the text has " + std::to_string(text.size()) + " characters; at most " +
               std::to_string(encoding::kMaxTextLength) + " can be sent";
    return {};
}

std::vector<float> transmission(const std::string& text, int volume_percent) {
    std::array<char, encoding::kPayloadBytes> payload{};
    compressString(text, payload.data());
    Transmitter transmitter;
    const int bytes = transmitter.encode(payload, volume_percent, nullptr);
    std::vector<float> waveform(bytes > 0 ? static_cast<std::size_t>(bytes) / sizeof(float) : 0);
    if (waveform.empty() || transmitter.encode(payload, volume_percent, waveform.data()) != bytes)
        throw std::runtime_error("the modem cannot make this transmission");
    return waveform;
}

} // namespace sorvel
