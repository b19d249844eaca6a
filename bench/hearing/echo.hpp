#pragma once

#include "bench/hearing/draws.hpp"
#include "bench/hearing/waveform.hpp"

#include <cstddef>
#include <vector>

namespace sorvel::hearing {

/// A room: direct sound, and behind it a dense tail that decays exponentially.
struct Room {
    double rt60_s = 0.8;          ///< in which the tail falls by 60 dB
    double directToEcho_db = 0.0; ///< energies
    /// Groups that the tail's taps are dealt to by lot. With 1 all sound arrives with the direct
    /// sound's speed, as when the loudspeaker is carried about. With more, each group has a speed of
    /// its own between minus and plus the direct one's, as when the microphone moves
    /// within the echo.
    std::size_t speeds = 1;
};

/// The transmission as it arrives in the room, as many samples as asked for.
std::vector<float> heardInRoom(const Waveform& waveform, const Hearing& hearing, const Room& room,
                               std::size_t samples, const Draw& draw);

} // namespace sorvel::hearing
