#include "platform/audio/cubeb_devices.hpp"
#include "tools/command.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace sorvel {

namespace {

constexpr const char* kFooter =
    "Examples:\n"
    "  sorvel devices\n"
    "  sorvel devices --json | grep '\"direction\":\"output\"'\n"
    "The default ones have a star. 'own rate' is the one that the device itself runs at, where that is "
    "known, and\n"
    "'opened at' the one that a listener or player uses. With --json each line is an object: name, "
    "description,\n"
    "default, monitor (of inputs), own_rate, opened_at, rates, carries_band, direction (input or output); "
    "rates in Hz.\n"
    "Exit status: 0 there are inputs, 1 there is none, 2 the sound system fails.";

std::string hertz(double rate_hz) {
    return rate_hz > 0.0 ? std::to_string(std::lround(rate_hz)) + " Hz" : "unknown";
}

/// What the lines of both kinds tell.
struct Device {
    std::string name, description;
    bool isDefault;
    std::optional<bool> isMonitor; // nothing: an output
    double nativeRate_hz;
    std::vector<int> supportedRates_hz;
    double openedRate_hz;

    const char* direction() const { return isMonitor ? "input" : "output"; }
};

std::string jsonLine(const Device& device) {
    nlohmann::ordered_json line;
    const auto rate = [](double rate_hz) {
        return rate_hz > 0.0 ? nlohmann::ordered_json(std::lround(rate_hz)) : nlohmann::ordered_json();
    };
    line["name"] = device.name;
    line["description"] = device.description;
    line["default"] = device.isDefault;
    if (device.isMonitor) line["monitor"] = *device.isMonitor;
    line["own_rate"] = rate(device.nativeRate_hz);
    line["opened_at"] = rate(device.openedRate_hz);
    line["rates"] = device.supportedRates_hz;
    line["carries_band"] = carriesBand(device.openedRate_hz);
    line["direction"] = device.direction();
    return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

/// Columns are as wide as their longest entry; the last one, for people, is not padded. Outputs
/// stand under the inputs, after a line of headings of their own.
void printTable(const std::vector<Device>& devices) {
    std::vector<std::vector<std::string>> rows;
    std::string heading;
    for (const Device& device : devices) {
        if (heading != device.direction()) {
            heading = device.direction();
            rows.push_back({"", heading, "own rate", "opened at", "18-19.5 kHz", "description"});
        }
        rows.push_back({device.isDefault ? "*" : "", device.name, hertz(device.nativeRate_hz),
                        device.openedRate_hz > 0.0 ? hertz(device.openedRate_hz) : "busy",
                        carriesBand(device.openedRate_hz) ? "yes" : "no", device.description});
    }
    std::vector<std::size_t> widths(6);
    for (const auto& row : rows)
        for (std::size_t at = 0; at < row.size(); ++at) widths[at] = std::max(widths[at], row[at].size());
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t at = 0; at + 1 < row.size(); ++at) line += padded(row[at], widths[at]) + "  ";
        line += row.back();
        printLine(line.substr(0, line.find_last_not_of(' ') + 1));
    }
}

std::vector<Device> allDevices() {
    std::vector<Device> devices;
    for (const InputDevice& device : inputDevices())
        devices.push_back({device.name, device.description, device.isDefault, device.isMonitor,
                           device.nativeRate_hz, device.supportedRates_hz, device.captureRate_hz});
    for (const OutputDevice& device : outputDevices())
        devices.push_back({device.name, device.description, device.isDefault, std::nullopt,
                           device.nativeRate_hz, device.supportedRates_hz, device.playbackRate_hz});
    return devices;
}

int listDevices(bool json) {
    const std::vector<Device> devices = allDevices();
    if (json)
        for (const Device& device : devices) printLine(jsonLine(device));
    else
        printTable(devices);
    for (const Device& device : devices)
        if (const std::string warning = rateWarning(device.openedRate_hz, device.direction());
            !warning.empty() && device.openedRate_hz > 0.0)
            printError(device.name + ": " + warning);
    const auto inputs = std::count_if(devices.begin(), devices.end(),
                                      [](const Device& device) { return device.isMonitor.has_value(); });
    if (devices.empty())
        printError("no sound input or output found: connect a microphone or a loudspeaker, or start the "
                   "sound server");
    else if (inputs == 0)
        printError("no sound input found: connect a microphone");
    else if (static_cast<std::size_t>(inputs) == devices.size())
        printError("no sound output found: connect a loudspeaker");
    return inputs > 0 ? kDone : kNothingHeard;
}

} // namespace

Command addDevices(CLI::App& sorvel) {
    const auto json = std::make_shared<bool>(false);
    CLI::App* const app = sorvel.add_subcommand(
        "devices", "List the sound inputs and outputs, and which of them can carry the band");
    app->footer(kFooter);
    app->add_flag("--json", *json, "one JSON object per line");
    return {app, [json] { return listDevices(*json); }};
}

} // namespace sorvel
