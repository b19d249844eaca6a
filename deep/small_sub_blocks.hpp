#pragma once

#include "deep/energies.hpp"
#include "deep/small_baseband.hpp"

namespace sorvel::deep::small {

/// The second view of a transmission that rings, as SubBlocks::score, without tables of its own.
void scoreSubBlocks(const Baseband& baseband, const Place& place, Scores& scores) noexcept;

} // namespace sorvel::deep::small
