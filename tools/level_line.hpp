#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace sorvel {

struct LevelShown {
    double level_dbfs = 0.0; ///< of the band
    int heard = 0;           ///< texts
    std::uint64_t lost = 0;  ///< times that sound was lost
};

/// A bar from -96 to 0 dBFS and what belongs to it, in less than `columns`; the less there are, the less
/// it tells. Empty below 8.
std::string levelLine(const LevelShown& shown, std::size_t columns);

} // namespace sorvel
