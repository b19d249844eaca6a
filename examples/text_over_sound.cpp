// A text identifier to sound and back, the way the listener hears it: 96 kHz, 16 bits, blocks of
// 100 ms.
#include "modem/ggwave.h"
#include "payload/encoding.hpp"

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

int main() {
    std::array<char, encoding::kPayloadBytes> payload{};
    compressString("acme_1234", payload.data());

    ggwave_Parameters parameters = ggwave_getDefaultParameters();
    parameters.payloadLength = static_cast<int>(payload.size());
    parameters.sampleFormatInp = parameters.sampleFormatOut = GGWAVE_SAMPLE_FORMAT_I16;
    parameters.sampleRateInp = parameters.sampleRateOut = 96000;
    GGWave sender(parameters);
    if (!sender.init(static_cast<int>(payload.size()), payload.data(), GGWAVE_PROTOCOL_DT_CUSTOM, 50))
        return 1;
    const std::size_t bytes = sender.encode();
    const auto* const waveform = static_cast<const std::uint8_t*>(sender.txWaveform());
    std::vector<std::uint8_t> air(waveform, waveform + bytes);
    air.resize((bytes / 19200 + 2) * 19200); // whole blocks, and some silence to end on

    const int listener = ggwave_init(parameters);
    std::array<char, 256> text{};
    int length = 0;
    for (std::size_t at = 0; at < air.size() && length < 1; at += 19200) // -1 is no end: another text
        length = ggwave_decode(listener, air.data() + at, 19200, text.data(), "acme");
    ggwave_free(listener);
    if (length < 1) return 1;
    std::printf("heard \"%.*s\"\n", length, text.data());
    return std::string(text.data(), static_cast<std::size_t>(length)) == "acme_1234" ? 0 : 1;
}
