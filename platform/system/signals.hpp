#pragma once

#include <pthread.h>
#include <signal.h>

namespace sorvel {

/// While one lives, no signal reaches this thread, nor a thread that it starts meanwhile.
class AllSignalsBlocked {
public:
    AllSignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

private:
    sigset_t m_before{};
};

} // namespace sorvel
