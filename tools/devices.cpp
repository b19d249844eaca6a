#include "platform/cubeb_devices.hpp"
#include "tools/command.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace sorvel {

namespace {

constexpr const char* kFooter =
    "Examples:\n"
    "  sorvel devices\n"
    "  sorvel devices --json | grep '\"default\":true'\n"
    "The default input has a star. 'own rate' is the one that the input itself runs at, where that is known, "
    "and\n"
    "'opened at' the one that a listener uses. With --json each line is an object: name, description, "
    "default,\n"
    "monitor, own_rate, opened_at, rates, carries_band; rates in Hz.\n"
    "Exit status: 0 there are inputs, 1 there is none, 2 the sound system fails.";

std::string hertz(double rate_hz) {
    return rate_hz > 0.0 ? std::to_string(std::lround(rate_hz)) + " Hz" : "unknown";
}

std::string jsonLine(const InputDevice& device) {
    nlohmann::ordered_json line;
    const auto rate = [](double rate_hz) {
        return rate_hz > 0.0 ? nlohmann::ordered_json(std::lround(rate_hz)) : nlohmann::ordered_json();
    };
    line["name"] = device.name;
    line["description"] = device.description;
    line["default"] = device.isDefault;
    line["monitor"] = device.isMonitor;
    line["own_rate"] = rate(device.nativeRate_hz);
    line["opened_at"] = rate(device.captureRate_hz);
    line["rates"] = device.supportedRates_hz;
    line["carries_band"] = carriesBand(device.captureRate_hz);
    return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

/// Columns are as wide as their longest entry; the last one, for people, is not padded.
void printTable(const std::vector<InputDevice>& devices) {
    std::vector<std::vector<std::string>> rows{
        {"", "name", "own rate", "opened at", "18-19.5 kHz", "description"}
    };
    for (const InputDevice& device : devices)
        rows.push_back({device.isDefault ? "*" : "", device.name, hertz(device.nativeRate_hz),
                        device.captureRate_hz > 0.0 ? hertz(device.captureRate_hz) : "busy",
                        carriesBand(device.captureRate_hz) ? "yes" : "no", device.description});
    std::vector<std::size_t> widths(rows.front().size());
    for (const auto& row : rows)
        for (std::size_t at = 0; at < row.size(); ++at) widths[at] = std::max(widths[at], row[at].size());
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t at = 0; at + 1 < row.size(); ++at) line += padded(row[at], widths[at]) + "  ";
        line += row.back();
        printLine(line.substr(0, line.find_last_not_of(' ') + 1));
    }
}

int listDevices(bool json) {
    const std::vector<InputDevice> devices = inputDevices();
    if (devices.empty()) {
        printError("no sound input found: connect a microphone or start the sound server");
        return kNothingHeard;
    }
    if (json)
        for (const InputDevice& device : devices) printLine(jsonLine(device));
    else
        printTable(devices);
    for (const InputDevice& device : devices)
        if (const std::string warning = rateWarning(device.captureRate_hz);
            !warning.empty() && device.captureRate_hz > 0.0)
            printError(device.name + ": " + warning);
    return kDone;
}

} // namespace

Command addDevices(CLI::App& sorvel) {
    const auto json = std::make_shared<bool>(false);
    CLI::App* const app =
        sorvel.add_subcommand("devices", "List the sound inputs, and which of them can carry the band");
    app->footer(kFooter);
    app->add_flag("--json", *json, "one JSON object per line");
    return {app, [json] { return listDevices(*json); }};
}

} // namespace sorvel
