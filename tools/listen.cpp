#include "platform/audio_file.hpp"
#include "telemetry/EventHub.hpp"
#include "tools/command.hpp"
#include "tools/heard_line.hpp"
#include "tools/interruption.hpp"
#include "tools/listen_options.hpp"
#include "tools/message.hpp"
#include "tools/protocol_file.hpp"
#include "tools/text_receiver.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace sorvel {

namespace {

constexpr const char* kFooter =
    "Examples:\n"
    "  sorvel listen hello.wav --prefix acme\n"
    "  sorvel listen *.flac --prefix acme --json\n"
    "  sorvel listen hall.wav --prefix acme --receiver deep --json\n"
    "  arecord -f S16_LE -r 96000 -t raw | sorvel listen - --raw --rate 96000 --format i16 --prefix acme\n"
    "  sox talk.flac -t wav - trim 60 30 | sorvel listen -\n"
    "Prints one line for each text heard. Within one second after a text, others are taken as its repeats "
    "and\n"
    "dropped, unless --all is given. With --json a line is an object: text, time (seconds from the start of "
    "the\n"
    "recording to the end of the text) and file; with --receiver deep also snr_db (within 18 to 19.5 kHz), "
    "speed_m_s\n"
    "(of the source, closer is positive), echo (0 to 1) and margin (of belief, in nats).\n"
    "--once ends with the first text, from a microphone also when that goes away.\n"
    "SIGINT, SIGTERM and SIGHUP end listening; a second one does not wait for events that are being sent.\n"
    "Exit status: 0 something was heard, 1 nothing was, 2 wrong usage or a file that cannot be read.";

constexpr int kHighestTone_hz = 19500;

/// Goes through files with a TextReceiver or a MessageReceiver.
class FileListening {
public:
    explicit FileListening(const ListenOptions& options) : m_options(options) {}

    void listenTo(RecordingReceiver& receiver) {
        const Interruption interruption;
        for (const std::string& file : m_options.files) {
            if (isOver()) return;
            try {
                listenTo(receiver, file);
            } catch (const AudioFileError& error) {
                if (Interruption::hasCome()) return; // which then is why
                warn(error.what());
                m_hasFailed = true;
            } catch (const OutputClosed&) {
                return;
            }
        }
    }

    void hear(const Heard& heard) {
        if (isEnough()) return;
        say(m_options.json ? jsonLine(heard, m_file) : heard.text);
    }
    void hear(const HeardMessage& heard) {
        if (isEnough()) return;
        if (!heard.bytes) {
            warn(m_file + ": a message that ended at " + std::to_string(static_cast<long>(heard.time_s)) +
                 " s could not be read");
            return;
        }
        const bool asText = !m_options.hex && isOneLine(*heard.bytes);
        say(m_options.json ? jsonLine(heard, m_file) : asText ? *heard.bytes : inHex(*heard.bytes));
    }

    ExitCode result() const { return m_hasFailed ? kFailed : m_wasHeard ? kDone : kNothingHeard; }

private:
    bool isEnough() const { return m_options.once && m_wasHeard; }
    bool isOver() const { return isEnough() || Interruption::hasCome(); }

    /// @throws AudioFileError; what was heard before it has been printed
    void listenTo(RecordingReceiver& receiver, const std::string& file) {
        m_file = file;
        AudioFileReader reader(file, m_options.isRaw ? std::optional(m_options.raw) : std::nullopt);
        if (reader.sampleRate_hz() < 2 * kHighestTone_hz)
            warn(file + " has " + std::to_string(reader.sampleRate_hz()) +
                 " Hz: too few for tones up to 19.5 kHz; record at 44100 Hz or more");

        // Only what cannot be searched makes wait for more of it.
        const Interruption::Input input(reader.frames() ? -1 : reader.descriptor());
        // 100 ms, so that a live stream waits for no more than that.
        std::vector<float> block(static_cast<std::size_t>(reader.sampleRate_hz()) / 10);
        const std::uint64_t most = framesToHear(reader.sampleRate_hz());
        Recording recording(receiver, reader.sampleRate_hz());
        std::uint64_t frames = 0;
        while (!isOver() && frames < most) {
            const std::size_t n =
                reader.read(std::span(block).first(std::min<std::uint64_t>(block.size(), most - frames)));
            if (n == 0) break;
            recording.take(std::span(block).first(n));
            frames += n;
            m_status.show([&] { return progress(reader, frames); });
        }
        recording.finish();
        m_status.clear();
        if (frames == 0 && most > 0 && !isOver())
            warn(file +
                 " holds no samples; a recorder that was cut short may have left them to be read as raw");
    }

