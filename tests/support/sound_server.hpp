#pragma once

#include "tests/support/temporary_folder.hpp"

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <sys/types.h>
#include <vector>

/// A sound card for tests: a sound server of their own, with a null sink called "air" whose monitor
/// is the only, and so the default, source. What is played into the sink is
/// captured from the monitor.
///
/// From its construction on, the environment of this process and its children leads sound to it and
/// to nothing else: no server of the user's, no device, no settings.
class SoundServer {
public:
    enum class Kind : std::uint8_t { PulseAudio, PipeWire };

    /// Not running yet: a machine without any input.
    explicit SoundServer(Kind kind = Kind::PulseAudio);
    SoundServer(Kind kind, int rate_hz) : SoundServer(kind) { start(rate_hz); }
    SoundServer(const SoundServer&) = delete;
    SoundServer& operator=(const SoundServer&) = delete;
    ~SoundServer();

    /// @throws std::runtime_error if it is not ready within 20 s
    void start(int rate_hz);
    void kill();   ///< at once, as a crash would
    void freeze(); ///< still there, but answers nothing
    void thaw();

    /// Adds a sink, with a monitor of its own. @return what `removeSink` takes
    std::string addSink(const std::string& name, int rate_hz, int channels = 1) const;
    void removeSink(const std::string& sink) const;
    void makeDefault(const std::string& source) const;

    /// A program that plays `samples`, the channels interleaved, into the sink, and ends once all has
    /// sounded.
    class Player {
    public:
        Player(const SoundServer& server, std::span<const float> samples, int rate_hz,
               const std::string& sink = "air", int channels = 1);
        ~Player();
        Player(const Player&) = delete;
        Player& operator=(const Player&) = delete;
        void wait();

    private:
        TemporaryFolder m_folder;
        pid_t m_process = -1;
    };
    Player play(std::span<const float> samples, int rate_hz) const { return {*this, samples, rate_hz}; }

    /// The processes that make up the server.
    const std::vector<pid_t>& processes() const { return m_processes; }

private:
    void run(std::vector<std::string> command);
    std::string ask(std::initializer_list<std::string> command) const;
    void await(std::initializer_list<std::string> command) const;
    void signal(int number) const;

    const Kind m_kind;
    TemporaryFolder m_folder;
    std::vector<pid_t> m_processes;
};
