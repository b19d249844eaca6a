/// Signals that ask the command to end, and the wait for events at its end.
#pragma once

#include "telemetry/environment.hpp"

#include <exception>

namespace sorvel {

/// While one lives, the first SIGINT, SIGTERM or SIGHUP is a request to end, which `signal()` tells,
/// and the second ends the process at once. What was ignored from the start, as under nohup, stays so.
/// One at a time.
class Interruption {
public:
    Interruption();
    ~Interruption(); ///< from then on a signal ends the process again
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    /// The signal that has come, also after the object is gone; 0: none.
    static int signal() noexcept;
    static bool hasCome() noexcept { return signal() != 0; }

    /// While one lives, such a signal also ends what can be read from a descriptor, so that nobody
    /// waits for more of it.
    class Input {
    public:
        explicit Input(int descriptor);
        ~Input();
        Input(const Input&) = delete;
        Input& operator=(const Input&) = delete;

    private:
        int m_empty;
    };
};

/// Thrown once all is done that a signal could not wait for; `main` then ends by that signal.
class Interrupted : public std::exception {};

/// Ends the process by the signal that has come, so that whoever started it sees that.
[[noreturn]] void endBySignal() noexcept;

/// Calls `cleanUp`, which must be fit for signal handlers, before a signal ends the process.
void cleanUpBeforeSignals(void (*cleanUp)() noexcept);

/// Waits a few seconds for events that are on their way. A signal now ends the process at once.
/// @param session  null: there are none
void awaitEvents(HttpSession* session);

} // namespace sorvel
