#include "platform/audio/cubeb_capture.hpp"
#include "platform/audio/cubeb_devices.hpp"
#include "platform/audio/rate_converter.hpp"
#include "platform/default_platform.hpp"
#include "tools/check_report.hpp"
#include "tools/command.hpp"
#include "tools/interruption.hpp"
#include "tools/play.hpp"
#include "tools/text_receiver.hpp"
#include "tools/transmission.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace sorvel {

namespace {

struct CheckOptions {
    bool listenOnly = false;
    std::string device;
    std::string outputDevice;
    int volume_percent = 50;
    bool json = false;
};

constexpr const char* kFooter =
    "Examples:\n"
    "  sorvel check\n"
    "  sorvel check --device USB --volume 80\n"
    "  sorvel check --listen-only --json\n"
    "Plays tones and three transmissions for 20 s while it listens; --listen-only plays nothing and listens "
    "for 5 s.\n"
    "Tells the rates, the noise in the band and whistles in it, how each tone arrives, what was lost, and a "
    "verdict:\n"
    "good, cannot carry the band, no sound, not heard, disturbed, weak, sound is lost. Lines of advice "
    "follow.\n"
    "With --json it is one object: verdict, advice, input, output, noise_dbfs, whistles, overruns, tones, "
    "response,\n"
    "late_ms, gaps, texts_sent, texts_heard; levels in dB, frequencies and rates in Hz.\n"
    "Exit status: 0 good, 1 another verdict, 2 wrong usage or a device that cannot be used.";

constexpr double kListenOnly_s = 5.0;
constexpr std::array kTexts{"check_1", "check_2", "check_3"};
constexpr std::chrono::milliseconds kTick(20);

/// Keeps what an input hears, in memory that is there before it starts.
class Microphone {
public:
    /// @throws AudioDeviceError  when the input cannot be opened
    Microphone(const std::string& device, double longest_s)
        : m_capture(CubebCapture::make({.device = device,
                                        .observer = [this](const AudioBuffer& block) { hear(block); },
                                        .lines = nullptr})) {
        const double rate_hz = m_capture->outputFormat(0).sampleRate;
        m_samples.resize(static_cast<std::size_t>(std::ceil(longest_s * rate_hz)));
        if (!m_capture->start().succeeded()) throw AudioDeviceError(m_capture->status().error);
        m_device.name = m_capture->status().device;
        m_device.rate_hz = m_capture->status().rate_hz;
        for (const InputDevice& input : inputDevices())
            if (input.name == m_device.name) m_device.isMonitor = input.isMonitor;
    }
    ~Microphone() { m_capture->stop(); }
    Microphone(const Microphone&) = delete;
    Microphone& operator=(const Microphone&) = delete;

    const check::Device& device() const noexcept { return m_device; }
    double heard_s() const noexcept { return static_cast<double>(m_heard) / m_device.rate_hz; }
    std::span<const float> samples() const noexcept { return std::span(m_samples).first(m_heard); }
    void stop() { m_capture->stop(); }
    std::uint64_t overruns() const { return m_capture->status().overruns; }

    /// @throws Interrupted with a signal, AudioDeviceError when the input has gone
    void look() const {
        if (Interruption::hasCome()) throw Interrupted();
        if (!m_capture->isRunning()) throw AudioDeviceError(m_capture->status().error);
    }

private:
    /// On the capture thread.
    void hear(const AudioBuffer& block) noexcept {
        const std::size_t before = m_heard;
        const std::size_t frames = std::min<std::size_t>(block.frameLength(), m_samples.size() - before);
        const std::size_t channels = block.format().channelCount;
        mixToMono(block.floatSamples(0).first(frames * channels), channels,
                  std::span(m_samples).subspan(before, frames));
        m_heard = before + frames;
    }

