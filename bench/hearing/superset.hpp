#pragma once

#include "bench/hearing/report.hpp"

namespace sorvel::hearing {

/// Sends `plan.trials` transmissions in turn over all channels, every other one at 44.1 kHz, and
/// lists each that the classic receiver delivered and a deep one did not, with the command that
/// repeats it.
/// @return the number of these
int compareAll(const Plan& plan);

} // namespace sorvel::hearing
