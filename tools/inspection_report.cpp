#include "tools/inspection_report.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace sorvel::inspection {

namespace {

constexpr double kSlow_m_s = 0.05; // below it is what clocks differ by
constexpr double kNoEcho = 0.005;  // rounds to nothing
constexpr double kLoudEcho = 0.25;
constexpr double kFaint_db = -11.0; // a text that is heard once needs more
constexpr double kFast_m_s = 2.0;   // that a source may have
constexpr double kCut_s = 0.1;

template <typename... Values>
std::string formatted(const char* form, Values... values) {
    std::array<char, 200> text{};
    std::snprintf(text.data(), text.size(), form, values...);
    return text.data();
}

std::string inQuotes(const std::string& text) { return '"' + text + '"'; }

/// The sum has no sign where it is zero.
double rounded(double value, double steps) { return std::round(value * steps) / steps + 0.0; }

constexpr std::array<const char*, 12> kVerdicts{
    "heard",        "rate too low", "silence",      "other prefix", "check byte wrong", "too unclear",
    "no text fits", "missed",       "band removed", "whistle",      "too short",        "nothing"};

std::string nibbleLine(const Best& best, std::size_t side) {
    std::string line;
    for (std::size_t chunk = 0; chunk < deep::kChunks; ++chunk) {
        const Nibble& nibble = best.nibbles[2 * chunk + side];
        line += nibble.isClear() ? formatted(" %x", nibble.value) : " .";
    }
    return line;
}

} // namespace

std::string signalWords(const Best& best) {
    return best.snr_db < kCover_db ? formatted("%.1f dB", best.snr_db)
                                   : formatted("%.0f dB or more", kCover_db);
}

std::string speedWords(const Best& best) {
    if (std::abs(best.speed_m_s) < kSlow_m_s)
        return best.isMoving ? "changes, 0.0 m/s on average" : "at rest";
    return formatted("%.2f m/s %s%s", std::abs(best.speed_m_s), best.speed_m_s > 0.0 ? "closer" : "away",
                     best.isMoving ? " on average, changes" : "");
}

std::string echoWords(const Best& best) {
    if (best.echo < kNoEcho) return "none";
    return formatted("%.0f %% of a tone's energy is left 192 ms later", 100.0 * best.echo);
}

std::string receiverWords(const Text& text) {
    return text.isByClassic && text.isByDeep ? "both receivers"
           : text.isByDeep                   ? "the deep receiver alone"
                                             : "the classic receiver alone";
}

std::string reason(const Report& report) {
    const int clear = report.best ? report.best->clearNibbles() : 0;
    switch (report.verdict) {
    case Verdict::Heard:
        return "heard";
    case Verdict::RateTooLow:
        return formatted("the rate of %d Hz cannot carry the band: tones reach 19.5 kHz", report.rate_hz);
    case Verdict::Silence:
        return "silence: nothing but zeros";
    case Verdict::OtherPrefix:
        return "other prefix: " + inQuotes(report.detail);
    case Verdict::CheckByteWrong:
        return "check byte wrong";
    case Verdict::TooUnclear:
        return formatted("%d of %zu nibbles clear, %d needed", clear, deep::kNibbles, kNeededNibbles);
    case Verdict::NoText:
        return formatted("%d of %zu nibbles clear, but no text fits them", clear, deep::kNibbles);
    case Verdict::Missed:
        return inQuotes(report.detail) + " can be read, but was not delivered in passing";
    case Verdict::BandRemoved:
        return formatted("nothing above %.0f Hz: the band was removed",
                         report.band.nothingAbove_hz.value_or(0.0));
    case Verdict::Whistle:
        return formatted("no transmission, but a whistle at %.0f Hz",
                         report.band.whistles.front().frequency_hz);
    case Verdict::TooShort:
        return formatted("%.1f s are too short for a transmission, which takes 3.3 s",
                         report.to_s - report.from_s);
    case Verdict::Nothing:
        break;
    }
    return "nothing that looks like a transmission";
}

