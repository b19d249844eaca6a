#include "tools/interruption.hpp"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace sorvel {

namespace {

constexpr std::array kRequests{SIGINT, SIGTERM, SIGHUP};
constexpr double kDrain_s = 5.0; // for events that are on their way at the end

// Lock-free, so that handlers may use them.
std::atomic<int> theSignal = 0;
std::atomic<int> theInput = -1;
std::atomic<int> theEmptyInput = -1;
std::atomic<void (*)() noexcept> theCleanUp = nullptr;

/// Whoever started the process wants an ignored signal ignored.
void setHandler(int number, void (*handler)(int)) noexcept {
    struct sigaction action = {};
    if (::sigaction(number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) return;
    action = {};
    action.sa_handler = handler; // without SA_RESTART: who waits for input has to wake up
    ::sigaction(number, &action, nullptr);
}

void endInput() noexcept {
    if (theInput >= 0 && theEmptyInput >= 0) ::dup2(theEmptyInput, theInput);
}

void request(int number) {
    const int interrupted = errno;
    theSignal = number;
    for (const int other : kRequests) setHandler(other, SIG_DFL);
    endInput();
    errno = interrupted;
}

void cleanUpAndEnd(int number) {
    theCleanUp.load()();
    setHandler(number, SIG_DFL);
    std::raise(number); // takes effect when this handler returns
}

} // namespace

Interruption::Interruption() {
    theSignal = 0;
    for (const int number : kRequests) setHandler(number, request);
}

Interruption::~Interruption() {
    for (const int number : kRequests) setHandler(number, SIG_DFL);
}

int Interruption::signal() noexcept { return theSignal; }

Interruption::Input::Input(int descriptor) : m_empty(::open("/dev/null", O_RDONLY | O_CLOEXEC)) {
    theEmptyInput = m_empty;
    theInput = descriptor;
    if (hasCome()) endInput();
}

Interruption::Input::~Input() {
    theInput = -1;
    theEmptyInput = -1;
    if (m_empty >= 0) ::close(m_empty);
}

void endBySignal() noexcept {
    const int number = theSignal;
    setHandler(number, SIG_DFL);
    std::raise(number);
    std::_Exit(128 + number); // it was blocked
}

void cleanUpBeforeSignals(void (*cleanUp)() noexcept) {
    theCleanUp = cleanUp;
    for (const int number : kRequests) setHandler(number, cleanUpAndEnd);
    setHandler(SIGQUIT, cleanUpAndEnd);
}

void awaitEvents(HttpSession* session) {
    for (const int number : kRequests) setHandler(number, SIG_DFL);
    if (session != nullptr) session->drain(kDrain_s);
}

} // namespace sorvel
