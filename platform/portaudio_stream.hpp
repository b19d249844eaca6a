#pragma once

#include "platform/input_choice.hpp"
#include "platform/portaudio_library.hpp"

#include <atomic>
#include <boost/lockfree/spsc_queue.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <portaudio.h>
#include <semaphore.h>
#include <span>
#include <string>

namespace sorvel {

/// One opened input: what the sound library's thread captures, to be taken by one reader through a
/// lock-free ring of 2 s.
///
///     auto stream = PortAudioStream::prepare("");      // chooses the input and its rate
///     stream->start(4800);                             // sound from here on
///     while (stream->wait(0.1)) stream->take(block);   // the reader
///     PortAudioStream::retire(std::move(stream));
class PortAudioStream {
public:
    /// @param device  as in chooseInput
    /// @throws AudioDeviceError; takes some 0.1 s, and 4 s at most
    static std::shared_ptr<PortAudioStream> prepare(const std::string& device);
    /// Ends the stream within 2 s: a close that hangs, because the sound server does, goes on by
    /// itself in the background, and opening fails until it is through.
    static void retire(std::shared_ptr<PortAudioStream> stream) noexcept;

    PortAudioStream() = default;
    ~PortAudioStream();
    PortAudioStream(const PortAudioStream&) = delete;
    PortAudioStream& operator=(const PortAudioStream&) = delete;

    const InputChoice& input() const noexcept { return m_input; }

    /// @param blockFrames  asked for per call of the library's thread
    /// @throws AudioDeviceError; std::bad_alloc
    void start(std::uint32_t blockFrames);

    // --- the reader's thread

    /// Waits for sound or the end. @return false: neither came in this time
    bool wait(double timeout_s) noexcept;
    /// Fills `interleaved` if there is enough. @return whether it did
    bool take(std::span<float> interleaved) noexcept;
    /// The library has ended it: device or server is gone.
    bool hasEnded() const noexcept { return m_hasEnded; }
    /// It comes from a sound server, which is not there any more. For when sound is overdue: asks,
    /// allocates. The library may not notice, if the server dies before the first sound.
    bool hasLostServer() const noexcept;
    /// To be said before an input is retired that no longer does what it should.
    void giveUp() noexcept { m_isGivenUp = true; }

    // --- any thread

    /// Ends the reader's wait.
    void wake() noexcept { ::sem_post(&m_news.handle); }

    /// Times that sound was lost, because the ring was full or the library had no time, and frames
    /// that the ring could not take.
    std::uint64_t overruns() const noexcept { return m_overruns; }
    std::uint64_t droppedFrames() const noexcept { return m_droppedFrames; }

private:
    struct Semaphore {
        Semaphore() { ::sem_init(&handle, 0, 0); }
        ~Semaphore() { ::sem_destroy(&handle); }
        Semaphore(const Semaphore&) = delete;
        Semaphore& operator=(const Semaphore&) = delete;
        sem_t handle{};
    };

    static int hear(const void* input, void* output, unsigned long frames,
                    const PaStreamCallbackTimeInfo* time, PaStreamCallbackFlags flags, void* stream) noexcept;
    static void end(void* stream) noexcept;
    void put(std::span<const float> interleaved) noexcept;

    std::optional<PortAudioLibrary> m_library;
    InputChoice m_input;
    bool m_isServed = false; // by a sound server
    PaStream* m_handle = nullptr;
    std::unique_ptr<boost::lockfree::spsc_queue<float>> m_ring; // made at the start
    Semaphore m_news;
    std::atomic<std::uint64_t> m_overruns = 0;
    std::atomic<std::uint64_t> m_droppedFrames = 0;
    std::atomic<bool> m_hasEnded = false;
    bool m_isGivenUp = false;
};

} // namespace sorvel
