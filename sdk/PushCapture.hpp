#pragma once

#include "sdk/MyError.hpp"
#include "sdk/platform.hpp"

#include <cstdint>
#include <memory>
#include <span>

/// Lets an application that owns the microphone feed a listener with what it captures.
///
///     PushCapture capture(48000.0, 2, sorvel::defaultPlatform());
///     SorvelUBM listener("acme", capture.platform());
///     listener.startListening();
///     // on the application's capture thread, any number of frames at a time:
///     capture.push(samples);
///
/// Pushed sound is cut into blocks of 100 ms; each is converted and decoded inside the `push` that
/// completes it, so on the pushing thread. Serves one listener. The rest is taken from the platform
/// it was made with.
///
/// Capture at the microphone's own rate, 44.1 kHz or more: another rate conversion on the way may
/// take away the band from 18.0 to 19.5 kHz.
class PushCapture {
public:
    /// @param sampleRate    Hz, 8000 to 384000, as close to the true one as is known
    /// @param channelCount  1 to 64; the converter mixes them down
    /// @throws MyError for another rate or count
    PushCapture(double sampleRate, std::uint32_t channelCount, const sorvel::Platform& platform);
    ~PushCapture(); ///< a listener made from `platform()` may outlive it, and hears nothing more

    PushCapture(const PushCapture&) = delete;
    PushCapture& operator=(const PushCapture&) = delete;

    /// For the listener's constructor.
    const sorvel::Platform& platform() const noexcept { return m_platform; }

    /// Takes captured samples, frames of interleaved channels, full scale 1.0.
    /// @return false, and nothing is taken, if they are not whole frames, if the listener is not
    ///         listening or is being started or stopped at this moment, or if another thread is inside
    ///         `push`
    ///
    /// Thread: one at a time. Neither allocates, locks nor waits beyond what decoding does, however
    /// long the buffer.
    bool push(std::span<const float> interleaved) noexcept;
    /// The same for 16-bit samples, full scale 32768.
    bool push(std::span<const std::int16_t> interleaved) noexcept;

private:
    class Source;
    std::shared_ptr<Source> m_source;
    sorvel::Platform m_platform;
};
