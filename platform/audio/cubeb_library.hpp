#pragma once

#include "platform/audio/cubeb_devices.hpp" // for AudioDeviceError
#include "platform/audio/cubeb_functions.hpp"

#include <array>
#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <future>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace sorvel {

inline constexpr const char* kServerIsSilent = "the sound server does not answer: restart it";
inline constexpr const char* kNoInput =
    "no sound input found: connect a microphone or start the sound server";
inline constexpr const char* kNoOutput =
    "no sound output found: connect a loudspeaker or start the sound server";

/// In the order of preference: 48000 is what most converters run at, 96000 holds the band as well,
/// and 44100 is the last that does.
inline constexpr std::array<int, 3> kPreferredRates_hz{48000, 96000, 44100};

struct CubebInput {
    std::string name; ///< for people, and by which it is chosen
    std::string description;
    double rate_hz = 0.0; ///< its own; 0: not known
    std::uint32_t channelCount = 1;
    bool isDefault = false;
    bool isMonitor = false; ///< hears what the machine plays
};

/// One connection with the machine's sound system: a server (PulseAudio or PipeWire) if there is
/// one, else the devices themselves.
///
/// Every call may wait for a server's answer, for ever if it hangs: see `inTime`.
class CubebLibrary {
public:
    struct Callbacks {
        cubeb_data_callback data = nullptr;
        cubeb_state_callback state = nullptr;
        void* user = nullptr;
    };
    struct Close {
        void operator()(cubeb* library) const noexcept { cubebFunctions().destroy(library); }
        void operator()(cubeb_stream* stream) const noexcept {
            cubebFunctions().stream_stop(stream);
            cubebFunctions().stream_destroy(stream);
        }
    };
    using Stream = std::unique_ptr<cubeb_stream, Close>;

    /// @throws AudioDeviceError  with `none`, when there is no sound system; SharedLibraryError
    explicit CubebLibrary(const char* none = kNoInput);

    cubeb* handle() const noexcept { return m_handle.get(); }
    bool isBackend(const char* name) const noexcept;

    /// Sound comes from a server, which converts to any rate and to one channel.
    bool isServed() const noexcept;
    /// The default one first, then microphones before monitors, by name.
    /// @throws AudioDeviceError  when they cannot be listed
    std::vector<CubebInput> inputs() const;
    /// Its own rate, or where that is not known those it may have, best first.
    std::vector<double> ratesToTry(const CubebInput& input) const;
    /// Opens an input, as long as this lives. @return null: it cannot be opened
    Stream open(const CubebInput& input, bool asDefault, double rate_hz, std::uint32_t blockFrames,
                const Callbacks& callbacks) const noexcept;
    bool opens(const CubebInput& input, double rate_hz) const noexcept;

private:
    std::unique_ptr<cubeb, Close> m_handle;
};

/// @param device  an input's name, or a part of one or of a description that fits a single input,
///                without regard to ASCII case; empty: the default input
/// @throws AudioDeviceError  when there is no such input
const CubebInput& chooseInput(const std::vector<CubebInput>& inputs, const std::string& device);

/// The same for inputs or outputs: what messages call them, and the one that says there is none.
const CubebInput& chooseDevice(const std::vector<CubebInput>& devices, const std::string& device,
                               const std::string& word, const char* none);

/// The inputs in Linux's table of sound devices (/proc/asound/pcm).
std::vector<CubebInput> alsaInputs(std::istream& table);
/// Those that do one thing: "capture" or "playback".
std::vector<CubebInput> alsaDevices(std::istream& table, const std::string& use);

/// Starts `work` on a thread of its own once no other is under way. @throws AudioDeviceError when
/// another one has hung for 4 s
void startAlone(std::function<void()> work);

/// What `work`, which talks to the sound system, answers. If it takes more than 4 s it is left to
/// itself, and until it is through no other one begins: so one that hangs is the only one.
/// @throws AudioDeviceError  when the sound system hangs, or with what `work` threw
template <typename Work>
std::invoke_result_t<Work> inTime(Work work) {
    struct Outcome {
        std::optional<std::invoke_result_t<Work>> result;
        std::string error; // as text: an exception that two threads hold ends on either
    };
    const auto promise = std::make_shared<std::promise<Outcome>>();
    std::future<Outcome> outcome = promise->get_future();
    startAlone([promise, work = std::move(work)] {
        Outcome made;
        try {
            made.result = work();
        } catch (const std::exception& error) {
            made.error = error.what();
        }
        promise->set_value(std::move(made));
    });
    if (outcome.wait_for(std::chrono::seconds(4)) != std::future_status::ready)
        throw AudioDeviceError(kServerIsSilent);
    Outcome made = outcome.get();
    if (!made.result) throw AudioDeviceError(made.error);
    return *std::move(made.result);
}

} // namespace sorvel
