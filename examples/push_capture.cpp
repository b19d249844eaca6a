// For applications that own the microphone: they push what they capture, in buffers of any length
// and at any rate.
#include "modem/ggwave.h"
#include "payload/encoding.hpp"
#include "sdk/MainQueue.hpp"
#include "sdk/PushCapture.hpp"
#include "sdk/SorvelUBM.hpp"

#include <array>
#include <chrono>
#include <cstring>
#include <iostream>
#include <span>
#include <thread>
#include <vector>

/// Stands for the microphone: a transmission at 48 kHz and some quiet behind it.
static std::vector<float> captured(const char* text) {
    std::array<char, encoding::kPayloadBytes> payload{};
    compressString(text, payload.data());
    ggwave_Parameters parameters = ggwave_getDefaultParameters();
    parameters.payloadLength = static_cast<int>(payload.size());
    parameters.operatingMode = GGWAVE_OPERATING_MODE_TX;
    GGWave sender(parameters);
    sender.init(static_cast<int>(payload.size()), payload.data(), GGWAVE_PROTOCOL_DT_CUSTOM, 50);
    std::vector<float> samples(sender.encode() / sizeof(float));
    std::memcpy(samples.data(), sender.txWaveform(), samples.size() * sizeof(float));
    samples.resize(samples.size() + 48000);
    return samples;
}

int main() {
    PushCapture capture(48000.0, 1, sorvel::defaultPlatform());
    SorvelUBM listener("acme", capture.platform());
    std::string heard;
    listener.setCallBack([&heard](const std::string& ubm) { heard = ubm; });
    listener.startListening();

    std::this_thread::sleep_for(
        std::chrono::milliseconds(1100)); // a listener's first second delivers nothing
    const std::vector<float> sound = captured("acme_1234");
    for (std::span<const float> rest(sound); !rest.empty();) {
        const auto buffer = rest.first(std::min<std::size_t>(rest.size(), 512));
        capture.push(buffer);
        rest = rest.subspan(buffer.size());
    }
    MainQueue::main().poll();
    listener.stopListening();
    std::cout << "heard \"" << heard << "\"\n";
    return heard == "acme_1234" ? 0 : 1;
}
