#include "platform/files/audio_file_reader.hpp"
#include "platform/files/picture.hpp"
#include "tools/channel_reader.hpp"
#include "tools/command.hpp"
#include "tools/deep_recording_decoder.hpp"
#include "tools/inspection_picture.hpp"
#include "tools/inspection_report.hpp"
#include "tools/interruption.hpp"
#include "tools/recording_decoder.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace sorvel {

namespace {

using namespace inspection;

struct InspectOptions {
    std::string file;
    std::string picture;
    std::string prefix;
    std::optional<double> from_s, to_s;
    std::optional<std::uint32_t> channel; ///< from 1 on; none: the best
    bool json = false;
};

constexpr const char* kFooter =
    "Examples:\n"
    "  sorvel inspect hall.wav --prefix acme\n"
    "  sorvel inspect hall.wav --prefix acme -o hall.png\n"
    "  sorvel inspect day.flac --from 3600 --to 3660 -o hour.svg --json\n"
    "Tells which texts either receiver delivered, and of what looked most like a transmission: which of its "
    "34\n"
    "nibbles are clear, signal-to-noise ratio, speed of the source, echo, and why no text came of it.\n"
    "The picture has 1000 x 560 pixels: 17 to 20.5 kHz over the 10 s around the best, or over all between "
    "--from\n"
    "and --to, with marks where texts were found. The file is read twice, piece by piece.\n"
    "With --json it is one object: file, rate_hz, from_s, to_s, verdict, reason, notes, texts (text, end_s, "
    "classic,\n"
    "deep, wanted), best (start_s, end_s, text, snr_db, speed_m_s, changes_speed, echo, clear_nibbles,\n"
    "needed_nibbles, nibbles: value, certainty, clear, low before high), noise_dbfs, whistles, "
    "nothing_above_hz.\n"
    "Exit status: 0 something was heard, 1 nothing was, 2 wrong usage or a file that cannot be read.";

constexpr double kShown_s = 10.0;
constexpr const char* kReadsTwice = "inspect reads twice: name a file, not a pipe or standard input";

/// Goes through a part of a recording, piece by piece.
class Reading {
public:
    Reading(const InspectOptions& options, StatusLine& status) : m_options(options), m_status(status) {}

    /// @param take  gets the samples between two times, in order. @return where they ended, seconds
    double read(double from_s, double to_s, const char* what,
                const std::function<void(std::span<const float>)>& take) {
        AudioFileReader reader(m_options.file);
        const int rate_hz = reader.sampleRate_hz();
        const auto inTenth = static_cast<std::uint64_t>(rate_hz) / 10;
        ChannelReader channel(reader, m_options.channel);
        const auto first = frame(from_s, rate_hz), last = frame(to_s, rate_hz);
        std::uint64_t at = 0;
        while (at < last) {
            if (Interruption::hasCome()) throw Interrupted();
            std::span<const float> samples = channel.next();
            if (samples.empty()) break;
            samples = samples.first(std::min<std::uint64_t>(samples.size(), last - at));
            if (at + samples.size() > first) take(samples.subspan(first > at ? first - at : 0));
            at += samples.size();
            m_status.show([&] {
                std::string text =
                    m_options.file + ": " + what + ", " + std::to_string(at / inTenth / 10) + " s";
                const std::uint64_t all = std::min(last, reader.frames().value_or(last));
                if (all > 0) text += ", " + std::to_string(100 * at / all) + " %";
                return text;
            });
        }
        m_status.clear();
        return static_cast<double>(std::max(at, std::min(first, last))) / rate_hz;
    }

private:
    static std::uint64_t frame(double time_s, int rate_hz) {
        return time_s < 1e9 ? static_cast<std::uint64_t>(std::llround(time_s * rate_hz))
                            : std::numeric_limits<std::uint64_t>::max();
    }

