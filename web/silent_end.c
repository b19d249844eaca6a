/* What the C++ library calls when it cannot go on, and what it would then print. Nothing is printed here, and with
 * this in its place what formats the line stays out: the instance ends with a trap. */
#include <stdlib.h>

void abort_message(const char* format, ...) __attribute__((noreturn));
void abort_message(const char* format, ...) {
    (void)format;
    __builtin_trap();
}
