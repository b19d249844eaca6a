// The deep receiver by itself, and behind the listener.
#include "deep/receiver.hpp"
#include "platform/deep_decoder.hpp"
#include "sdk/PushCapture.hpp"
#include "sdk/SorvelUBM.hpp"

#include <vector>

int main() {
    const sorvel::deep::Receiver receiver(48000.0, "acme");
    sorvel::Platform platform = sorvel::defaultPlatform();
    platform.makeDecoder = sorvel::makeDeepDecoder;
    PushCapture capture(44100.0, 2, platform);
    SorvelUBM listener("acme", capture.platform());
    listener.startListening();
    const bool isTaken = capture.push(std::vector<float>(8820)); // 100 ms
    listener.stopListening();
    return receiver.isReady() && isTaken ? 0 : 1;
}
