#include "platform/audio/cubeb_devices.hpp"

#include "platform/audio/cubeb_library.hpp"
#include "platform/audio/cubeb_outputs.hpp"

#include <algorithm>
#include <utility>

namespace sorvel {

namespace {

constexpr double kHighestTone_hz = 19500.0;
constexpr double kUsablePart = 0.45; // of the rate, below a converter's filter

/// What a device can be opened with, and what it will be: the first that it has of those to try.
struct Rates {
    std::vector<int> supported_hz;
    double chosen_hz = 0.0;
};

template <typename Opens>
Rates ratesOf(const CubebLibrary& library, const CubebInput& device, const Opens& opens) {
    if (library.isServed()) // it converts
        return {
            {44100, 48000, 96000},
            device.rate_hz
        };
    Rates rates;
    for (const double rate_hz : library.ratesToTry(device)) {
        if (!opens(rate_hz)) continue;
        if (rates.supported_hz.empty()) rates.chosen_hz = rate_hz;
        rates.supported_hz.push_back(static_cast<int>(rate_hz));
    }
    std::sort(rates.supported_hz.begin(), rates.supported_hz.end());
    return rates;
}

InputDevice described(const CubebLibrary& library, const CubebInput& input) {
    Rates rates = ratesOf(library, input, [&](double rate_hz) { return library.opens(input, rate_hz); });
    return {input.name,      input.description, input.isDefault,
            input.isMonitor, input.rate_hz,     std::move(rates.supported_hz),
            rates.chosen_hz};
}

OutputDevice describedOutput(const CubebLibrary& library, const CubebOutput& output) {
    Rates rates = ratesOf(library, output, [&](double rate_hz) { return opens(library, output, rate_hz); });
    return {
        output.name,    output.description, output.isDefault, output.rate_hz, std::move(rates.supported_hz),
        rates.chosen_hz};
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

std::vector<OutputDevice> outputDevices() {
    return inTime([] {
        const CubebLibrary library(kNoOutput);
        std::vector<OutputDevice> devices;
        for (const CubebOutput& output : outputs(library))
            devices.push_back(describedOutput(library, output));
        return devices;
    });
}

bool carriesBand(double rate_hz) noexcept { return rate_hz * kUsablePart >= kHighestTone_hz; }

std::string rateWarning(double rate_hz, const std::string& word) {
    if (carriesBand(rate_hz)) return {};
    return std::to_string(static_cast<long>(rate_hz)) + " Hz cannot carry 18 to 19.5 kHz: set the " + word +
           " to 48000 Hz, or use another one";
}

} // namespace sorvel
