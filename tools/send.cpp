#include "platform/audio/cubeb_devices.hpp"
#include "platform/audio/rate_converter.hpp"
#include "platform/files/wav_writer.hpp"
#include "tools/command.hpp"
#include "tools/interruption.hpp"
#include "tools/message.hpp"
#include "tools/play.hpp"
#include "tools/protocol_file.hpp"
#include "tools/transmission.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace sorvel {

namespace {

// Players lose the first moments of a sound, and a receiver needs the frame after the last one.
constexpr double kLead_s = 0.1;
constexpr double kTail_s = 0.3;

struct SendOptions {
    std::string text;
    std::optional<std::string> message;
    std::string messageFile;
    std::string protocolFile;
    std::optional<int> protocol;
    std::string output;
    bool plays = false;
    std::string device;
    int rate_hz = kTransmissionRate_hz;
    StoredFormat format = StoredFormat::I16;
    int volume_percent = 50;
    std::uint32_t repeat = 1;
    double gap_s = 1.0;
};

constexpr const char* kFooter =
    "Examples:\n"
    "  sorvel send \"acme_1234\" -o hello.wav\n"
    "  sorvel send \"acme_1234\" --play\n"
    "  sorvel send \"acme_1234\" -o hello.wav --rate 44100 --volume 80\n"
    "  sorvel send \"acme_1234\" --repeat 10 --gap 2 --play --device USB\n"
    "  sorvel send \"acme_1234\" -o - | sorvel listen - --prefix acme\n"
    "  sorvel send --message \"any bytes, up to 140\" -o long.wav\n"
    "A text lasts 3.26 s, a message 2 to 39 s. 0.1 s of silence goes before the first one and 0.3 s after "
    "the last one.\n"
    "--play takes the output's own rate; SIGINT, SIGTERM and SIGHUP end it at once.\n"
    "Play a file as it is: MP3 and most messengers remove the band it uses, 18 to 19.5 kHz.";

std::uint64_t samplesIn(double seconds) {
    return static_cast<std::uint64_t>(std::llround(seconds * kTransmissionRate_hz));
}

/// Sound at 48 kHz on its way into a file of another rate.
class Recorder final : public SoundSink {
public:
    Recorder(const SendOptions& options, std::uint64_t samples)
        : m_converter(kTransmissionRate_hz, options.rate_hz),
          m_writer(options.output, options.rate_hz, options.format,
                   static_cast<std::uint64_t>(
                       std::llround(static_cast<double>(samples) * options.rate_hz / kTransmissionRate_hz))) {
    }

    void sound(std::span<const float> samples) override {
        while (!samples.empty()) {
            const Converted step = m_converter.convert(samples, m_piece);
            samples = samples.subspan(step.consumed);
            m_writer.write(std::span(m_piece).first(step.produced));
        }
    }
    void finish() override {
        while (const std::size_t n = m_converter.flush(m_piece)) m_writer.write(std::span(m_piece).first(n));
        m_writer.finish();
    }

private:
    RateConverter m_converter;
    WavWriter m_writer;
    std::array<float, 4096> m_piece{};
};

std::string contentOf(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    std::string bytes;
    // One byte more than a message has tells that it is too long, also in what has no end.
    bytes.resize(GGWave::kMaxLengthVariable + 1);
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!stream.is_open() || stream.bad()) throw UsageError(file + " cannot be read");
    bytes.resize(static_cast<std::size_t>(stream.gcount()));
    if (bytes.size() > GGWave::kMaxLengthVariable)
        throw UsageError("a message has 1 to " + std::to_string(GGWave::kMaxLengthVariable) + " bytes, " +
                         file + " has more");
    return bytes;
}

std::vector<float> soundOf(const SendOptions& options) {
    const bool isMessage = options.message || !options.messageFile.empty();
    if (!isMessage) {
        if (options.protocol || !options.protocolFile.empty())
            throw UsageError("--protocol and --protocol-file go with --message or --file");
        if (const std::string obstacle = obstacleToSending(options.text); !obstacle.empty())
            throw UsageError(obstacle);
        return transmission(options.text, options.volume_percent);
    }
    int protocol = GGWAVE_PROTOCOL_DT_CUSTOM;
    if (!options.protocolFile.empty()) protocol = useProtocolFile(options.protocolFile);
    return messageTransmission(options.message ? *options.message : contentOf(options.messageFile),
                               options.protocol.value_or(protocol), options.volume_percent);
}

/// All of it in samples at 48 kHz.
std::uint64_t length(const SendOptions& options, std::size_t waveform) {
    return samplesIn(kLead_s) + options.repeat * waveform + (options.repeat - 1) * samplesIn(options.gap_s) +
           samplesIn(kTail_s);
}

