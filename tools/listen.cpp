#include "payload/encoding.hpp"
#include "platform/audio_file.hpp"
#include "tools/command.hpp"
#include "tools/heard_line.hpp"
#include "tools/text_receiver.hpp"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace sorvel {

namespace {

struct ListenOptions {
    std::vector<std::string> files;
    std::string prefix;
    bool json = false;
    bool all = false;
    bool isRaw = false;
    RawAudio raw;
};

constexpr const char* kFooter =
    "Examples:\n"
    "  sorvel listen hello.wav --prefix acme\n"
    "  sorvel listen *.flac --prefix acme --json\n"
    "  arecord -f S16_LE -r 96000 -t raw | sorvel listen - --raw --rate 96000 --format i16 --prefix acme\n"
    "  sox talk.flac -t wav - trim 60 30 | sorvel listen -\n"
    "Prints one line for each text heard. Within one second after a text, others are taken as its repeats "
    "and\n"
    "dropped, unless --all is given. With --json a line is an object: text, time (seconds from the start of "
    "the\n"
    "recording to the end of the text) and file.\n"
    "Exit status: 0 something was heard, 1 nothing was, 2 wrong usage or a file that cannot be read.";

constexpr int kHighestTone_hz = 19500;

/// What no received text can begin with would listen in vain.
void checkPrefix(const std::string& prefix) {
    if (prefix.size() > encoding::kMaxTextLength)
        throw UsageError("the prefix has " + std::to_string(prefix.size()) +
                         " characters, texts have at most 15");
    for (const char c : prefix)
        if (!(c >= 'A' && c <= 'Z') && encoding::kAlphabet.find(c) == std::string_view::npos)
            throw UsageError("no text begins with the prefix \"" + prefix + "\": texts are made of \"" +
                             std::string(encoding::kAlphabet) + "\"");
}

class Listening {
public:
    explicit Listening(const ListenOptions& options)
        : m_options(options), m_receiver(options.prefix, options.all ? Repeats::Report : Repeats::Drop,
                                         [this](const Heard& heard) {
                                             m_wasHeard = true;
                                             m_status.clear();
                                             printLine(m_options.json ? jsonLine(heard, m_file) : heard.text);
                                         }) {}

    /// @throws AudioFileError; what was heard before it has been printed
    void listenTo(const std::string& file) {
        m_file = file;
        AudioFileReader reader(file, m_options.isRaw ? std::optional(m_options.raw) : std::nullopt);
        if (reader.sampleRate_hz() < 2 * kHighestTone_hz)
            warn(file + " has " + std::to_string(reader.sampleRate_hz()) +
                 " Hz: too few for tones up to 19.5 kHz; record at 44100 Hz or more");

        m_receiver.begin(reader.sampleRate_hz());
        try {
            if (hearAll(reader) == 0)
                warn(file +
                     " holds no samples; a recorder that was cut short may have left them to be read as raw");
        } catch (const AudioFileError&) {
            m_receiver.end(); // damaged: what lies before it counts
            throw;
        }
        m_receiver.end();
    }

    bool wasHeard() const { return m_wasHeard; }

    void warn(const std::string& text) {
        m_status.clear();
        printError(text);
    }

private:
    /// Answers the number of frames.
    std::uint64_t hearAll(AudioFileReader& reader) {
        // 100 ms, so that a live stream waits for no more than that.
        std::vector<float> block(static_cast<std::size_t>(reader.sampleRate_hz()) / 10);
        std::uint64_t frames = 0;
        while (const std::size_t n = reader.read(block)) {
            m_receiver.take(std::span(block).first(n));
            frames += n;
            m_status.show([&] { return progress(reader, frames); });
        }
        m_status.clear();
        return frames;
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
    TextReceiver m_receiver;
};

int listen(const ListenOptions& options) {
    checkPrefix(options.prefix);
    if (options.isRaw && options.raw.sampleRate_hz == 0) throw UsageError("--raw needs --rate");
    Listening listening(options);
    bool hasFailed = false;
    for (const std::string& file : options.files) {
        try {
            listening.listenTo(file);
        } catch (const AudioFileError& error) {
            listening.warn(error.what());
            hasFailed = true;
        } catch (const OutputClosed&) {
            break;
        }
    }
    if (hasFailed) return kFailed;
    return listening.wasHeard() ? kDone : kNothingHeard;
}

} // namespace

Command addListen(CLI::App& sorvel) {
    const auto options = std::make_shared<ListenOptions>();
    CLI::App* const app = sorvel.add_subcommand("listen", "Print the texts that recordings or a stream hold");
    app->footer(kFooter);
    app->add_option("FILE", options->files,
                    "recordings (WAV, FLAC, OGG, ...), or - for a WAV stream on standard input")
        ->required();
    app->add_option("--prefix", options->prefix, "only texts that begin so; without it, all");
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
    return {app, [options] { return listen(*options); }};
}

} // namespace sorvel
