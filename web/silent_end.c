/* What the C++ library calls when it cannot go on, to print a line. Here the instance ends with a trap, and
 * what formats the line is not loaded. */
#include <stdlib.h>

void abort_message(const char* format, ...) __attribute__((noreturn));
void abort_message(const char* format, ...) {
    (void)format;
    __builtin_trap();
}
