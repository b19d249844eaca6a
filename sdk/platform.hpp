#pragma once

#include "sdk/audio.hpp"
#include "telemetry/environment.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

/// What a platform provides to the listener: everything SorvelUBM touches outside this process's
/// own memory.
///
/// The library `sorvel_platform` implements it for Linux, `PushCapture` takes sound from the
/// application, tests fake it. Take `defaultPlatform()`, exchange single parts, hand
/// the result to SorvelUBM.
namespace sorvel {

/// Runs tasks later, one at a time, in the order they came.
class TaskQueue {
public:
    virtual ~TaskQueue() = default;
    /// Queues `task` and returns at once; never runs it inside this call. Any thread, the capture
    /// thread included: takes no lock that a running task holds.
    virtual void async(std::function<void()> task) = 0;
};

/// Takes the listener's short progress lines ("Sorvel init").
class ProgressLines {
public:
    virtual ~ProgressLines() = default;
    /// One line without its line break. Any thread.
    virtual void line(std::string_view text) noexcept = 0;
};

std::shared_ptr<ProgressLines> standardOutputLines();
std::shared_ptr<ProgressLines> standardErrorLines();

/// From blocks to texts. The listener makes one of these; without a maker in the platform
/// it is the modem behind `CPP_wrapper`, whose calls it has.
///
/// Blocks come converted, to `Decode`, or as the source delivers them, to `DecodeCaptured`, as
/// `prepare` asks at each start of listening. Both run on the capture thread: no allocation, lock,
/// wait or file there.
class Decoder {
public:
    virtual ~Decoder() = default;
    virtual void InitSorvelWave() = 0;
    /// Listening starts: what comes next does not follow what came before. Not on the capture
    /// thread, and no block is under way; may allocate.
    /// @param captured  what the source delivers
    /// @param prefix    in lower case; the same one comes with every `Decode`
    /// @return true: blocks are to come in that format, to `DecodeCaptured`; false: as
    /// kTargetFormat, to `Decode`
    virtual bool prepare([[maybe_unused]] const AudioFormat& captured,
                         [[maybe_unused]] const std::string& prefix) {
        return false;
    }
    /// @return as `Decode`; -1 also for a block in another format than the one prepared for
    virtual std::int32_t DecodeCaptured([[maybe_unused]] const AudioBuffer& block,
                                        [[maybe_unused]] void* payloadBuffer) {
        return -1;
    }
    /// @return characters written to `payloadBuffer` (256 bytes); below 1: nothing that begins with `prefix`
    virtual std::int32_t Decode(const void* waveform, std::int32_t waveformSize, void* payloadBuffer,
                                const std::string& prefix) = 0;
};

/// The parts, as a value: copies share them. None may be null but `http`, `progress`, `makeDecoder`
/// and `gateClock`.
struct Platform : Environment {
    std::shared_ptr<AudioSession> audioSession;
    /// Called once per listener, on the constructing thread.
    std::function<std::shared_ptr<AudioEngine>()> makeAudioEngine;
    /// Called once per start of listening; null when it cannot convert between the two.
    std::function<std::unique_ptr<AudioConverter>(const AudioFormat& from, const AudioFormat& to)>
        makeConverter;
    std::shared_ptr<TaskQueue> mainQueue;                            ///< where callbacks run
    std::shared_ptr<ProgressLines> progress = standardOutputLines(); ///< null: silent
    std::function<std::unique_ptr<Decoder>()> makeDecoder;           ///< empty: the modem. The
    ///< one to take is `makeDeepDecoder` (platform/deep_decoder.hpp), which hears 9 dB further down
    /// The sound's own time, for the second within which texts are repeats, where that is not the
    /// time of day: of recordings. Null: `clock`, which events carry in any case.
    std::shared_ptr<Clock> gateClock;
};

/// The machine's own platform: default microphone, main queue `MainQueue::main()`, settings in the
/// user's configuration folder, HTTPS. Its parts are made at the first call and live until the
/// process ends; that call also sets the shared environment. Link `sorvel_platform`.
///
/// Thread: any.
Platform defaultPlatform();

} // namespace sorvel
