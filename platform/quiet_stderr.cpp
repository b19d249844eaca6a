#include "platform/quiet_stderr.hpp"

#include <cstdio>
#include <fcntl.h>
#include <mutex>
#include <pthread.h>
#include <string_view>
#include <sys/types.h>
#include <unistd.h>

namespace sorvel {

namespace {

std::mutex redirectionMutex; // of the two below
int redirections = 0;
int trueStandardError = -1; // -1: not redirected, or it was closed to begin with

#ifdef __GLIBC__
// An unbuffered stream hands over what one call has formatted in one piece.
ssize_t writeUnlessChatter(void*, const char* text, std::size_t bytes) {
    if (!std::string_view(text, bytes).starts_with("Expression '"))
        return ::write(STDERR_FILENO, text, bytes);
    // As a write would: PortAudio has a loop that does nothing but print, out of which only this leads.
    ::pthread_testcancel();
    return static_cast<ssize_t>(bytes);
}
#endif

} // namespace

QuietStandardError::QuietStandardError() noexcept {
    const std::lock_guard lock(redirectionMutex);
    if (redirections++ > 0) return;
    trueStandardError = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    if (trueStandardError < 0) return;
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0) return;
    ::dup2(nowhere, STDERR_FILENO);
    ::close(nowhere);
}

QuietStandardError::~QuietStandardError() {
    const std::lock_guard lock(redirectionMutex);
    if (--redirections > 0 || trueStandardError < 0) return;
    ::dup2(trueStandardError, STDERR_FILENO);
    ::close(trueStandardError);
    trueStandardError = -1;
}

void hushPortAudio() noexcept {
#ifdef __GLIBC__
    std::FILE* const filtered = ::fopencookie(nullptr, "w", {nullptr, writeUnlessChatter, nullptr, nullptr});
    if (filtered == nullptr) return;
    std::setvbuf(filtered, nullptr, _IONBF, 0);
    stderr = filtered;
#endif
}

} // namespace sorvel
