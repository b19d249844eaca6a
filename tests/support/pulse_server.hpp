#pragma once

#include "tests/support/temporary_folder.hpp"

#include <span>
#include <string>
#include <sys/types.h>

/// A sound card for tests: a PulseAudio daemon of their own, with a null sink called "air" whose
/// monitor is the only, and so the default, source. What is played into the sink is captured from
/// the monitor.
///
/// From its construction on, the environment of this process and its children leads sound to it and
/// to nothing else: no server of the user's, no device, no settings.
class PulseServer {
public:
    /// Not running yet: a machine without any input.
    PulseServer();
    explicit PulseServer(int rate_hz) : PulseServer() { start(rate_hz); }
    PulseServer(const PulseServer&) = delete;
    PulseServer& operator=(const PulseServer&) = delete;
    ~PulseServer();

    /// @throws std::runtime_error if it is not ready within 20 s
    void start(int rate_hz);
    void kill();   ///< at once, as a crash would
    void freeze(); ///< still there, but answers nothing
    void thaw();

    /// A program that plays `samples`, mono, into the sink, and ends once all has sounded.
    class Player {
    public:
        Player(const PulseServer& server, std::span<const float> samples, int rate_hz);
        ~Player();
        Player(const Player&) = delete;
        Player& operator=(const Player&) = delete;
        void wait();

    private:
        TemporaryFolder m_folder;
        pid_t m_process = -1;
    };
    Player play(std::span<const float> samples, int rate_hz) const { return {*this, samples, rate_hz}; }

private:
    void awaitReady() const;

    TemporaryFolder m_folder;
    pid_t m_process = -1;
};
