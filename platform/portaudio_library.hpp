#pragma once

#include "platform/portaudio_devices.hpp" // for AudioDeviceError

#include <mutex>

namespace sorvel {

/// The line about a sound server that is there but hangs. Whatever opens an input then would hang
/// too, so ask the server first.
inline constexpr const char* kServerIsSilent = "the sound server does not answer: restart it";

/// Sound library calls that open, close or list come one at a time, for the library has no lock of
/// its own.
/// @throws AudioDeviceError when another one has hung for 3 s
std::unique_lock<std::mutex> portAudioTurn();
/// Waits for as long as it takes.
std::unique_lock<std::mutex> portAudioTurnAtLast() noexcept;

/// The sound library from start to end, with the list of devices as it is at the start of the first
/// of these that lives. Make and destroy it in a turn.
class PortAudioLibrary {
public:
    PortAudioLibrary(); ///< @throws AudioDeviceError
    ~PortAudioLibrary();
    PortAudioLibrary(const PortAudioLibrary&) = delete;
    PortAudioLibrary& operator=(const PortAudioLibrary&) = delete;
};

} // namespace sorvel
