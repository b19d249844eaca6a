/// Why a recording gave a text, or none.
#pragma once

#include "tools/spectrogram.hpp"
#include "tools/transmission_search.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sorvel::inspection {

inline constexpr double kTransmission_s = 3.264;
inline constexpr int kLowestRate_hz = 39000; ///< that carries the highest tone
/// Nibbles that the code needs: 13 of the 17 bytes. The rest then follows.
inline constexpr int kNeededNibbles = 26;

/// A text that a receiver delivered.
struct Text {
    std::string text;
    double end_s = 0.0; ///< as the deep receiver tells, else the end of the classic one's block
    bool isByClassic = false, isByDeep = false;
    bool isWanted = true; ///< has the prefix
};

struct Nibble {
    unsigned value = 0;     ///< the likeliest
    double certainty = 0.0; ///< its probability, 1/16 to 1
    bool isWrong = false;   ///< another one was sent, as the text tells
    bool isClear() const noexcept;
};

/// What looked most like a transmission.
struct Best {
    double start_s = 0.0, end_s = 0.0;
    double snr_db = 0.0;    ///< tones over noise from 18 to 19.5 kHz, estimated; at most `kCover_db`
    double speed_m_s = 0.0; ///< of the source, closer is positive
    bool isMoving = false;  ///< it changed its speed
    double echo = 0.0;      ///< part of a tone's energy that is left 192 ms later, 0 to 1
    std::array<Nibble, deep::kNibbles> nibbles{};
    std::string text; ///< that it carries, if that is known
    int clearNibbles() const noexcept;
};

enum class Verdict : std::uint8_t {
    Heard,
    RateTooLow,
    Silence,
    OtherPrefix,
    CheckByteWrong,
    TooUnclear,
    NoText,
    Missed, ///< readable, but no receiver took the time
    BandRemoved,
    Whistle,
    TooShort,
    Nothing
};

struct Report {
    std::string file, prefix;
    int rate_hz = 0;
    double from_s = 0.0, to_s = 0.0; ///< what was looked at
    double peak = 0.0;               ///< of its samples
    std::vector<Text> texts;         ///< in the order of time
    std::optional<Best> best;
    BandFacts band; ///< of the part that the picture shows
    Verdict verdict = Verdict::Nothing;
    std::string detail; ///< of the verdict: another text, mostly
};

/// Adds what a receiver delivered; two receivers' deliveries of one transmission become one text.
void add(std::vector<Text>& texts, const Text& text);

/// Chooses the best of the sightings, reads it, and says in `report` what came of it. Before that the report
/// has all but `best`, `band` and `verdict`.
void readBest(Report& report, const std::vector<Sighting>& sightings);

/// The verdict that what else is in the band gives, where nothing, or only something vague, looked like a
/// transmission; the latter then goes.
void judgeBand(Report& report);

/// In words, as few as say it: "21 of 34 nibbles clear, 26 needed".
std::string reason(const Report& report);
/// What else was in the way or may help, one line each.
std::vector<std::string> notes(const Report& report);

} // namespace sorvel::inspection
