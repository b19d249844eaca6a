#pragma once

#include "bench/hearing/draws.hpp"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace sorvel::hearing {

/// Sound without the text that is waited for.
enum class Hostile : std::uint8_t {
    White,       ///< noise
    Pink,        ///< noise
    Notes,       ///< notes inside of the band, with onset and decay, several at a time
    Tones,       ///< two of the protocol's tones at a time that change with a chunk's pace, without any code
    OtherPrefix, ///< transmissions of other applications, at 0 to 15 dB
    Walker       ///< the same, loud, by someone who walks
};
inline constexpr Hostile kHostile[] = {Hostile::White, Hostile::Pink,        Hostile::Notes,
                                       Hostile::Tones, Hostile::OtherPrefix, Hostile::Walker};
const char* nameOf(Hostile kind);
bool hasTexts(Hostile kind);

/// Ten seconds of it. `sent` receives the texts in it.
std::vector<float> hostileSound(Hostile kind, double rate_hz, const Draw& draw,
                                std::vector<std::string>& sent);

} // namespace sorvel::hearing
