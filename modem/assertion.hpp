#pragma once

#include <cstdio>
#include <cstdlib>

namespace sorvel::detail {

/// Reports a broken invariant on standard error and ends the process, in release builds too: going
/// on would write outside a buffer or give a wrong message. NDEBUG has no influence.
///
/// Function, file stem and line name the place that users of the system know; they do not follow
/// the source.
[[noreturn]] inline void assertionFailed(const char* function, const char* file, int line,
                                         const char* expression) noexcept {
#ifdef __EMSCRIPTEN__
    // In a browser nobody reads standard error, and what formats the line would have to be loaded: 5 kB.
    static_cast<void>(function), static_cast<void>(file);
    static_cast<void>(line), static_cast<void>(expression);
    __builtin_trap();
#else
    std::fprintf(stderr, "Assertion failed: (%s), function %s, file %s, line %d.\n", expression, function,
                 file, line);
    std::abort();
#endif
}

} // namespace sorvel::detail
