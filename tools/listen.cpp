#include "modem/ggwave.h"
#include "platform/files/audio_file_reader.hpp"
#include "telemetry/EventHub.hpp"
#include "tools/command.hpp"
#include "tools/file_listening.hpp"
#include "tools/interruption.hpp"
#include "tools/listen_options.hpp"
#include "tools/protocol_file.hpp"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

namespace sorvel {

namespace {

constexpr const char* kFooter =
    "Examples:\n"
    "  sorvel listen hello.wav --prefix acme\n"
    "  sorvel listen *.flac --prefix acme --json\n"
    "  sorvel listen hall.wav --prefix acme --json\n"
    "  arecord -f S16_LE -r 96000 -t raw | sorvel listen - --raw --rate 96000 --format i16 --prefix acme\n"
    "  sox talk.flac -t wav - trim 60 30 | sorvel listen -\n"
    "Prints one line for each text heard. Within one second after a text, others are taken as its repeats "
    "and\n"
    "dropped, unless --all is given. With --json a line is an object: text, time (seconds from the start of "
    "the\n"
    "recording to the end of the text) and file; of the deep receiver also snr_db (within 18 to 19.5 kHz), "
    "speed_m_s\n"
    "(of the source, closer is positive), echo (0 to 1) and margin (of belief, in nats).\n"
    "From a microphone time counts from the start of listening, file is the input's name, and at the time of "
    "day.\n"
    "Of several channels the one is heard in which a transmission stands out best; --channel takes another.\n"
    "The deep receiver hears both channels of a stereo file.\n"
    "Many recordings are heard at once, on as many cores as there are or --jobs says; what is printed stays "
    "in the\norder of the files.\n"
    "--once ends with the first text, from a microphone also when that goes away.\n"
    "SIGINT, SIGTERM and SIGHUP end listening; a second one does not wait for events that are being sent.\n"
    "Exit status: 0 something was heard, 1 nothing was, 2 wrong usage or a file that cannot be read.";

/// What has no meaning beside other options is refused, as its user expects something of it.
void check(const ListenOptions& options) {
    const bool isLive = options.files.empty();
    if (options.isRaw && options.raw.sampleRate_hz == 0) throw UsageError("--raw needs --rate");
    if (options.isRaw && isLive) throw UsageError("--raw needs a file, or - for standard input");
    if (options.messages && isLive)
        throw UsageError("--messages needs recordings or -; the microphone hears texts");
    if (options.messages && (options.all || !options.prefix.empty()))
        throw UsageError("--prefix and --all are for texts; messages have neither a prefix nor repeats");
    const bool isDeep = options.isReceiverGiven && options.receiver == ReceiverKind::Deep;
    if (isDeep && options.messages)
        throw UsageError("--receiver deep hears texts; leave it out for messages");
    if (isDeep && options.all)
        throw UsageError("--all is for the classic receiver; the deep one reports no transmission twice");
    if (!options.messages && (options.hex || !options.protocolFile.empty()))
        throw UsageError("--hex and --protocol-file go with --messages");
    if (options.hex && options.json)
        throw UsageError("with --json every message has its hex; leave out --hex");
    if (isLive && options.all) throw UsageError("--all is for recordings; the microphone's clock is real");
    if (isLive && options.jobs) throw UsageError("--jobs is for recordings; there is one microphone");
    if (!isLive && (!options.device.empty() || options.orDemo))
        throw UsageError("--device and --or-demo are for the microphone; leave them out, or name no file");
    checkPrefix(options.prefix);
}

int listen(ListenOptions options) {
    check(options);
    if (options.all) options.receiver = ReceiverKind::Classic; // the deep one reports no transmission twice
    if (options.messages) {
        GGWave::setLogFile(nullptr); // its three progress lines a message
        if (!options.protocolFile.empty()) useProtocolFile(options.protocolFile);
        const Platform none;
        const ExitCode result = FileListening(options, none).run();
        if (Interruption::hasCome()) throw Interrupted();
        return result;
    }
    if (options.noTelemetry) EventHub::turnOff();
    const Platform platform = defaultPlatform();
    const bool isLive = options.files.empty();
    const int result = isLive ? listenLive(options, platform) : FileListening(options, platform).run();
    awaitEvents(platform.http.get());
    // A recording that was not heard to its end is no success; a microphone has no other end.
    if (!isLive && Interruption::hasCome()) throw Interrupted();
    return result;
}

void addReceiver(CLI::App& app, ListenOptions& options) {
    const auto take = [&options](const std::string& name) {
        options.receiver = name == "deep" ? ReceiverKind::Deep : ReceiverKind::Classic;
        options.isReceiverGiven = true;
    };
    app.add_option_function<std::string>(
           "--receiver", take,
           "of texts: deep, or classic, which is deaf to what moves, and 9 dB further up in noise")
        ->check(CLI::IsMember(std::vector<std::string>{"classic", "deep"}))
        ->type_name("NAME")
        ->default_str("deep");
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
    addReceiver(*app, *options);
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
    app->add_option("--jobs", options->jobs,
                    "recordings heard at once, 1 to 256; without it, as many as there are cores")
        ->check(CLI::Range(1, 256));
    app->add_option("--channel", options->channel,
                    "the one to hear, from 1 on; without it, the one in which transmissions stand out best")
        ->check(CLI::Range(1, AudioFileReader::kMaxChannels));
    CLI::Option_group* const live = app->add_option_group("Microphone");
    live->add_option("--device", options->device, "input by its name or a part of it (see sorvel devices)");
    live->add_flag("--or-demo", options->orDemo, "without a microphone, run the demonstration");
    app->add_flag("--no-telemetry", options->noTelemetry, "send no events, whatever the hosts");
    return {app, [options] { return listen(*options); }};
}

} // namespace sorvel
