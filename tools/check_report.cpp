#include "tools/check_report.hpp"

#include "platform/audio/cubeb_devices.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <span>

namespace sorvel::check {

namespace {

// A text is heard with noise 4 dB stronger than its two tones within 1500 Hz, of which one tone's
// share is 46.9 Hz: 10 lg(32 / 2) - 4 dB.
constexpr double kClear_db = 8.0;
constexpr int kEnoughTones = 28;  // a text outlives some that are missing, but not all nibbles at once
constexpr double kSilence = 1e-6; // below half a step of 16 bits; a microphone's own noise is above
constexpr double kShortLoss_s = 0.02, kHarmfulLoss_s = 0.2;
constexpr double kBandFrom_hz = 17950.0, kBandTo_hz = 19550.0;
constexpr double kHarmfulBelowTones_db = 20.0, kHarmfulWhistle_dbfs = -90.0;
constexpr double kRemoved_db = 25.0, kSlope_db = 10.0;

constexpr std::array<const char*, 7> kVerdicts{
    "good", "cannot carry the band", "no sound", "not heard", "disturbed", "weak", "sound is lost"};

template <typename... Values>
std::string formatted(const char* form, Values... values) {
    std::array<char, 200> text{};
    std::snprintf(text.data(), text.size(), form, values...);
    return text.data();
}

std::span<const Tone> tones(const Found& found) {
    return std::span(found.response).subspan(kFirstTone, kTones);
}

double meanLevel_dbfs(std::span<const Tone> some) {
    double sum = 0.0;
    for (const Tone& tone : some) sum += tone.level_dbfs;
    return some.empty() ? 0.0 : sum / static_cast<double>(some.size());
}

/// How much weaker the last ten tones are than the first ten.
double slope_db(const Found& found) {
    const auto all = tones(found);
    return meanLevel_dbfs(all.first(10)) - meanLevel_dbfs(all.last(10));
}

std::vector<Whistle> harmfulWhistles(const Report& report) {
    std::vector<Whistle> harmful;
    if (!report.background) return harmful;
    const double weakest_dbfs =
        report.found ? meanLevel_dbfs(tones(*report.found)) - kHarmfulBelowTones_db : kHarmfulWhistle_dbfs;
    for (const Whistle& whistle : report.background->whistles)
        if (whistle.frequency_hz > kBandFrom_hz && whistle.frequency_hz < kBandTo_hz &&
            whistle.level_dbfs > weakest_dbfs)
            harmful.push_back(whistle);
    return harmful;
}

bool cannotCarry(const Report& report) {
    return !carriesBand(report.input.rate_hz) || (report.output && !carriesBand(report.output->rate_hz));
}

bool isSilent(const Report& report) { return report.background && report.background->peak < kSilence; }

bool losesSound(const Report& report, double most_s) {
    return report.overruns > 0 || (report.found && report.found->late_s && *report.found->late_s < -most_s);
}

std::string lossLine(const Report& report) {
    std::string line;
    const auto add = [&](const std::string& more) { line += (line.empty() ? "" : "; ") + more; };
    if (report.overruns > 0)
        add(formatted("%llu times by this machine, which was too slow",
                      static_cast<unsigned long long>(report.overruns)));
    if (report.found && !report.found->late_s) add("the end of what was played did not come back");
    if (report.found && report.found->late_s && std::abs(*report.found->late_s) > kShortLoss_s)
        add(formatted(*report.found->late_s < 0.0 ? "%.0f ms on the way"
                                                  : "none, but %.0f ms inserted on the way",
                      1000.0 * std::abs(*report.found->late_s)));
    if (report.gaps > 0)
        add(formatted("playing broke off %llu times", static_cast<unsigned long long>(report.gaps)));
    return line.empty() ? formatted("none in %.0f s", report.listened_s) : line;
}

std::string described(const Device& device) {
    return device.name + formatted(", %.0f Hz", device.rate_hz) +
           (device.isMonitor ? " (hears what this machine plays, not the room)" : "");
}

std::string responseLine(const Found& found) {
    std::string line = "dB at kHz:";
    const double reference = meanLevel_dbfs(tones(found));
    for (const double frequency_hz : {17500.0, 18000.0, 18500.0, 19000.0, 19500.0, 20000.0}) {
        const auto nearest =
            std::min_element(found.response.begin(), found.response.end(), [&](const Tone& a, const Tone& b) {
                return std::abs(a.frequency_hz - frequency_hz) < std::abs(b.frequency_hz - frequency_hz);
            });
        line += formatted("  %.1f: %ld", frequency_hz / 1000.0, std::lround(nearest->level_dbfs - reference));
    }
    return line;
}

} // namespace

int clearTones(const Found& found) {
    const auto all = tones(found);
    return static_cast<int>(
        std::count_if(all.begin(), all.end(), [](const Tone& tone) { return tone.snr_db >= kClear_db; }));
}

Verdict verdict(const Report& report) {
    if (cannotCarry(report)) return Verdict::CannotCarry;
    const bool isPlayed = report.output.has_value();
    if (isSilent(report) && !isPlayed && !report.input.isMonitor) return Verdict::NoSound;
    if (!harmfulWhistles(report).empty()) return Verdict::Disturbed;
    if (report.background && report.background->falloff_db > kRemoved_db) return Verdict::Weak;
    if (isPlayed && !report.found && report.textsHeard == 0) return Verdict::NotHeard;
    if (isPlayed &&
        (!report.found || report.textsHeard < report.textsSent || clearTones(*report.found) < kEnoughTones))
        return losesSound(report, kShortLoss_s) ? Verdict::Lossy : Verdict::Weak;
    return losesSound(report, kHarmfulLoss_s) ? Verdict::Lossy : Verdict::Good;
}

std::vector<std::string> advice(const Report& report) {
    std::vector<std::string> result;
    if (const std::string line = rateWarning(report.input.rate_hz, "input"); !line.empty())
        result.push_back(report.input.name + ": " + line);
    if (report.output)
        if (const std::string line = rateWarning(report.output->rate_hz, "output"); !line.empty())
            result.push_back(report.output->name + ": " + line);
    if (!report.background) return result;
    for (const Whistle& whistle : harmfulWhistles(report))
        result.push_back(
            formatted("a whistle at %.0f Hz, %.0f dBFS, hides tones: find what makes it (a power "
                      "supply, a screen, a motion sensor) or move away from it",
                      whistle.frequency_hz, whistle.level_dbfs));
    if (report.background->falloff_db > kRemoved_db)
        result.push_back(
            formatted("even the noise is %.0f dB weaker in the band than below it: something removes "
                      "the band; turn off noise suppression, and conversion of rates in the "
                      "sound server",
                      report.background->falloff_db));
    const Verdict is = verdict(report);
    if (is == Verdict::NoSound) result.emplace_back("the input gives nothing but zeros: it may be muted");
    if (is == Verdict::NotHeard)
        result.emplace_back(
            "nothing of what was played came back: turn the loudspeaker up, see that the input is "
            "not muted, or choose others with --device and --output-device");
    if (report.found && slope_db(*report.found) > kSlope_db)
        result.push_back(
            formatted("the upper tones come %.0f dB weaker than the lower ones: the microphone or the "
                      "loudspeaker ends below 19.5 kHz, or a sound server converts rates",
                      slope_db(*report.found)));
    if (is == Verdict::Weak && report.found)
        result.emplace_back("tones come too weak for the noise: turn the loudspeaker up or go nearer");
    if (losesSound(report, kShortLoss_s) || report.gaps > 0)
        result.emplace_back("sound is lost: end programs that keep this machine busy, or give the sound "
                            "server longer buffers");
    return result;
}

std::vector<std::string> lines(const Report& report) {
    std::vector<std::string> result{"input     " + described(report.input)};
    if (report.output) result.push_back("output    " + described(*report.output));
    if (report.background) {
        result.push_back(formatted("noise     %.0f dBFS from 18 to 19.5 kHz", report.background->noise_dbfs));
        if (report.background->whistles.empty()) result.emplace_back("whistles  none");
        for (const Whistle& whistle : report.background->whistles)
            result.push_back(formatted("whistle   %.0f Hz, %.0f dBFS, %.0f dB over the noise",
                                       whistle.frequency_hz, whistle.level_dbfs, whistle.overNoise_db));
    }
    if (report.found) {
        result.push_back(formatted("tones     %d of %zu clear; level and signal-to-noise of each:",
                                   clearTones(*report.found), kTones));
        const auto all = tones(*report.found);
        for (std::size_t row = 0; row < kTones / 2; ++row) {
            std::string line = "        ";
            for (const std::size_t at : {row, row + kTones / 2})
                line += formatted("  %5.0f Hz %6.1f dBFS %4.0f dB  ", all[at].frequency_hz,
                                  all[at].level_dbfs, all[at].snr_db);
            result.push_back(line.substr(0, line.find_last_not_of(' ') + 1));
        }
        result.push_back("response  " + responseLine(*report.found));
    } else if (report.output && report.background) {
        result.emplace_back("tones     none came back");
    }
    if (report.background) result.push_back("lost      " + lossLine(report));
    if (report.output && report.background)
        result.push_back(formatted("texts     %d of %d heard", report.textsHeard, report.textsSent));
    result.push_back(std::string("verdict   ") + kVerdicts[static_cast<std::size_t>(verdict(report))]);
    for (const std::string& line : advice(report)) result.push_back("          " + line);
    return result;
}

std::string jsonLine(const Report& report) {
    using Json = nlohmann::ordered_json;
    const auto tenth = [](double value) { return std::round(10.0 * value) / 10.0; };
    const auto device = [](const Device& from) {
        return Json{
            {"name", from.name                },
            {"rate", std::lround(from.rate_hz)}
        };
    };
    const auto list = [&](std::span<const Tone> some) {
        Json all = Json::array();
        for (const Tone& tone : some)
            all.push_back(Json{
                {"frequency",  tenth(tone.frequency_hz)},
                {"level_dbfs", tenth(tone.level_dbfs)  },
                {"snr_db",     tenth(tone.snr_db)      }
            });
        return all;
    };
    Json line;
    line["verdict"] = kVerdicts[static_cast<std::size_t>(verdict(report))];
    line["advice"] = advice(report);
    line["input"] = device(report.input);
    line["input"]["monitor"] = report.input.isMonitor;
    if (report.output) line["output"] = device(*report.output);
    if (report.background) {
        line["noise_dbfs"] = tenth(report.background->noise_dbfs);
        line["whistles"] = Json::array();
        for (const Whistle& whistle : report.background->whistles)
            line["whistles"].push_back(Json{
                {"frequency",     tenth(whistle.frequency_hz)},
                {"level_dbfs",    tenth(whistle.level_dbfs)  },
                {"over_noise_db", tenth(whistle.overNoise_db)}
            });
        line["overruns"] = report.overruns;
    }
    if (report.output && report.background) {
        line["tones"] = report.found ? list(tones(*report.found)) : Json::array();
        line["response"] = report.found ? list(report.found->response) : Json::array();
        line["late_ms"] =
            report.found && report.found->late_s ? Json(std::lround(1000.0 * *report.found->late_s)) : Json();
        line["gaps"] = report.gaps;
        line["texts_sent"] = report.textsSent;
        line["texts_heard"] = report.textsHeard;
    }
    return line.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace sorvel::check
