#include "platform/portaudio_library.hpp"

#include "platform/quiet_stderr.hpp"

#include <chrono>
#include <portaudio.h>
#include <string>

namespace sorvel {

namespace {

std::timed_mutex& turns() {
    // Never destroyed: a close that hangs may hold it when the process ends.
    static auto* const mutex = new std::timed_mutex;
    return *mutex;
}

} // namespace

std::unique_lock<std::timed_mutex> portAudioTurn() {
    std::unique_lock lock(turns(), std::chrono::seconds(3));
    if (!lock)
        throw AudioDeviceError("the sound system does not let go of an input that was closed; restart the "
                               "sound server");
    return lock;
}

std::unique_lock<std::timed_mutex> portAudioTurnAtLast() noexcept { return std::unique_lock(turns()); }

PortAudioLibrary::PortAudioLibrary() {
    const QuietStandardError quiet;
    if (const PaError error = Pa_Initialize(); error != paNoError)
        throw AudioDeviceError(std::string("the sound system cannot be used: ") + Pa_GetErrorText(error));
}

PortAudioLibrary::~PortAudioLibrary() {
    const QuietStandardError quiet;
    Pa_Terminate();
}

} // namespace sorvel
