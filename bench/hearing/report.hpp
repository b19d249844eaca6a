#pragma once

#include "bench/hearing/trials.hpp"

#include <string>
#include <vector>

namespace sorvel::hearing {

/// How trials are run.
struct Plan {
    DrawSet set = DrawSet::Tuning;
    std::uint32_t seed = 1;
    int trials = 20;
    std::uint32_t first = 0; ///< number of the first trial
    unsigned jobs = 1;
    double rate_hz = 48000.0;
    std::vector<Kind> kinds{Kind::Classic, Kind::DeepWithPrefix, Kind::DeepWithout};
};

struct Measured {
    const Point* point;
    Tally tally;
};

/// Runs each point with the plan's trials and prints a line for each as it is done.
std::vector<Measured> measure(const std::vector<const Point*>& points, const Plan& plan);

/// The goals as a table in Markdown, each with what was measured.
/// @return false if a receiver that is there missed one
bool printGoals(const Plan& plan, std::vector<Measured>& measured);

/// Writes all of it, as CSV or, where `path` ends so, as JSON: one record per point and receiver.
/// @throws std::runtime_error, one line, if the file cannot be written
void write(const std::string& path, const std::vector<Measured>& measured, const Plan& plan);

} // namespace sorvel::hearing
