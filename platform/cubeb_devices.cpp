#include "platform/cubeb_devices.hpp"

#include "platform/cubeb_library.hpp"

#include <algorithm>

namespace sorvel {

namespace {

constexpr double kHighestTone_hz = 19500.0;
constexpr double kUsablePart = 0.45; // of the rate, below a converter's filter

InputDevice described(const CubebLibrary& library, const CubebInput& input) {
    InputDevice device{input.name, input.description, input.isDefault, input.isMonitor, input.rate_hz, {},
                       0.0};
    if (library.isServed()) { // it converts
        device.captureRate_hz = input.rate_hz;
        device.supportedRates_hz.assign(kPreferredRates_hz.begin(), kPreferredRates_hz.end());
    }
    for (const double rate_hz : library.isServed() ? std::vector<double>() : library.ratesToTry(input)) {
        if (!library.opens(input, rate_hz)) continue;
        if (device.supportedRates_hz.empty()) device.captureRate_hz = rate_hz;
        device.supportedRates_hz.push_back(static_cast<int>(rate_hz));
    }
    std::sort(device.supportedRates_hz.begin(), device.supportedRates_hz.end());
    return device;
}

} // namespace

std::vector<InputDevice> inputDevices() {
    return inTime([] {
        const CubebLibrary library;
        std::vector<InputDevice> devices;
        for (const CubebInput& input : library.inputs()) devices.push_back(described(library, input));
        return devices;
    });
}

bool carriesBand(double rate_hz) noexcept { return rate_hz * kUsablePart >= kHighestTone_hz; }

std::string rateWarning(double rate_hz) {
    if (carriesBand(rate_hz)) return {};
    return std::to_string(static_cast<long>(rate_hz)) +
           " Hz cannot carry 18 to 19.5 kHz: set the input to 48000 Hz, or use another one";
}

} // namespace sorvel
