#pragma once

#include "bench/hearing/report.hpp"

namespace sorvel::hearing {

/// Plays `hours` of each kind of hostile sound to the receivers and lists every text that nobody
/// sent. @return their number
int countFalseTexts(double hours, const Plan& plan);

/// Speed, memory and the longest push, of all receivers in one interleaved run over quiet noise and
/// each kind of hostile sound.
void printCost(const Plan& plan);

} // namespace sorvel::hearing
