#include "platform/input_choice.hpp"

#include "platform/portaudio_library.hpp"
#include "platform/quiet_stderr.hpp"

#include <algorithm>
#include <optional>
#include <portaudio.h>
#include <string_view>

namespace sorvel {

namespace {

// More are seldom microphones, and none of them is nearer to the sound.
constexpr int kMostChannels = 2;

// These convert to another rate, and with it take away the band, or only stand for the default input.
constexpr std::array<std::string_view, 5> kDetours{"lavrate", "samplerate", "speexrate", "upmix", "vdownmix"};

bool isAlsa(const PaDeviceInfo& info) {
    const PaHostApiInfo* const host = Pa_GetHostApiInfo(info.hostApi);
    return host != nullptr && host->type == paALSA;
}

std::optional<int> alsaInput(std::string_view name) {
    for (int index = 0; index < Pa_GetDeviceCount(); ++index) {
        const PaDeviceInfo* const info = Pa_GetDeviceInfo(index);
        if (info != nullptr && info->maxInputChannels > 0 && name == info->name && isAlsa(*info))
            return index;
    }
    return std::nullopt;
}

InputChoice ownInput(int index, const PaDeviceInfo& info) {
    InputChoice input{info.name, "", index, 0.0,
                      static_cast<std::uint32_t>(std::min(info.maxInputChannels, kMostChannels))};
    const std::vector<int> rates = supportedRates(input);
    input.rate_hz = rates.empty() ? info.defaultSampleRate : rates.front();
    return input;
}

std::string lowerCased(std::string text) {
    for (char& letter : text)
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    return text;
}

InputChoice defaultInput(const SoundServer& server) {
    const std::vector<InputChoice> sources = serverInputs(server);
    if (const ServerSource* const source = server.defaultSource()) {
        for (const InputChoice& input : sources) {
            if (input.name != source->name) continue;
            InputChoice chosen = input;
            // Without the source's name the user can still move the capture in the mixer.
            if (!chosen.alsaName.empty()) chosen.alsaName = "pulse";
            return chosen;
        }
    }
    const int index = Pa_GetDefaultInputDevice();
    if (const PaDeviceInfo* const info = index >= 0 ? Pa_GetDeviceInfo(index) : nullptr)
        return ownInput(index, *info);
    if (server.defaultSource() != nullptr)
        throw AudioDeviceError(
            "the sound server's inputs cannot be reached: install ALSA's plugin for it (libasound2-plugins)");
    throw AudioDeviceError("no sound input found: connect a microphone or start the sound server");
}

} // namespace

std::vector<int> supportedRates(const InputChoice& input) {
    const QuietStandardError quiet;
    const PaStreamParameters parameters{input.index, static_cast<int>(input.channelCount), paFloat32, 0.1,
                                        nullptr};
    std::vector<int> rates;
    for (const int rate_hz : kPreferredRates_hz)
        if (Pa_IsFormatSupported(&parameters, nullptr, rate_hz) == paFormatIsSupported)
            rates.push_back(rate_hz);
    return rates;
}

std::vector<InputChoice> serverInputs(const SoundServer& server) {
    std::vector<InputChoice> inputs;
    const std::optional<int> byName = alsaInput("pulse");
    std::optional<int> toDefault = alsaInput("pipewire");
    if (!toDefault) toDefault = alsaInput("default");
    for (const ServerSource& source : server.sources) {
        // One channel: the server mixes.
        if (byName && source.name.find('\'') == std::string::npos)
            inputs.push_back({source.name, "pulse:DEVICE='" + source.name + "'", -1, source.rate_hz, 1});
        else if (source.isDefault && toDefault)
            inputs.push_back({source.name, "", *toDefault, source.rate_hz, 1});
    }
    return inputs;
}

std::vector<InputChoice> ownInputs(const SoundServer& server) {
    std::vector<InputChoice> inputs;
    for (int index = 0; index < Pa_GetDeviceCount(); ++index) {
        const PaDeviceInfo* const info = Pa_GetDeviceInfo(index);
        if (info == nullptr || info->maxInputChannels < 1) continue;
        const std::string_view name = info->name;
        const bool isStandIn = isAlsa(*info) && name.find("(hw:") == std::string_view::npos;
        const bool isDetour = std::find(kDetours.begin(), kDetours.end(), name) != kDetours.end();
        if (isDetour || (isStandIn && server.state == ServerState::Answers)) continue;
        inputs.push_back(ownInput(index, *info));
    }
    return inputs;
}

InputChoice chooseInput(const std::string& device, const SoundServer& server) {
    if (device.empty()) return defaultInput(server);
    std::vector<InputChoice> inputs = serverInputs(server);
    const std::vector<InputChoice> own = ownInputs(server);
    inputs.insert(inputs.end(), own.begin(), own.end());

    const std::string wanted = lowerCased(device);
    std::vector<const InputChoice*> fitting;
    for (const InputChoice& input : inputs) {
        if (input.name == device) return input;
        const ServerSource* const source = server.find(input.name);
        const std::string described = input.name + '\n' + (source != nullptr ? source->description : "");
        if (lowerCased(described).find(wanted) != std::string::npos) fitting.push_back(&input);
    }
    if (fitting.size() == 1) return *fitting.front();
    throw AudioDeviceError((fitting.empty() ? "no input is called \"" : "several inputs are called \"") +
                           device + "\": 'sorvel devices' lists them");
}

} // namespace sorvel
