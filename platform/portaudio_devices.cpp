#include "platform/portaudio_devices.hpp"

#include "platform/input_choice.hpp"
#include "platform/portaudio_library.hpp"

#include <algorithm>

namespace sorvel {

namespace {

constexpr double kHighestTone_hz = 19500.0;
constexpr double kUsablePart = 0.45; // of the rate, below a converter's filter

InputDevice described(const InputChoice& input, const SoundServer& server) {
    InputDevice device{input.name, "", false, false, 0.0, {}, input.rate_hz};
    if (const ServerSource* const source = server.find(input.name)) {
        device.description = source->description;
        device.isMonitor = source->isMonitor;
        device.nativeRate_hz = source->rate_hz;
        device.supportedRates_hz.assign(kPreferredRates_hz.begin(), kPreferredRates_hz.end()); // it converts
    } else {
        device.supportedRates_hz = supportedRates(input);
        if (device.supportedRates_hz.empty()) device.captureRate_hz = 0.0;
    }
    std::sort(device.supportedRates_hz.begin(), device.supportedRates_hz.end());
    return device;
}

/// The name of what is opened when none is asked for; empty: nothing is.
std::string defaultName(const SoundServer& server) {
    try {
        return chooseInput("", server).name;
    } catch (const AudioDeviceError&) {
        return {};
    }
}

} // namespace

std::vector<InputDevice> inputDevices() {
    const SoundServer server = askSoundServer();
    if (server.state == ServerState::Silent) throw AudioDeviceError(kServerIsSilent);
    const auto turn = portAudioTurn();
    const PortAudioLibrary library;
    const std::string byDefault = defaultName(server);
    std::vector<InputDevice> devices;
    for (const auto& inputs : {serverInputs(server), ownInputs(server)})
        for (const InputChoice& input : inputs) devices.push_back(described(input, server));
    for (InputDevice& device : devices) device.isDefault = device.name == byDefault;
    const auto first = std::find_if(devices.begin(), devices.end(),
                                    [](const InputDevice& device) { return device.isDefault; });
    if (first != devices.end()) std::rotate(devices.begin(), first, first + 1);
    return devices;
}

bool carriesBand(double rate_hz) noexcept { return rate_hz * kUsablePart >= kHighestTone_hz; }

std::string rateWarning(double rate_hz) {
    if (carriesBand(rate_hz)) return {};
    return std::to_string(static_cast<long>(rate_hz)) +
           " Hz cannot carry 18 to 19.5 kHz: set the input to 48000 Hz, or use another one";
}

} // namespace sorvel
