#include "tools/level_line.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace sorvel {

std::string levelLine(const LevelShown& shown, std::size_t columns) {
    constexpr double kLowest_dbfs = -96.0;
    constexpr std::size_t kFewestCells = 6, kMostCells = 24, kBrackets = 2;
    const std::string level =
        " " + std::to_string(std::lround(std::clamp(shown.level_dbfs, -200.0, 200.0))) + " dBFS";
    const std::string heard = ", " + std::to_string(shown.heard) + " heard";
    const std::string lost =
        shown.lost > 0 ? ", sound lost " + std::to_string(shown.lost) + " times" : std::string();
    const std::array<std::string, 5> words{level + " at 18-19.5 kHz" + heard + lost, level + heard + lost,
                                           level + heard, level, ""};
    for (const std::string& told : words) {
        if (told.size() + kBrackets + kFewestCells >= columns) continue;
        const std::size_t cells = std::min(kMostCells, columns - 1 - kBrackets - told.size());
        const double part = std::clamp(1.0 - shown.level_dbfs / kLowest_dbfs, 0.0, 1.0);
        std::string bar(static_cast<std::size_t>(std::lround(part * static_cast<double>(cells))), '#');
        bar.resize(cells, '.');
        return bar.insert(0, 1, '[').append("]").append(told);
    }
    return {};
}

} // namespace sorvel