std::vector<std::string> notes(const Report& report) {
    std::vector<std::string> result;
    if (report.verdict == Verdict::Heard) return result;
    if (report.verdict == Verdict::RateTooLow) result.emplace_back("record at 44100 Hz or more");
    if (report.band.nothingAbove_hz)
        result.push_back(formatted("what is above %.0f Hz was removed, as MP3, messengers and noise "
                                   "suppression do: record without them, as WAV or FLAC",
                                   report.band.nothingAbove_hz.value_or(0.0)));
    if (report.verdict == Verdict::OtherPrefix)
        result.push_back("leave --prefix out, or give the one that was sent: " + inQuotes(report.prefix) +
                         " was asked for");
    if (report.verdict == Verdict::CheckByteWrong)
        result.emplace_back("what arrived is whole, but no text: another application sends it");
    for (const check::Whistle& whistle : report.band.whistles)
        if (whistle.frequency_hz > 17950.0 && whistle.frequency_hz < 19550.0)
            result.push_back(formatted("a whistle at %.0f Hz, %.0f dBFS, hides tones", whistle.frequency_hz,
                                       whistle.level_dbfs));
    if (report.peak >= 1.0) result.emplace_back("the recording is clipped: turn the input down");
    if (!report.best || report.verdict == Verdict::OtherPrefix) return result;
    const Best& best = *report.best;
    if (best.start_s < report.from_s - kCut_s)
        result.push_back(formatted("it began %.1f s before the recording", report.from_s - best.start_s));
    if (best.end_s > report.to_s + kCut_s)
        result.push_back(formatted("the recording ends %.1f s before it does", best.end_s - report.to_s));
    if (best.snr_db < kFaint_db) result.emplace_back("it is too faint: turn the sender up or go nearer");
    if (best.echo > kLoudEcho) result.emplace_back("the room rings: go nearer to the sender");
    if (std::abs(best.speed_m_s) > kFast_m_s) result.emplace_back("the source moves faster than 2 m/s");
    return result;
}

std::vector<std::string> lines(const Report& report) {
    std::vector<std::string> result{
        "file      " + report.file +
        formatted(", %d Hz, %.1f to %.1f s", report.rate_hz, report.from_s, report.to_s)};
    for (const Text& text : report.texts)
        result.push_back("text      " + inQuotes(text.text) + formatted(" until %.2f s, by ", text.end_s) +
                         receiverWords(text) + (text.isWanted ? "" : ", other prefix"));
    if (report.best) {
        const Best& best = *report.best;
        result.push_back(formatted("best      %.2f to %.2f s, %d of %zu nibbles clear", best.start_s,
                                   best.end_s, best.clearNibbles(), deep::kNibbles));
        result.push_back("low      " + nibbleLine(best, 0));
        result.push_back("high     " + nibbleLine(best, 1));
        result.push_back("signal    " + signalWords(best) + " within 18 to 19.5 kHz");
        result.push_back("speed     " + speedWords(best));
        result.push_back("echo      " + echoWords(best));
    }
    if (report.rate_hz >= kLowestRate_hz && report.to_s > report.from_s)
        result.push_back(formatted("noise     %.0f dBFS from 18 to 19.5 kHz", report.band.noise_dbfs));
    result.push_back("result    " + reason(report));
    for (const std::string& note : notes(report)) result.push_back("          " + note);
    return result;
}

std::string jsonLine(const Report& report) {
    using Json = nlohmann::ordered_json;
    Json line;
    line["file"] = report.file;
    line["rate_hz"] = report.rate_hz;
    line["from_s"] = rounded(report.from_s, 1000.0);
    line["to_s"] = rounded(report.to_s, 1000.0);
    line["verdict"] = kVerdicts[static_cast<std::size_t>(report.verdict)];
    line["reason"] = reason(report);
    line["notes"] = notes(report);
    line["texts"] = Json::array();
    for (const Text& text : report.texts)
        line["texts"].push_back(Json{
            {"text", text.text},
            {"end_s", rounded(text.end_s, 1000.0)},
            {"classic", text.isByClassic},
            {"deep", text.isByDeep},
            {"wanted", text.isWanted}
        });
    line["best"] = Json();
    if (report.best) {
        const Best& best = *report.best;
        Json nibbles = Json::array();
        for (const Nibble& nibble : best.nibbles)
            nibbles.push_back(Json{
                {"value", nibble.value},
                {"certainty", rounded(nibble.certainty, 1000.0)},
                {"clear", nibble.isClear()}
            });
        line["best"] = Json{
            {"start_s", rounded(best.start_s, 1000.0)},
            {"end_s", rounded(best.end_s, 1000.0)},
            {"text", best.text.empty() ? Json() : Json(best.text)},
            {"snr_db", rounded(best.snr_db, 10.0)},
            {"speed_m_s", rounded(best.speed_m_s, 100.0)},
            {"changes_speed", best.isMoving},
            {"echo", rounded(best.echo, 100.0)},
            {"clear_nibbles", best.clearNibbles()},
            {"needed_nibbles", kNeededNibbles},
            {"nibbles", nibbles}
        };
    }
    line["noise_dbfs"] = rounded(report.band.noise_dbfs, 10.0);
    line["whistles"] = Json::array();
    for (const check::Whistle& whistle : report.band.whistles)
        line["whistles"].push_back(Json{
            {"frequency_hz",  rounded(whistle.frequency_hz, 10.0)},
            {"level_dbfs",    rounded(whistle.level_dbfs,   10.0)},
            {"over_noise_db", rounded(whistle.overNoise_db, 10.0)}
        });
    const auto& edge = report.band.nothingAbove_hz;
    line["nothing_above_hz"] = edge ? Json(rounded(*edge, 1.0)) : Json();
    return line.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace sorvel::inspection