void give(SoundSink& sink, const SendOptions& options, std::span<const float> waveform) {
    sink.silence(samplesIn(kLead_s));
    for (std::uint32_t i = 0; i < options.repeat; ++i) {
        if (i > 0) sink.silence(samplesIn(options.gap_s));
        sink.sound(waveform);
    }
    sink.silence(samplesIn(kTail_s));
    sink.finish();
}

void play(const SendOptions& options, std::span<const float> waveform) {
    Loudspeaker loudspeaker(options.device);
    if (const std::string warning = rateWarning(loudspeaker.rate_hz(), "output"); !warning.empty())
        printError(loudspeaker.name() + ": " + warning);
    const Interruption interruption;
    StatusLine status;
    const auto whole_s = static_cast<double>(length(options, waveform.size())) / kTransmissionRate_hz;
    const double each_s = static_cast<double>(waveform.size()) / kTransmissionRate_hz + options.gap_s;
    loudspeaker.whileWaiting([&] {
        status.show([&] {
            const double played_s = loudspeaker.played_s();
            const auto number = static_cast<std::uint32_t>(std::max(0.0, played_s - kLead_s) / each_s) + 1;
            return "playing " + std::to_string(std::min(number, options.repeat)) + " of " +
                   std::to_string(options.repeat) + " on " + loudspeaker.name() + ": " +
                   std::to_string(std::llround(played_s)) + " of " + std::to_string(std::llround(whole_s)) +
                   " s";
        });
    });
    give(loudspeaker, options, waveform);
    status.clear();
    if (loudspeaker.gaps() > 0)
        printError("the sound broke off " + std::to_string(loudspeaker.gaps()) +
                   " times: this machine was too slow");
}

int send(const SendOptions& options) {
    const std::vector<float> waveform = soundOf(options);
    if (options.plays) {
        play(options, waveform);
        return kDone;
    }
    cleanUpBeforeSignals(removeTemporaryFile);
    Recorder recorder(options, length(options, waveform.size()));
    give(recorder, options, waveform);
    return kDone;
}

} // namespace

Command addSend(CLI::App& sorvel) {
    const auto options = std::make_shared<SendOptions>();
    CLI::App* const app = sorvel.add_subcommand(
        "send", "Turn a text or a message into sound: played, a WAV file, or a stream for a player");
    app->footer(kFooter);
    CLI::Option_group* const what = app->add_option_group("What to send, one of these");
    what->add_option("TEXT", options->text, "1 to 15 of: digits, a to z (lower case), underscore, space");
    what->add_option("--message", options->message, "1 to 140 bytes of any kind, for 'listen --messages'");
    what->add_option("--file", options->messageFile, "the same from a file")
        ->check(given("the name of the file"))
        ->type_name("FILE");
    what->require_option(1);
    app->add_option(
           "--protocol-file", options->protocolFile,
           "JSON array of protocols for messages: id, name, freqStart, framesPerTx, bytesPerTx, extra")
        ->check(given("the name of the file"))
        ->type_name("FILE");
    app->add_option("--protocol", options->protocol,
                    "id of the one to use (the file's first; without a file 12)");
    CLI::Option_group* const where = app->add_option_group("Where to, one of these");
    CLI::Option* const output =
        where->add_option("-o,--output", options->output, "WAV file to write, or - for standard output")
            ->type_name("FILE");
    CLI::Option* const plays = where->add_flag("--play", options->plays, "play it through a loudspeaker");
    where->require_option(1);
    app->add_option("--device", options->device,
                    "of --play: output by its name or a part of it (see sorvel devices)")
        ->check(given("the name of the device"))
        ->needs(plays);
    app->add_option("--rate", options->rate_hz, "of -o: samples per second: 44100, 48000 or 96000")
        ->check(CLI::IsMember({44100, 48000, 96000}))
        ->needs(output)
        ->capture_default_str();
    addFormat(*app, options->format, {StoredFormat::U8, StoredFormat::I16, StoredFormat::F32},
              "of -o: samples as ")
        ->needs(output);
    app->add_option("--volume", options->volume_percent, "percent of full scale, 1 to 100")
        ->check(CLI::Range(1, 100))
        ->capture_default_str();
    app->add_option("--repeat", options->repeat, "transmissions, 1 to 100000")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    app->add_option("--gap", options->gap_s, "seconds of silence between them, 0 to 3600")
        ->check(seconds(3600))
        ->capture_default_str();
    return {app, [options] { return send(*options); }};
}

} // namespace sorvel
