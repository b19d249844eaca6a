/// What a PulseAudio or PipeWire server says about its sources. A capture through ALSA does not
/// learn their rates, and a capture at another rate loses the band: the server's own conversion
/// takes up to 10 dB at 19.5 kHz.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sorvel {

struct ServerSource {
    std::string name;
    std::string description;
    double rate_hz = 0.0;
    bool isDefault = false;
    bool isMonitor = false; ///< hears what a sink plays
};

enum class ServerState : std::uint8_t { Absent, Silent, Answers };

struct SoundServer {
    ServerState state = ServerState::Absent; ///< Silent: connected to, but no answer in time
    std::vector<ServerSource> sources;       ///< microphones before monitors, by name

    const ServerSource* defaultSource() const noexcept;               ///< null: none
    const ServerSource* find(const std::string& name) const noexcept; ///< null: not one of its sources
};

/// Asks the server that PULSE_SERVER or the user's configuration names; starts none. PULSE_SOURCE
/// counts as the default source, as it does for captures.
///
/// @param timeout_s  the longest it may take; without a server it takes a few milliseconds
///
/// Thread: any; waits. Built without libpulse: Absent.
SoundServer askSoundServer(double timeout_s = 1.0);

} // namespace sorvel
