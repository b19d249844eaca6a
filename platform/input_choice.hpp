#pragma once

#include "platform/pulse_rates.hpp"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace sorvel {

/// In the order of preference: 48000 is what most converters run at, 96000 holds the band as well,
/// and 44100 is the last that does.
inline constexpr std::array<int, 3> kPreferredRates_hz{48000, 96000, 44100};

/// What the sound library has to be told to open an input as it should be.
struct InputChoice {
    std::string name;     ///< for people, and what `sorvel devices` shows
    std::string alsaName; ///< empty: `index` counts
    int index = -1;
    double rate_hz = 0.0;
    std::uint32_t channelCount = 1;
};

/// Chooses an input and its rate.
///
/// @param device  a name as `inputDevices` has it, or a part of one or of a description that fits a
///                single input, without regard to ASCII case; empty: the default input
/// @param server  who is asked for the rates of its sources
/// @throws AudioDeviceError  when there is no such input
///
/// In a turn, while a PortAudioLibrary lives.
InputChoice chooseInput(const std::string& device, const SoundServer& server);

/// The server's sources as choices; none where the sound library has no way to reach the server.
std::vector<InputChoice> serverInputs(const SoundServer& server);
/// The machine's own inputs, with rate 0 where none can be had. Without a server also the names
/// that stand for one of them, like "default".
std::vector<InputChoice> ownInputs(const SoundServer& server);
/// Of the preferred rates those that an own input can be opened with.
std::vector<int> supportedRates(const InputChoice& input);

} // namespace sorvel
