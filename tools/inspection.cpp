#include "tools/inspection.hpp"

#include "deep/delivery.hpp"
#include "modem/rs.hpp"
#include "payload/encoding.hpp"

#include <algorithm>
#include <cmath>
#include <memory>
#include <span>

namespace sorvel::inspection {

namespace {

using deep::kNibbles;
using deep::Scores;
using deep::WordBytes;

constexpr double kClear = 0.9;
constexpr double kSameText_s = 1.0; // the classic receiver repeats a text while it sounds
constexpr double kSameEnd_s = 0.6;  // its blocks end some tenths of a second behind a transmission
constexpr double kSilence = 1e-6;   // below half a step of 16 bits
constexpr int kReadable = 22;       // clear nibbles from which on two wrong bytes are no accident
constexpr int kVague = 8;           // clear nibbles that something else may give
constexpr float kAnything = 0.03F;  // that nibbles' probabilities were mixed with

unsigned nibbleOf(const WordBytes& bytes, std::size_t nibble) {
    return bytes[nibble / 2] >> 4 * (nibble % 2) & 0xFU;
}

WordBytes wordOf(const std::string& text) {
    std::array<char, encoding::kPayloadBytes> payload{};
    compressString(text, payload.data());
    WordBytes word{};
    std::transform(payload.begin(), payload.end(), word.begin(),
                   [](char c) { return static_cast<std::uint8_t>(c); });
    RS::ReedSolomon(encoding::kPayloadBytes, 4).EncodeBlock(word.data(), word.data() + payload.size());
    return word;
}

std::array<Nibble, kNibbles> nibblesOf(const Scores& scores) {
    std::array<Nibble, kNibbles> nibbles{};
    for (std::size_t i = 0; i < kNibbles; ++i) {
        const auto most = std::max_element(scores[i].begin(), scores[i].end());
        const float probability = (std::exp(*most) - kAnything) / (16.0F * (1.0F - kAnything));
        nibbles[i].value = static_cast<unsigned>(most - scores[i].begin());
        nibbles[i].certainty = std::clamp(static_cast<double>(probability), 1.0 / 16.0, 1.0);
    }
    return nibbles;
}

void compare(std::array<Nibble, kNibbles>& nibbles, const WordBytes& word) {
    for (std::size_t i = 0; i < kNibbles; ++i) nibbles[i].isWrong = nibbles[i].value != nibbleOf(word, i);
}

std::optional<std::string> textIn(const Scores& scores, const std::string& prefix) {
    deep::Workspace workspace;
    const auto delivery = std::make_unique<deep::Delivery>(prefix, workspace); // too large for every stack
    delivery->beginAttempt();
    delivery->begin(scores);
    constexpr int kWords = 100'000;
    while (!delivery->step(kWords)) {
    }
    const auto word = delivery->accepted();
    if (!word) return std::nullopt;
    return std::string(word->text.data(), word->length);
}

/// Whether the likeliest nibbles, with up to two bytes corrected, are a code word that holds no text.
bool hasWrongCheckByte(const std::array<Nibble, kNibbles>& nibbles) {
    WordBytes word{};
    for (std::size_t i = 0; i < kNibbles; ++i)
        word[i / 2] = static_cast<std::uint8_t>(word[i / 2] | nibbles[i].value << 4 * (i % 2));
    std::array<char, encoding::kPayloadBytes> payload{};
    RS::ReedSolomon code(encoding::kPayloadBytes, 4);
    return code.DecodeBlock(word.data(), word.data() + payload.size(), payload.data()) == 0 &&
           encoding::extractStrings(payload.data()) == encoding::kError;
}

/// How well a sighting agrees with what was sent, nats.
float agreement(const Sighting& sighting, const WordBytes& word) {
    const auto sum = [&word](const Scores& scores) {
        float total = 0.0F;
        for (std::size_t i = 0; i < kNibbles; ++i) total += scores[i][nibbleOf(word, i)];
        return total;
    };
    return std::max(sum(sighting.scores), sighting.second ? sum(*sighting.second) : 0.0F);
}

struct Choice {
    const Sighting* sighting = nullptr;
    std::string text; // that it is known to carry
};

/// The sighting that agrees most with one of the texts that count. Ends a chunk off have nearly the same
/// evidence, but not the same nibbles.
template <typename Counts>
Choice agreeing(const Report& report, const std::vector<Sighting>& sightings, Counts&& counts) {
    Choice choice;
    float most = 0.0F;
    for (const Text& text : report.texts) {
        if (!counts(text)) continue;
        const WordBytes word = wordOf(text.text);
        for (const Sighting& sighting : sightings) {
            if (std::abs(text.end_s - sighting.end_s) > kSameEnd_s) continue;
            const float agreed = agreement(sighting, word);
            if (agreed <= most) continue;
            most = agreed;
            choice = {&sighting, text.text};
        }
    }
    return choice;
}

/// By evidence, the one that can be read among those of the same transmission.
Choice likeliest(const Report& report, const std::vector<Sighting>& sightings) {
    if (sightings.empty()) return {};
    std::vector<const Sighting*> sorted;
    sorted.reserve(sightings.size());
    for (const Sighting& sighting : sightings) sorted.push_back(&sighting);
    std::sort(sorted.begin(), sorted.end(),
              [](const Sighting* a, const Sighting* b) { return a->air.evidence > b->air.evidence; });
    const double end_s = sorted.front()->end_s;
    const auto isSame = [end_s](double other_s) { return std::abs(other_s - end_s) < kTransmission_s / 2; };
    Choice other = agreeing(report, sightings, [&](const Text& text) { return isSame(text.end_s); });
    if (other.sighting != nullptr) return other;
    for (const Sighting* const sighting : sorted) {
        if (!isSame(sighting->end_s)) continue;
        for (const std::string& prefix : {report.prefix, std::string()}) {
            if (const auto text = textIn(sighting->scores, prefix)) return {sighting, *text};
            if (!sighting->second) continue;
            if (const auto text = textIn(*sighting->second, prefix)) return {sighting, *text};
        }
    }
    return {sorted.front(), {}};
}

Choice chosen(const Report& report, const std::vector<Sighting>& sightings) {
    const auto isWanted = [](const Text& text) { return text.isWanted; };
    const Choice wanted = agreeing(report, sightings, isWanted);
    // Beside a text that was heard, a candidate that does not agree with it would only mislead.
    const bool isHeard = std::any_of(report.texts.begin(), report.texts.end(), isWanted);
    return wanted.sighting != nullptr || isHeard ? wanted : likeliest(report, sightings);
}

/// Without the noise that the search added; `kCover_db` where there is next to no other.
double withoutCover(double snr_db) {
    const double cover = std::pow(10.0, -kCover_db / 10.0);
    return -10.0 * std::log10(std::max(std::pow(10.0, -snr_db / 10.0) - cover, cover));
}

/// Which nibbles it shows, by the view that has the most right where the text is known.
void read(Best& best, const Sighting& sighting) {
    best.nibbles = nibblesOf(sighting.scores);
    if (best.text.empty()) return;
    std::vector<const Scores*> views{&sighting.scores};
    if (sighting.second) views.push_back(&*sighting.second);
    const WordBytes word = wordOf(best.text);
    int most = -1;
    for (const Scores* const view : views) {
        auto nibbles = nibblesOf(*view);
        compare(nibbles, word);
        const auto right = static_cast<int>(std::count_if(
            nibbles.begin(), nibbles.end(), [](const Nibble& n) { return n.isClear() && !n.isWrong; }));
        if (right <= most) continue;
        most = right;
        best.nibbles = nibbles;
    }
    const deep::Arrival arrived = deep::arrival(sighting.energies, word);
    best.snr_db = withoutCover(static_cast<double>(arrived.snr_db));
    best.echo = static_cast<double>(arrived.echo);
}

Verdict judged(Report& report, const Best& best) {
    if (!best.text.empty()) {
        report.detail = best.text;
        return best.text.starts_with(report.prefix) ? Verdict::Missed : Verdict::OtherPrefix;
    }
    const int clear = best.clearNibbles();
    if (clear >= kReadable && hasWrongCheckByte(best.nibbles)) return Verdict::CheckByteWrong;
    return clear < kNeededNibbles ? Verdict::TooUnclear : Verdict::NoText;
}

} // namespace

bool Nibble::isClear() const noexcept { return certainty >= kClear; }

int Best::clearNibbles() const noexcept {
    return static_cast<int>(
        std::count_if(nibbles.begin(), nibbles.end(), [](const Nibble& n) { return n.isClear(); }));
}

void add(std::vector<Text>& texts, const Text& text) {
    for (Text& other : texts) {
        if (other.text != text.text || std::abs(other.end_s - text.end_s) > kSameText_s) continue;
        if (text.isByDeep) other.end_s = text.end_s;
        other.isByClassic = other.isByClassic || text.isByClassic;
        other.isByDeep = other.isByDeep || text.isByDeep;
        return;
    }
    texts.push_back(text);
    std::sort(texts.begin(), texts.end(), [](const Text& a, const Text& b) { return a.end_s < b.end_s; });
}

void readBest(Report& report, const std::vector<Sighting>& sightings) {
    const Choice choice = chosen(report, sightings);
    if (const Sighting* const sighting = choice.sighting) {
        Best& best = report.best.emplace();
        best.end_s = sighting->end_s;
        best.start_s = sighting->end_s - kTransmission_s;
        best.speed_m_s = sighting->speed_m_s;
        best.isMoving = sighting->isMoving;
        best.snr_db = static_cast<double>(sighting->air.ratio - deep::kBandOverTone_dB);
        best.echo = static_cast<double>(sighting->air.echo);
        best.text = choice.text;
        read(best, *sighting);
    }
    const auto wanted = [](const Text& text) { return text.isWanted; };
    if (std::any_of(report.texts.begin(), report.texts.end(), wanted)) {
        report.verdict = Verdict::Heard;
    } else if (report.rate_hz < kLowestRate_hz) {
        report.verdict = Verdict::RateTooLow;
    } else if (report.peak < kSilence) {
        report.verdict = Verdict::Silence;
    } else if (report.best) {
        report.verdict = judged(report, *report.best);
    } else if (!report.texts.empty()) {
        report.verdict = Verdict::OtherPrefix;
        report.detail = report.texts.front().text;
    } else {
        report.verdict = Verdict::Nothing;
    }
}

void judgeBand(Report& report) {
    // A whistle that begins, or what a coder left, looks a little like a transmission too.
    const bool isVague =
        report.verdict == Verdict::TooUnclear && report.best && report.best->clearNibbles() < kVague;
    if (report.verdict != Verdict::Nothing && !isVague) return;
    const auto isInBand = [](const check::Whistle& whistle) {
        return whistle.frequency_hz > 17950.0 && whistle.frequency_hz < 19550.0;
    };
    const auto& whistles = report.band.whistles;
    if (report.band.nothingAbove_hz)
        report.verdict = Verdict::BandRemoved;
    else if (report.to_s - report.from_s < kTransmission_s)
        report.verdict = Verdict::TooShort;
    else if (std::any_of(whistles.begin(), whistles.end(), isInBand))
        report.verdict = Verdict::Whistle;
    if (report.verdict != Verdict::TooUnclear) report.best.reset();
}

} // namespace sorvel::inspection
