#include "platform/files/wav_writer.hpp"
#include "tools/command.hpp"
#include "tools/heard_line.hpp"
#include "tools/simulated_air.hpp"
#include "tools/text_receiver.hpp"
#include "tools/transmission.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace sorvel {

namespace {

constexpr const char* kText = "acme_1234";
constexpr const char* kPrefix = "acme";

// A quiet room and a phone some metres from the loudspeaker.
constexpr double kRt60_s = 0.4;
constexpr double kDirectToRoom_db = 0.0;
constexpr double kSnr_db = 6.0;
constexpr double kClockError_ppm = 50.0;
constexpr double kLevel_db = -30.0;

struct DemoOptions {
    bool json = false;
    std::uint32_t seed = 1;
    std::string output;
};

constexpr const char* kFooter =
    "Examples:\n"
    "  sorvel demo\n"
    "  sorvel demo --seed 7 -o air.wav && sorvel listen air.wav --prefix acme\n"
    "The same seed gives the same sound. Exit status: 0 the text was heard, 1 it was not.";

/// What a microphone would pick up, at 48 kHz: a second of noise, the transmission,
/// a second of noise.
std::vector<float> throughTheAir(std::uint32_t seed) {
    const std::vector<float> waveform = transmission(kText, 50);
    std::vector<float> sound(waveform.size() + std::size_t{2} * kTransmissionRate_hz);
    std::copy(waveform.begin(), waveform.end(), sound.begin() + kTransmissionRate_hz);

    sound = air::convolved(sound, air::roomResponse(kRt60_s, kDirectToRoom_db, kTransmissionRate_hz, seed));
    sound = air::reclocked(sound, kClockError_ppm, 0.5);
    air::addWhiteNoise(sound, kSnr_db, air::tonePower(waveform), kTransmissionRate_hz, seed + 1);
    air::amplify(sound, kLevel_db);
    air::clip(sound, 1.0F);
    return sound;
}

void explain(std::uint32_t seed) {
    printLine("Demonstration: no microphone is used. A transmission of \"" + std::string(kText) +
              "\" is made in memory and put");
    printLine("through simulated air; what comes out is decoded by the same path as recordings.");
    std::array<char, 160> line{};
    std::snprintf(
        line.data(), line.size(),
        "Simulated: room echo (RT60 %.1f s, as strong as the direct sound), white noise (%.0f dB in-band "
        "SNR),",
        kRt60_s, kSnr_db);
    printLine(line.data());
    std::snprintf(line.data(), line.size(), "level %.0f dB, clock %.0f ppm fast; seed %u.", kLevel_db,
                  kClockError_ppm, seed);
    printLine(line.data());
}

int demo(const DemoOptions& options) {
    if (options.output == "-")
        throw UsageError("demo -o needs a file; standard output is for what was heard");
    if (!options.json) explain(options.seed);
    const std::vector<float> sound = throughTheAir(options.seed);
    if (!options.output.empty()) {
        WavWriter writer(options.output, kTransmissionRate_hz, StoredFormat::I16, sound.size());
        writer.write(sound);
        writer.finish();
    }

    bool wasHeard = false;
    Platform platform = defaultPlatform();
    platform.http = nullptr;
    TextReceiver receiver(kPrefix, Repeats::Drop, platform, [&](const Heard& heard) {
        wasHeard = true;
        std::array<char, 64> line{};
        std::snprintf(line.data(), line.size(), "Heard after %.1f s: %s", heard.time_s, heard.text.c_str());
        printLine(options.json ? jsonLine(heard, "demo") : line.data());
    });
    Recording recording(receiver, kTransmissionRate_hz);
    recording.take(sound);
    recording.finish();
    if (!wasHeard && !options.json) printLine("Nothing was heard.");
    return wasHeard ? kDone : kNothingHeard;
}

} // namespace

int runDemo() { return demo({}); }

Command addDemo(CLI::App& sorvel) {
    const auto options = std::make_shared<DemoOptions>();
    CLI::App* const app =
        sorvel.add_subcommand("demo", "Send and hear a text through simulated air, in memory");
    app->footer(kFooter);
    app->add_flag("--json", options->json, "only the text heard, as a JSON object");
    app->add_option("--seed", options->seed, "of the simulated room and noise")->capture_default_str();
    app->add_option("-o,--output", options->output,
                    "WAV file that receives what the microphone would have picked up")
        ->type_name("FILE");
    return {app, [options] { return demo(*options); }};
}

} // namespace sorvel
