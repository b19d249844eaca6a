#include "platform/audio/cubeb_outputs.hpp"

#include "platform/audio/cubeb_functions.hpp"

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

/// What the library lists.
std::vector<CubebOutput> listed(const CubebLibrary& library) {
    const bool isServed = library.isServed();
    const std::string chosen = isServed ? text(std::getenv("PULSE_SINK")) : ""; // as for every client
    std::vector<CubebOutput> outputs;
    cubeb_device_collection found{};
    if (cubebFunctions().enumerate_devices(library.handle(), CUBEB_DEVICE_TYPE_OUTPUT, &found) != CUBEB_OK) {
        if (isServed) throw AudioDeviceError("the sound server does not list its outputs: restart it");
        return outputs;
    }
    for (std::size_t at = 0; at < found.count; ++at) {
        const cubeb_device_info& info = found.device[at];
        CubebOutput output{text(info.device_id), text(info.friendly_name), 1.0 * info.default_rate,
                           isServed ? 1 : std::clamp(info.max_channels, 1U, kMostChannels)};
        output.isDefault =
            chosen.empty() ? (info.preferred & CUBEB_DEVICE_PREF_MULTIMEDIA) != 0 : output.name == chosen;
        if (output.description == output.name) output.description.clear();
        outputs.push_back(std::move(output));
    }
    cubebFunctions().device_collection_destroy(library.handle(), &found);
    return outputs;
}

/// The library's own list holds "default" alone, and now and then nothing, as it reads memory that
/// it has not set. So that one is opened to see whether it is there.
std::vector<CubebOutput> alsaOutputs(const CubebLibrary& library) {
    std::ifstream table("/proc/asound/pcm");
    std::vector<CubebOutput> outputs = alsaDevices(table, "playback");
    CubebOutput standard{"default", "", 0.0, kMostChannels};
    standard.isDefault = true;
    const std::vector<double> rates_hz = library.ratesToTry(standard);
    if (std::any_of(rates_hz.begin(), rates_hz.end(),
                    [&](double rate_hz) { return opens(library, standard, rate_hz); }))
        outputs.push_back(std::move(standard));
    return outputs;
}

} // namespace

std::vector<CubebOutput> outputs(const CubebLibrary& library) {
    std::vector<CubebOutput> outputs = library.isBackend("alsa") ? alsaOutputs(library) : listed(library);
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
    const int result = cubebFunctions().stream_init(
        library.handle(), &opened, "sorvel", nullptr, nullptr, asDefault ? nullptr : output.name.c_str(),
        &parameters, blockFrames, callbacks.data, callbacks.state, callbacks.user);
    return CubebLibrary::Stream(result == CUBEB_OK ? opened : nullptr);
}

bool opens(const CubebLibrary& library, const CubebOutput& output, double rate_hz) noexcept {
    return openOutput(library, output, false, rate_hz, 4800, {giveNothing, noteNothing, nullptr}) != nullptr;
}

bool startOutput(cubeb_stream* stream) noexcept { return cubebFunctions().stream_start(stream) == CUBEB_OK; }

} // namespace sorvel