    std::uint64_t framesToHear(int rate_hz) const {
        if (!m_options.timeout_s) return std::numeric_limits<std::uint64_t>::max();
        return static_cast<std::uint64_t>(*m_options.timeout_s * rate_hz);
    }

    void say(const std::string& line) {
        m_wasHeard = true;
        m_status.clear();
        printLine(line);
    }
    void warn(const std::string& text) {
        m_status.clear();
        printError(text);
    }
    std::string progress(const AudioFileReader& reader, std::uint64_t frames) const {
        const auto seconds = static_cast<double>(frames) / reader.sampleRate_hz();
        const auto all = reader.frames();
        std::string text = m_file + ": " + std::to_string(static_cast<long>(seconds)) + " s";
        if (all && *all > 0) text += ", " + std::to_string(100 * frames / *all) + " %";
        return text;
    }

    const ListenOptions& m_options;
    StatusLine m_status;
    std::string m_file;
    bool m_wasHeard = false;
    bool m_hasFailed = false;
};

ExitCode listenToMessages(const ListenOptions& options) {
    GGWave::setLogFile(nullptr); // its three progress lines a message
    if (!options.protocolFile.empty()) useProtocolFile(options.protocolFile);
    FileListening listening(options);
    MessageReceiver receiver([&listening](const HeardMessage& heard) { listening.hear(heard); });
    listening.listenTo(receiver);
    return listening.result();
}

template <typename Receiver>
ExitCode listenToTexts(const ListenOptions& options, const Platform& platform) {
    FileListening listening(options);
    Receiver receiver(options.prefix, options.all ? Repeats::Report : Repeats::Drop, platform,
                      [&listening](const Heard& heard) { listening.hear(heard); });
    listening.listenTo(receiver);
    return listening.result();
}

int listenToRecordings(const ListenOptions& options, const Platform& platform) {
    return options.receiver == ReceiverKind::Deep ? listenToTexts<DeepTextReceiver>(options, platform)
                                                  : listenToTexts<TextReceiver>(options, platform);
}

/// What has no meaning beside other options is refused, as its user expects something of it.
void check(const ListenOptions& options) {
    const bool isLive = options.files.empty();
    if (options.isRaw && options.raw.sampleRate_hz == 0) throw UsageError("--raw needs --rate");
    if (options.isRaw && isLive) throw UsageError("--raw needs a file, or - for standard input");
    if (options.messages && isLive)
        throw UsageError("--messages needs recordings or -; the microphone hears texts");
    if (options.messages && (options.all || !options.prefix.empty()))
        throw UsageError("--prefix and --all are for texts; messages have neither a prefix nor repeats");
    const bool isDeep = options.receiver == ReceiverKind::Deep;
    if (isDeep && options.messages)
        throw UsageError("--receiver deep hears texts; leave it out for messages");
    if (isDeep && options.all)
        throw UsageError("--all is for the classic receiver; the deep one reports no transmission twice");
    if (!options.messages && (options.hex || !options.protocolFile.empty()))
        throw UsageError("--hex and --protocol-file go with --messages");
    if (options.hex && options.json)
        throw UsageError("with --json every message has its hex; leave out --hex");
    if (isLive && options.all) throw UsageError("--all is for recordings; the microphone's clock is real");
    if (!isLive && (!options.device.empty() || options.orDemo))
        throw UsageError("--device and --or-demo are for the microphone; leave them out, or name no file");
    checkPrefix(options.prefix);
}

int listen(const ListenOptions& options) {
    check(options);
    if (options.messages) {
        const ExitCode result = listenToMessages(options);
        if (Interruption::hasCome()) throw Interrupted();
        return result;
    }
    if (options.noTelemetry) EventHub::turnOff();
    const Platform platform = defaultPlatform();
    const bool isLive = options.files.empty();
    const int result = isLive ? listenLive(options, platform) : listenToRecordings(options, platform);
    awaitEvents(platform.http.get());
    // A recording that was not heard to its end is no success; a microphone has no other end.
    if (!isLive && Interruption::hasCome()) throw Interrupted();
    return result;
}

void addReceiver(CLI::App& app, ReceiverKind& receiver) {
    const auto take = [&receiver](const std::string& name) {
        receiver = name == "deep" ? ReceiverKind::Deep : ReceiverKind::Classic;
    };
    app.add_option_function<std::string>(
           "--receiver", take,
           "of texts: classic, or deep, which hears 9 dB further down in noise and sources that move")
        ->check(CLI::IsMember(std::vector<std::string>{"classic", "deep"}))
        ->type_name("NAME")
        ->default_str("classic");
}

} // namespace

