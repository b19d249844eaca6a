/// The machine's microphone as a listener's capture source.
///
///     sorvel::Platform platform = sorvel::defaultPlatform();
///     const auto capture = sorvel::CubebCapture::make({.device = "USB"});
///     platform.makeAudioEngine = [capture] { return capture; };
///     SorvelUBM listener("acme", platform);
///
/// An input is opened at its own rate, for another one would cost the band: the sound server says
/// which that is, and a device without server is opened at 48, 96 or 44.1 kHz, the first that it
/// has. Devices and rates are looked at anew at each start, so that a stop and a start bring back
/// what was unplugged or restarted. When another input becomes the default one, a capture of the
/// default goes on there.
#pragma once

#include "sdk/platform.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace sorvel {

struct CaptureOptions {
    /// An InputDevice's name, or a part of its name or description that fits no
    /// other; empty: the default.
    std::string device;
    /// Sees each block of 100 ms before the tap does, with or without one; on the capture thread,
    /// under the tap's rules.
    std::function<void(const AudioBuffer&)> observer;
    /// Told in one line when capture ends by itself, on a thread that nothing waits for, and at its
    /// end when sound was lost; null: nobody.
    std::shared_ptr<ProgressLines> lines = standardErrorLines();
    /// Of an input with two channels: 1 or 2; none: the better one, see ChannelChoice.
    std::optional<std::uint32_t> channel = std::nullopt;
};

/// Of the present start of capture, or else of the last one.
struct CaptureStatus {
    std::string device;              ///< the name of the input that it is on; empty: none was found
    double rate_hz = 0.0;            ///< that it was opened with
    std::uint32_t channelCount = 0;  ///< that were opened, of which one is heard
    std::uint64_t overruns = 0;      ///< times that sound was lost, because the machine was not fast enough
    std::uint64_t droppedFrames = 0; ///< how much of it is known
    std::string error; ///< one line: why it did not start, or ended by itself; empty: it did not
};

/// From the library's thread sound goes through a ring of 2 s to the capture thread, which is this
/// engine's own and calls the tap with blocks of 100 ms: one channel, of at most two that are opened. A tap
/// that falls behind by more loses sound, which is counted.
///
/// An input that goes away, or that delivers nothing for 0.9 s (from a server 2.5 s), ends the
/// capture: `isRunning()` is false, `status().error` and the end notice say so, and stop and start
/// work as ever. In its first 5 s an input may be silent: some take two to begin. A new default
/// input of another rate ends it too, as `EngineEnd::InputChanged`.
///
/// One input can serve several engines.
///
/// Thread: any but the capture thread. Starting takes some 20 ms, with a sound server that hangs up
/// to 8 s; stopping 2 s at most.
class CubebCapture final : public AudioEngine,
                           public AudioInputNode,
                           public std::enable_shared_from_this<CubebCapture> {
    struct OnlyHere {};

public:
    static std::shared_ptr<CubebCapture> make(CaptureOptions options = {});
    CubebCapture(OnlyHere, CaptureOptions options);
    ~CubebCapture() override;
    CubebCapture(const CubebCapture&) = delete;
    CubebCapture& operator=(const CubebCapture&) = delete;

    CaptureStatus status() const;

    std::shared_ptr<AudioInputNode> inputNode() noexcept override;
    bool isRunning() const noexcept override;
    AudioResult start() noexcept override;
    void stop() noexcept override;
    void setEndNotice(EndNotice notice) noexcept override;

    /// Opens the input that the next start will take sound from. Without one: mono at 48 kHz, and
    /// the start fails.
    AudioFormat outputFormat(std::uint32_t bus) noexcept override;
    void installTap(std::uint32_t bus, std::uint32_t bufferFrames, const AudioFormat& format,
                    TapBlock block) noexcept override;
    void removeTap(std::uint32_t bus) noexcept override;

private:
    struct State;
    const std::unique_ptr<State> m_state;
};

} // namespace sorvel
