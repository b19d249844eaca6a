/// The modem's one log stream: every failure is a line here.
#pragma once

#include <cstdio>

namespace sorvel::detail {

/// Null: silent. Process-wide and unsynchronised, set before the instances are used.
extern std::FILE* logStream;

/// printf to the log stream, if there is one. The format carries its own line end.
[[gnu::format(printf, 1, 2)]] void logLine(const char* format, ...);

} // namespace sorvel::detail