    const InspectOptions& m_options;
    StatusLine& m_status;
};

bool isLowerCaseEqual(const std::string& text, const std::string& prefix) {
    return text.size() >= prefix.size() &&
           std::equal(prefix.begin(), prefix.end(), text.begin(),
                      [](char p, char t) { return (p >= 'A' && p <= 'Z' ? p - 'A' + 'a' : p) == t; });
}

/// Both receivers and the search for what looks like a transmission, at once.
Report searched(const InspectOptions& options, Reading& reading) {
    Report report;
    report.file = options.file;
    report.prefix = options.prefix;
    std::transform(report.prefix.begin(), report.prefix.end(), report.prefix.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    report.rate_hz = AudioFileReader(options.file).sampleRate_hz();
    report.from_s = options.from_s.value_or(0.0);
    const auto hear = [&report](const Heard& heard) {
        const bool isDeep = heard.circumstances.has_value();
        add(report.texts, {heard.text, report.from_s + heard.time_s, !isDeep, isDeep,
                           isLowerCaseEqual(heard.text, report.prefix)});
    };
    // The classic one hears every text, which costs it nothing, and so tells other prefixes too.
    RecordingDecoder classic("", hear);
    DeepRecordingDecoder deep(report.prefix, hear);
    Recording toClassic(classic, report.rate_hz), toDeep(deep, report.rate_hz);
    const bool carries = report.rate_hz >= kLowestRate_hz;
    TransmissionSearch search(carries ? report.rate_hz : 48000.0);
    report.to_s = reading.read(
        report.from_s, options.to_s.value_or(1e9), "searched", [&](std::span<const float> samples) {
            for (const float sample : samples)
                report.peak = std::max(report.peak, std::abs(static_cast<double>(sample)));
            if (!carries) return;
            toClassic.take(samples);
            toDeep.take(samples);
            search.take(samples);
        });
    if (carries) {
        toClassic.finish();
        toDeep.finish();
        search.finish();
    }
    std::vector<Sighting> sightings = search.sightings();
    for (Sighting& sighting : sightings) sighting.end_s += report.from_s;
    readBest(report, sightings);
    return report;
}

/// All that was asked for, or the surroundings of what there is to see.
Part shown(const InspectOptions& options, const Report& report) {
    Part part{report.from_s, report.to_s};
    if (options.from_s || options.to_s || part.to_s - part.from_s <= kShown_s) return part;
    const double end_s = report.best            ? report.best->end_s
                         : report.texts.empty() ? 0.0
                                                : report.texts.front().end_s;
    part.from_s = std::clamp(end_s - kTransmission_s / 2 - kShown_s / 2, part.from_s, part.to_s - kShown_s);
    part.to_s = part.from_s + kShown_s;
    return part;
}

void check(const InspectOptions& options) {
    if (options.from_s && options.to_s && *options.from_s >= *options.to_s)
        throw UsageError("--from is not before --to");
    checkPrefix(options.prefix);
    if (!options.picture.empty()) checkPicturePath(options.picture);
    if (options.file == "-") throw UsageError(kReadsTwice);
    const AudioFileReader reader(options.file);
    if (!reader.frames()) throw UsageError(kReadsTwice);
    if (options.channel && *options.channel > static_cast<std::uint32_t>(reader.channels()))
        throw UsageError(options.file + " has no channel " + std::to_string(*options.channel) +
                         ", its last one is " + std::to_string(reader.channels()));
}

int inspect(const InspectOptions& options) {
    check(options);
    const Interruption interruption;
    StatusLine status;
    Reading reading(options, status);
    Report report = searched(options, reading);
    if (report.to_s <= report.from_s)
        throw UsageError(options.file + (options.from_s && report.to_s > 0.0
                                             ? " ends before --from"
                                             : " holds no samples: record it anew"));
    const Part part = shown(options, report);
    Spectrogram spectrogram(report.rate_hz, part.to_s - part.from_s);
    reading.read(part.from_s, part.to_s, "drawn",
                 [&](std::span<const float> samples) { spectrogram.take(samples); });
    spectrogram.finish();
    report.band = spectrogram.facts();
    judgeBand(report);
    if (!options.picture.empty()) draw(options.picture, report, spectrogram, part);
    if (options.json)
        printLine(jsonLine(report));
    else
        for (const std::string& line : lines(report)) printLine(line);
    return report.verdict == Verdict::Heard ? kDone : kNothingHeard;
}

} // namespace

Command addInspect(CLI::App& sorvel) {
    const auto options = std::make_shared<InspectOptions>();
    CLI::App* const app = sorvel.add_subcommand("inspect", "Tell why a recording gave a text, or none");
    app->footer(kFooter);
    app->add_option("FILE", options->file, "a recording (WAV, FLAC, OGG, ...)")->required();
    app->add_option("-o,--output", options->picture, "picture to write, its name ending in .png or .svg")
        ->check(given("the name of the picture"))
        ->type_name("PICTURE");
    app->add_option("--prefix", options->prefix, "of the texts that are waited for; without it, all")
        ->check(given("the prefix"));
    app->add_option("--from", options->from_s, "second at which to begin")->check(seconds(1e9));
    app->add_option("--to", options->to_s, "second at which to end")->check(seconds(1e9));
    app->add_option(
           "--channel", options->channel,
           "the one to look at, from 1 on; without it, the one in which transmissions stand out best")
        ->check(CLI::Range(1, AudioFileReader::kMaxChannels));
    app->add_flag("--json", options->json, "one JSON object");
    return {app, [options] { return inspect(*options); }};
}

} // namespace sorvel