Command addListen(CLI::App& sorvel) {
    const auto options = std::make_shared<ListenOptions>();
    CLI::App* const app =
        sorvel.add_subcommand("listen", "Print the texts that the microphone, recordings or a stream hold");
    app->footer(kFooter);
    app->add_option(
        "FILE", options->files,
        "recordings (WAV, FLAC, OGG, ...), or - for a WAV stream on standard input; none: the microphone");
    app->add_option("--prefix", options->prefix, "only texts that begin so; without it, all")
        ->check(given("the prefix"));
    addReceiver(*app, options->receiver);
    app->add_flag("--json", options->json, "one JSON object per line");
    app->add_flag("--all", options->all, "report every delivery, repeats too");
    CLI::Option* const raw = app->add_flag("--raw", options->isRaw, "the input has no header: needs --rate");
    app->add_option("--rate", options->raw.sampleRate_hz, "of --raw: samples per second, 8000 to 384000")
        ->check(CLI::Range(8000, 384000))
        ->needs(raw);
    addFormat(*app, options->raw.format,
              {StoredFormat::U8, StoredFormat::I16, StoredFormat::I32, StoredFormat::F32},
              "of --raw, little-endian: ")
        ->needs(raw);
    app->add_option("--channels", options->raw.channels, "of --raw: interleaved channels, 1 to 64")
        ->check(CLI::Range(1, AudioFileReader::kMaxChannels))
        ->needs(raw)
        ->capture_default_str();
    app->add_flag("--messages", options->messages,
                  "messages of 1 to 140 bytes instead of texts; from recordings");
    app->add_flag("--hex", options->hex,
                  "of --messages: print bytes as hexadecimal digits, also where they are text");
    app->add_option("--protocol-file", options->protocolFile,
                    "of --messages: the sender's JSON file of protocols")
        ->check(given("the name of the file"))
        ->type_name("FILE");
    app->add_flag("--once", options->once, "end with the first text or message");
    app->add_option("--timeout", options->timeout_s,
                    "seconds to listen: to the microphone, or to each recording")
        ->check(seconds(1e9));
    CLI::Option_group* const live = app->add_option_group("Microphone");
    live->add_option("--device", options->device, "input by its name or a part of it (see sorvel devices)");
    live->add_flag("--or-demo", options->orDemo, "without a microphone, run the demonstration");
    app->add_flag("--no-telemetry", options->noTelemetry, "send no events, whatever the hosts");
    return {app, [options] { return listen(*options); }};
}

} // namespace sorvel
