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
    int before = 0;
    ::pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &before); // PortAudio forbids it around this
    ::pthread_testcancel();
    ::pthread_setcancelstate(before, nullptr);
    return static_cast<ssize_t>(bytes);
}

// Never closed: another thread may be about to write to it.
std::FILE* filtered() noexcept {
    static std::FILE* const stream = [] {
        std::FILE* const made = ::fopencookie(nullptr, "w", {nullptr, writeUnlessChatter, nullptr, nullptr});
        if (made != nullptr) std::setvbuf(made, nullptr, _IONBF, 0);
        return made;
    }();
    return stream;
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

HushedPortAudio::HushedPortAudio() noexcept : m_before(stderr) {
#ifdef __GLIBC__
    if (std::FILE* const stream = filtered()) stderr = stream;
#endif
}

HushedPortAudio::~HushedPortAudio() {
#ifdef __GLIBC__
    stderr = m_before;
#endif
}

} // namespace sorvel
