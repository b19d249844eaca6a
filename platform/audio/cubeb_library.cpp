#include "platform/audio/cubeb_library.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <istream>
#include <semaphore>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <thread>
#include <tuple>
#include <unistd.h>

namespace sorvel {

namespace {

// More are seldom microphones, and none of them is nearer to the sound.
constexpr std::uint32_t kMostChannels = 2;

std::string text(const char* characters) { return characters != nullptr ? characters : ""; }

std::string lowerCased(std::string text) {
    for (char& letter : text)
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    return text;
}

std::string environment(const char* variable) { return text(std::getenv(variable)); }

std::string serverSocket() {
    std::string path = environment("PULSE_SERVER");
    if (path.starts_with("unix:")) path.erase(0, 5);
    if (!path.empty()) return path;
    path = environment("PULSE_RUNTIME_PATH");
    return path.empty() ? environment("XDG_RUNTIME_DIR") + "/pulse/native" : path + "/native";
}

/// A server that hangs lets a few clients wait for it and turns away those after them, which then
/// seem to have none.
bool isTurnedAway() {
    const std::string path = serverSocket();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return false;
    path.copy(address.sun_path, path.size());
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (socket < 0) return false;
    const int result = ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const bool isFull = result != 0 && errno == EAGAIN;
    ::close(socket);
    return isFull;
}

std::binary_semaphore& turn() {
    // Never destroyed: a call that hangs may hold it when the process ends.
    static auto* const semaphore = new std::binary_semaphore(1);
    return *semaphore;
}

long hearNothing(cubeb_stream*, void*, const void*, void*, long frames) { return frames; }
void noteNothing(cubeb_stream*, void*, cubeb_state) {}

} // namespace

CubebLibrary::CubebLibrary(const char* none) {
    cubeb* opened = nullptr;
    if (cubebFunctions().init(&opened, "sorvel", nullptr) != CUBEB_OK) throw AudioDeviceError(none);
    m_handle.reset(opened);
    if (!isServed() && isTurnedAway()) throw AudioDeviceError(kServerIsSilent);
}

bool CubebLibrary::isBackend(const char* name) const noexcept {
    return std::string_view(cubebFunctions().get_backend_id(m_handle.get())) == name;
}

bool CubebLibrary::isServed() const noexcept { return isBackend("pulse"); }

std::vector<CubebInput> CubebLibrary::inputs() const {
    std::vector<CubebInput> inputs;
    const std::string chosen = isServed() ? environment("PULSE_SOURCE") : ""; // as for every client
    cubeb_device_collection listed{};
    if (cubebFunctions().enumerate_devices(m_handle.get(), CUBEB_DEVICE_TYPE_INPUT, &listed) == CUBEB_OK) {
        for (std::size_t at = 0; at < listed.count; ++at) {
            const cubeb_device_info& info = listed.device[at];
            CubebInput input{text(info.device_id), text(info.friendly_name),
                             isBackend("alsa") ? 0.0 : info.default_rate, // always told to be 44100 there
                             std::clamp(info.max_channels, 1U, kMostChannels)};
            input.isDefault =
                chosen.empty() ? (info.preferred & CUBEB_DEVICE_PREF_MULTIMEDIA) != 0 : input.name == chosen;
            input.isMonitor = isServed() && input.name.ends_with(".monitor");
            if (input.description == input.name) input.description.clear();
            inputs.push_back(std::move(input));
        }
        cubebFunctions().device_collection_destroy(m_handle.get(), &listed);
    } else if (isServed()) {
        throw AudioDeviceError("the sound server does not list its inputs: restart it");
    } else if (isBackend("alsa")) {
        // The library asks for the default device's channels with parameters of which it sets only a
        // part: what the stack holds may then pass for a request that ALSA refuses.
        const CubebInput usual{"default", "", 0.0, kMostChannels, /*isDefault=*/true};
        const std::vector<double> rates = ratesToTry(usual);
        if (std::any_of(rates.begin(), rates.end(), [&](double rate_hz) { return opens(usual, rate_hz); }))
            inputs.push_back(usual);
    }
    if (isBackend("alsa")) {
        std::ifstream table("/proc/asound/pcm");
        for (CubebInput& input : alsaInputs(table)) inputs.push_back(std::move(input));
    }
    const auto rank = [](const CubebInput& input) {
        return std::make_tuple(!input.isDefault, input.isMonitor, input.name);
    };
    std::sort(inputs.begin(), inputs.end(),
              [&](const CubebInput& a, const CubebInput& b) { return rank(a) < rank(b); });
    return inputs;
}

std::vector<double> CubebLibrary::ratesToTry(const CubebInput& input) const {
    if (input.rate_hz > 0.0) return {input.rate_hz};
    return {kPreferredRates_hz.begin(), kPreferredRates_hz.end()};
}

CubebLibrary::Stream CubebLibrary::open(const CubebInput& input, bool asDefault, double rate_hz,
                                        std::uint32_t blockFrames,
                                        const Callbacks& callbacks) const noexcept {
    cubeb_stream_params parameters{};
    parameters.format = CUBEB_SAMPLE_FLOAT32NE;
    parameters.rate = static_cast<std::uint32_t>(rate_hz);
    parameters.channels = input.channelCount;
    parameters.layout = CUBEB_LAYOUT_UNDEFINED;
    parameters.prefs = CUBEB_STREAM_PREF_NONE;
    cubeb_stream* opened = nullptr;
    // PulseAudio's and ALSA's identifiers are names. Without one the server moves the stream along
    // when another input becomes the default.
    const int result = cubebFunctions().stream_init(
        m_handle.get(), &opened, "sorvel", asDefault ? nullptr : input.name.c_str(), &parameters, nullptr,
        nullptr, blockFrames, callbacks.data, callbacks.state, callbacks.user);
    return Stream(result == CUBEB_OK ? opened : nullptr);
}

bool CubebLibrary::opens(const CubebInput& input, double rate_hz) const noexcept {
    return open(input, false, rate_hz, 4800, {hearNothing, noteNothing, nullptr}) != nullptr;
}

const CubebInput& chooseInput(const std::vector<CubebInput>& inputs, const std::string& device) {
    return chooseDevice(inputs, device, "input", kNoInput);
}

const CubebInput& chooseDevice(const std::vector<CubebInput>& devices, const std::string& device,
                               const std::string& word, const char* none) {
    std::vector<const CubebInput*> fitting;
    const std::string wanted = lowerCased(device);
    for (const CubebInput& each : devices) {
        if (device.empty() ? each.isDefault : each.name == device) return each;
        if (lowerCased(each.name + '\n' + each.description).find(wanted) != std::string::npos)
            fitting.push_back(&each);
    }
    if (devices.empty()) throw AudioDeviceError(none);
    if (device.empty())
        throw AudioDeviceError("no " + word +
                               " is the default one: choose one of those that 'sorvel devices' lists");
    if (fitting.size() == 1) return *fitting.front();
    throw AudioDeviceError(
        (fitting.empty() ? "no " + word + " is called \"" : "several " + word + "s are called \"") + device +
        "\": 'sorvel devices' lists them");
}

std::vector<CubebInput> alsaInputs(std::istream& table) { return alsaDevices(table, "capture"); }

std::vector<CubebInput> alsaDevices(std::istream& table, const std::string& use) {
    std::vector<CubebInput> devices;
    for (std::string line; std::getline(table, line);) {
        unsigned card = 0, device = 0;
        if (std::sscanf(line.c_str(), "%2u-%2u:", &card, &device) != 2) continue;
        if (line.find(": " + use + " ") == std::string::npos) continue;
        // What stands before the device converts the sample's type, and only where needed the rate.
        const std::string name = "plughw:" + std::to_string(card) + "," + std::to_string(device);
        const std::size_t from = std::min(line.find(':') + 2, line.size());
        devices.push_back({name, line.substr(from, line.find(" :", from) - from), 0.0, kMostChannels});
    }
    return devices;
}

void startAlone(std::function<void()> work) {
    if (!turn().try_acquire_for(std::chrono::seconds(4))) throw AudioDeviceError(kServerIsSilent);
    try {
        std::thread([work = std::move(work)]() mutable {
            work();
            work = nullptr; // with what nobody took of it
            turn().release();
        }).detach();
    } catch (const std::system_error&) { // no thread to be had
        turn().release();
        throw;
    }
}

} // namespace sorvel
