#pragma once

#include "platform/audio/cubeb_library.hpp"

#include <atomic>
#include <boost/lockfree/spsc_queue.hpp>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <semaphore.h>
#include <span>
#include <string>

namespace sorvel {

/// One opened input: what the sound library's thread captures, to be taken by one reader through a
/// lock-free ring of 2 s.
///
///     auto stream = CubebStream::prepare("");          // chooses the input and opens it
///     stream->start();                                 // sound from here on
///     while (stream->wait(0.1)) stream->take(block);   // the reader
///     CubebStream::retire(std::move(stream));
///
/// A server moves a capture of its own accord: to the new default input, or away from an input that
/// goes. So once a second, on a thread of its own, this looks where it is.
class CubebStream : public std::enable_shared_from_this<CubebStream> {
public:
    /// Changed: another input is the default one now, and has another rate.
    enum class End : std::uint8_t { None, Gone, Changed };

    /// @param device  as in chooseInput
    /// @throws AudioDeviceError  when there is none, or it cannot be opened
    /// Takes some 20 ms, and 8 s at most.
    static std::shared_ptr<CubebStream> prepare(const std::string& device);
    /// Ends the stream within 2 s: a close that hangs, because the sound server does, goes on by
    /// itself in the background.
    static void retire(std::shared_ptr<CubebStream> stream) noexcept;

    explicit CubebStream(const std::string& device); ///< use `prepare`
    ~CubebStream();
    CubebStream(const CubebStream&) = delete;
    CubebStream& operator=(const CubebStream&) = delete;

    std::string name() const; ///< of the input that it is on now
    double rate_hz() const noexcept { return m_rate_hz; }
    std::uint32_t channelCount() const noexcept { return m_input.channelCount; }
    bool isServed() const noexcept { return m_library.isServed(); }

    /// Takes 8 s at most. @throws AudioDeviceError  when no sound comes from it
    void start();

    // --- the reader's thread

    /// Waits for sound or the end. @return false: neither came in this time
    bool wait(double timeout_s) noexcept;
    /// Fills `interleaved` if there is enough. @return whether it did
    bool take(std::span<float> interleaved) noexcept;
    End end() const noexcept { return m_end; }

    // --- any thread

    /// Ends the reader's wait.
    void wake() noexcept { ::sem_post(&m_news.handle); }

    /// Times that sound was lost because the ring was full, and frames that it could not take.
    std::uint64_t overruns() const noexcept { return m_overruns; }
    std::uint64_t droppedFrames() const noexcept { return m_droppedFrames; }

private:
    struct Semaphore {
        Semaphore() { ::sem_init(&handle, 0, 0); }
        ~Semaphore() { ::sem_destroy(&handle); }
        Semaphore(const Semaphore&) = delete;
        Semaphore& operator=(const Semaphore&) = delete;
        bool wait(double timeout_s) noexcept; // whether it came in this time
        sem_t handle{};
    };

    static long hear(cubeb_stream* handle, void* stream, const void* input, void* output,
                     long frames) noexcept;
    static void note(cubeb_stream* handle, void* stream, cubeb_state state) noexcept;
    void put(std::span<const float> interleaved) noexcept;
    void finish(End end) noexcept;
    void watch() noexcept;
    void look();

    std::promise<void> m_closed;
    CubebLibrary m_library;
    CubebInput m_input;
    bool m_isDefault; // rather than asked for by name
    double m_rate_hz = 0.0;
    mutable std::mutex m_nameMutex; // of the input's name, once it has started
    std::unique_ptr<boost::lockfree::spsc_queue<float>> m_ring;
    Semaphore m_news, m_over;
    std::atomic<std::uint64_t> m_overruns = 0;
    std::atomic<std::uint64_t> m_droppedFrames = 0;
    std::atomic<End> m_end = End::None;
    CubebLibrary::Stream m_handle; // the first to be destroyed: it ends the callbacks
};

} // namespace sorvel
