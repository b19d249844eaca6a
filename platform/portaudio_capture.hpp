/// The machine's microphone as a listener's capture source.
///
///     sorvel::Platform platform = sorvel::defaultPlatform();
///     const auto capture = sorvel::PortAudioCapture::make({.device = "USB"});
///     platform.makeAudioEngine = [capture] { return capture; };
///     SorvelUBM listener("acme", platform);
///
/// An input is opened at its own rate, for another one would cost the band: the sound server says
/// which that is, and a device without server is opened at 48, 96 or 44.1 kHz, the first that it
/// has. Devices and rates are looked at anew at each start, so that a stop and a start bring back
/// what was unplugged or restarted.
#pragma once

#include "sdk/platform.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace sorvel {

struct CaptureOptions {
    /// An InputDevice's name, or a part of its name or description that fits no other; empty: the
    /// default.
    std::string device;
    /// Sees each block of 100 ms before the tap does, with or without one; on the capture thread,
    /// under the tap's rules.
    std::function<void(const AudioBuffer&)> observer;
    /// Told in one line when capture ends by itself, and at its end when sound was lost; null:
    /// nobody.
    std::shared_ptr<ProgressLines> lines = standardErrorLines();
};

/// Of the present start of capture, or else of the last one.
struct CaptureStatus {
    std::string device;   ///< the input's name; empty: none was found
    double rate_hz = 0.0; ///< that it was opened with
    std::uint32_t channelCount = 0;
    std::uint64_t overruns = 0;      ///< times that sound was lost, because the machine was not fast enough
    std::uint64_t droppedFrames = 0; ///< how much of it is known
    std::string error; ///< one line: why it did not start, or ended by itself; empty: it did not
};

/// From the library's thread sound goes through a ring of 2 s to the capture thread, which is this
/// engine's own and calls the tap with blocks of 100 ms, at most two channels, interleaved. A tap
/// that falls behind by more loses sound, which is counted.
///
/// An input that goes away, or that delivers nothing for 0.9 s, ends the capture: `isRunning()` is
/// false, `status().error` says so, and stop and start work as ever. In its first 5 s an input may
/// be silent: some take two to begin.
///
/// One input can serve several engines. While one of them runs, another one sees the devices as
/// they were when it started.
///
/// Thread: any but the capture thread. Starting takes some 0.2 s, with a sound server that hangs 4 s;
/// stopping 2 s at most.
class PortAudioCapture final : public AudioEngine,
                               public AudioInputNode,
                               public std::enable_shared_from_this<PortAudioCapture> {
    struct OnlyHere {};

public:
    static std::shared_ptr<PortAudioCapture> make(CaptureOptions options = {});
    PortAudioCapture(OnlyHere, CaptureOptions options);
    ~PortAudioCapture() override;
    PortAudioCapture(const PortAudioCapture&) = delete;
    PortAudioCapture& operator=(const PortAudioCapture&) = delete;

    CaptureStatus status() const;

    std::shared_ptr<AudioInputNode> inputNode() noexcept override;
    bool isRunning() const noexcept override;
    AudioResult start() noexcept override;
    void stop() noexcept override;

    /// Looks for the input that the next start will open. Without one: mono at 48 kHz, and the
    /// start fails.
    AudioFormat outputFormat(std::uint32_t bus) noexcept override;
    void installTap(std::uint32_t bus, std::uint32_t bufferFrames, const AudioFormat& format,
                    TapBlock block) noexcept override;
    void removeTap(std::uint32_t bus) noexcept override;

private:
    struct State;
    const std::unique_ptr<State> m_state;
};

} // namespace sorvel
