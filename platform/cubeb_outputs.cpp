#include "platform/cubeb_outputs.hpp"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>
#include <tuple>
#include <utility>

namespace sorvel {

namespace {

// Where no server spreads one channel over all, two are filled alike.
constexpr std::uint32_t kMostChannels = 2;

std::string text(const char* characters) { return characters != nullptr ? characters : ""; }

long giveNothing(cubeb_stream*, void*, const void*, void*, long) { return 0; }
void noteNothing(cubeb_stream*, void*, cubeb_state) {}

} // namespace

std::vector<CubebOutput> outputs(const CubebLibrary& library) {
    std::vector<CubebOutput> outputs;
    const bool isServed = library.isServed(), isAlsa = library.isBackend("alsa");
    const std::string chosen = isServed ? text(std::getenv("PULSE_SINK")) : ""; // as for every client
    cubeb_device_collection listed{};
    // An error is what a machine without a server and without a default device gives.
    if (cubeb_enumerate_devices(library.handle(), CUBEB_DEVICE_TYPE_OUTPUT, &listed) == CUBEB_OK) {
        for (std::size_t at = 0; at < listed.count; ++at) {
            const cubeb_device_info& info = listed.device[at];
            CubebOutput output{text(info.device_id), text(info.friendly_name),
                               isAlsa ? 0.0 : info.default_rate, // always told to be 44100 there
                               isServed ? 1 : std::clamp(info.max_channels, 1U, kMostChannels)};
            output.isDefault =
                chosen.empty() ? (info.preferred & CUBEB_DEVICE_PREF_MULTIMEDIA) != 0 : output.name == chosen;
            if (output.description == output.name) output.description.clear();
            outputs.push_back(std::move(output));
        }
        cubeb_device_collection_destroy(library.handle(), &listed);
    } else if (isServed) {
        throw AudioDeviceError("the sound server does not list its outputs: restart it");
    }
    if (isAlsa) {
        std::ifstream table("/proc/asound/pcm");
        for (CubebOutput& output : alsaDevices(table, "playback")) outputs.push_back(std::move(output));
    }
    std::sort(outputs.begin(), outputs.end(), [](const CubebOutput& a, const CubebOutput& b) {
        return std::make_tuple(!a.isDefault, a.name) < std::make_tuple(!b.isDefault, b.name);
    });
    return outputs;
}

CubebLibrary::Stream openOutput(const CubebLibrary& library, const CubebOutput& output, bool asDefault,
                                double rate_hz, std::uint32_t blockFrames,
                                const CubebLibrary::Callbacks& callbacks) noexcept {
    cubeb_stream_params parameters{};
    parameters.format = CUBEB_SAMPLE_FLOAT32NE;
    parameters.rate = static_cast<std::uint32_t>(rate_hz);
    parameters.channels = output.channelCount;
    parameters.layout = output.channelCount == 1 ? CUBEB_LAYOUT_MONO : CUBEB_LAYOUT_STEREO;
    parameters.prefs = CUBEB_STREAM_PREF_NONE;
    cubeb_stream* opened = nullptr;
    const int result = cubeb_stream_init(library.handle(), &opened, "sorvel", nullptr, nullptr,
                                         asDefault ? nullptr : output.name.c_str(), &parameters, blockFrames,
                                         callbacks.data, callbacks.state, callbacks.user);
    return CubebLibrary::Stream(result == CUBEB_OK ? opened : nullptr);
}

bool opens(const CubebLibrary& library, const CubebOutput& output, double rate_hz) noexcept {
    return openOutput(library, output, false, rate_hz, 4800, {giveNothing, noteNothing, nullptr}) != nullptr;
}

bool startOutput(cubeb_stream* stream) noexcept { return cubeb_stream_start(stream) == CUBEB_OK; }

} // namespace sorvel
