/// One of libsorvel's listeners, for the threads of a Python program.
#pragma once

#include "python/samples.hpp"
#include "sorvel/sorvel.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace sorvel::python {

/// What a code of libsorvel is in Python: ValueError, or MemoryError.
///
/// @param code  SORVEL_OK, and nothing happens, or another one, which is thrown
void require(int code);

/// Calls from several threads take turns, each as a whole. While one hears, Python's lock is not
/// held, so that other threads run; a signal's handler runs once in some 90 s of sound at 48 kHz.
/// Nobody waits for a turn who holds Python's lock: the two locks cannot lock each other up.
///
/// All functions are called with Python's lock held, and hold it when they return or throw.
class Stream {
public:
    /// @param prefix    may be empty
    /// @param channels  1 to SORVEL_MOST_CHANNELS
    /// @param receiver  one of SORVEL_RECEIVER_...
    Stream(double rate_hz, const std::string& prefix, std::size_t channels, int receiver);

    [[nodiscard]] std::size_t channels() const noexcept { return m_channels; }

    /// @param samples  of as many channels
    /// @return what was heard, in its order
    std::vector<sorvel_heard> push(const Samples& samples);
    std::vector<sorvel_heard> finish();
    void reset();

private:
    class Turn;
    struct Destroy {
        void operator()(sorvel_listener* listener) const noexcept { sorvel_listener_destroy(listener); }
    };

    void refuseReentry() const;
    void hear(const Samples& samples, std::size_t first, std::size_t frames);
    void poll(std::vector<sorvel_heard>& heard);

    std::unique_ptr<sorvel_listener, Destroy> m_listener;
    std::size_t m_channels;
    std::mutex m_turns;
    std::atomic<std::thread::id> m_whose; // of the thread that has its turn
};

} // namespace sorvel::python
