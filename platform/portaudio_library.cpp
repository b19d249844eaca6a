#include "platform/portaudio_library.hpp"

#include "platform/quiet_stderr.hpp"

#include <chrono>
#include <portaudio.h>
#include <string>
#include <thread>

namespace sorvel {

namespace {

std::mutex& turns() {
    // Never destroyed: a close that hangs may hold it when the process ends.
    static auto* const mutex = new std::mutex;
    return *mutex;
}

} // namespace

std::unique_lock<std::mutex> portAudioTurn() {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    std::unique_lock lock(turns(), std::try_to_lock);
    while (!lock) {
        if (std::chrono::steady_clock::now() > until)
            throw AudioDeviceError(
                "the sound system does not let go of an input that was closed; restart the "
                "sound server");
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        lock.try_lock();
    }
    return lock;
}

std::unique_lock<std::mutex> portAudioTurnAtLast() noexcept { return std::unique_lock(turns()); }

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