    std::vector<float> m_samples;
    std::atomic<std::size_t> m_heard = 0; // samples that are complete
    check::Device m_device;
    std::shared_ptr<CubebCapture> m_capture; // the first to end: it calls `hear`
};

check::Program programFor(double rate_hz, int volume_percent) {
    std::vector<std::vector<float>> transmissions;
    for (const char* const text : kTexts) {
        const std::vector<float> sound = transmission(text, volume_percent);
        std::vector<float>& converted = transmissions.emplace_back(static_cast<std::size_t>(
            std::llround(static_cast<double>(sound.size()) * rate_hz / kTransmissionRate_hz)));
        RateConverter converter(kTransmissionRate_hz, rate_hz);
        std::size_t filled = converter.convert(sound, converted).produced;
        while (const std::size_t n = converter.flush(std::span(converted).subspan(filled))) filled += n;
    }
    return check::program(transmissions, rate_hz, volume_percent);
}

/// How many of the three are heard, in the way in which recordings are listened to.
int countTexts(std::span<const float> samples, double rate_hz) {
    std::set<std::string> heard;
    Platform platform = defaultPlatform();
    platform.http = nullptr;
    TextReceiver receiver("", Repeats::Report, platform, [&](const Heard& text) { heard.insert(text.text); });
    Recording recording(receiver, rate_hz);
    recording.take(samples);
    recording.finish();
    return static_cast<int>(
        std::count_if(kTexts.begin(), kTexts.end(), [&](const char* text) { return heard.contains(text); }));
}

check::Report listenOnly(const CheckOptions& options) {
    Microphone microphone(options.device, kListenOnly_s);
    check::Report report;
    report.input = microphone.device();
    if (!carriesBand(report.input.rate_hz)) return report;
    const Interruption interruption;
    StatusLine status;
    while (microphone.heard_s() < kListenOnly_s - 1e-3) {
        microphone.look();
        status.show([&] {
            return "listening to " + report.input.name + ": " +
                   std::to_string(std::lround(microphone.heard_s())) + " of 5 s";
        });
        std::this_thread::sleep_for(kTick);
    }
    microphone.stop();
    report.listened_s = microphone.heard_s();
    report.overruns = microphone.overruns();
    report.background = check::background(microphone.samples(), report.input.rate_hz);
    return report;
}

check::Report playAndListen(const CheckOptions& options) {
    constexpr double kLongest_s = 60.0; // of what is played 20, and what a slow server takes besides
    check::Report report;
    Loudspeaker loudspeaker(options.outputDevice);
    report.output = {loudspeaker.name(), loudspeaker.rate_hz(), false};
    Microphone microphone(options.device, kLongest_s);
    report.input = microphone.device();
    if (!carriesBand(report.input.rate_hz) || !carriesBand(loudspeaker.rate_hz())) return report;

    const check::Program program = programFor(loudspeaker.rate_hz(), options.volume_percent);
    const Interruption interruption;
    StatusLine status;
    const double whole_s = static_cast<double>(program.samples.size()) / loudspeaker.rate_hz();
    loudspeaker.whileWaiting([&] {
        microphone.look();
        status.show([&] {
            return "playing on " + loudspeaker.name() + ", listening to " + report.input.name + ": " +
                   std::to_string(std::lround(loudspeaker.played_s())) + " of " +
                   std::to_string(std::lround(whole_s)) + " s";
        });
    });
    loudspeaker.soundAtOwnRate(program.samples);
    loudspeaker.finish();
    microphone.stop();
    status.clear();

    report.listened_s = microphone.heard_s();
    report.overruns = microphone.overruns();
    report.gaps = loudspeaker.gaps();
    const std::span<const float> samples = microphone.samples();
    report.found = check::findProbes(samples, report.input.rate_hz, program.distance_s);
    // Up to the probes it was quiet; where they are not found, nothing that was played is there.
    const double quiet_s = report.found ? std::max(report.found->start_s - 0.05, 0.5) : report.listened_s;
    report.background = check::background(
        samples.first(std::min(samples.size(), static_cast<std::size_t>(quiet_s * report.input.rate_hz))),
        report.input.rate_hz);
    report.textsSent = static_cast<int>(kTexts.size());
    report.textsHeard = countTexts(samples, report.input.rate_hz);
    return report;
}

int runCheck(const CheckOptions& options) {
    const check::Report report = options.listenOnly ? listenOnly(options) : playAndListen(options);
    if (options.json)
        printLine(check::jsonLine(report));
    else
        for (const std::string& line : check::lines(report)) printLine(line);
    return check::verdict(report) == check::Verdict::Good ? kDone : kNothingHeard;
}

} // namespace

Command addCheck(CLI::App& sorvel) {
    const auto options = std::make_shared<CheckOptions>();
    CLI::App* const app =
        sorvel.add_subcommand("check", "Tell whether this machine can hear transmissions, and be heard");
    app->footer(kFooter);
    CLI::Option* const listenOnly =
        app->add_flag("--listen-only", options->listenOnly, "play nothing: only look at the input");
    app->add_option("--device", options->device, "input by its name or a part of it (see sorvel devices)")
        ->check(given("the name of the input"));
    app->add_option("--output-device", options->outputDevice, "output, likewise")
        ->check(given("the name of the output"))
        ->excludes(listenOnly);
    app->add_option("--volume", options->volume_percent, "percent of full scale, 1 to 100")
        ->check(CLI::Range(1, 100))
        ->excludes(listenOnly)
        ->capture_default_str();
    app->add_flag("--json", options->json, "one JSON object");
    return {app, [options] { return runCheck(*options); }};
}

} // namespace sorvel
