#include "platform/audio/cubeb_playback.hpp"

#include "platform/audio/cubeb_outputs.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/lockfree/spsc_queue.hpp>
#include <chrono>
#include <cmath>
#include <future>
#include <thread>
#include <utility>

namespace sorvel {

namespace {

constexpr double kRing_s = 0.5;
// Long enough for a machine that is busy, short enough to end soon after a signal.
constexpr double kBlock_s = 0.1;
constexpr std::chrono::milliseconds kLongestClose(500);

} // namespace

struct CubebPlayback::Stream {
    explicit Stream(const std::string& device);
    ~Stream() {
        handle.reset();
        closed.set_value();
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    static long give(cubeb_stream* handle, void* stream, const void* input, void* output,
                     long frames) noexcept;
    static void note(cubeb_stream* handle, void* stream, cubeb_state state) noexcept;
    std::size_t fill(std::span<float> output) noexcept;

    std::promise<void> closed;
    CubebLibrary library{kNoOutput};
    CubebOutput output;
    double rate_hz = 0.0;
    std::unique_ptr<boost::lockfree::spsc_queue<float>> ring; // one channel
    std::atomic<bool> isFinished = false;
    std::atomic<std::uint64_t> taken = 0;
    std::atomic<std::uint64_t> gaps = 0;
    std::atomic<End> end = End::None;
    CubebLibrary::Stream handle; // the first to be destroyed: it ends the callbacks
};

CubebPlayback::Stream::Stream(const std::string& device) {
    output = chooseDevice(outputs(library), device, "output", kNoOutput);
    for (const double rate : library.ratesToTry(output)) {
        rate_hz = rate;
        ring = std::make_unique<boost::lockfree::spsc_queue<float>>(
            static_cast<std::size_t>(std::ceil(kRing_s * rate)));
        handle = openOutput(library, output, device.empty(), rate,
                            static_cast<std::uint32_t>(std::lround(kBlock_s * rate)), {give, note, this});
        if (handle && startOutput(handle.get())) return;
        handle.reset();
    }
    throw AudioDeviceError("cannot open the output \"" + output.name +
                           "\": another program may hold it; 'sorvel devices' lists others");
}

CubebPlayback::CubebPlayback(const std::string& device)
    : m_stream(inTime([device] { return std::make_shared<Stream>(device); })) {}

CubebPlayback::~CubebPlayback() {
    try {
        const std::future<void> closed = m_stream->closed.get_future();
        std::thread([stream = std::move(m_stream)]() mutable { stream.reset(); }).detach();
        closed.wait_for(kLongestClose);
    } catch (...) {
        return; // no thread to be had: it has been closed on the way here
    }
}

const std::string& CubebPlayback::name() const noexcept { return m_stream->output.name; }
double CubebPlayback::rate_hz() const noexcept { return m_stream->rate_hz; }
CubebPlayback::End CubebPlayback::end() const noexcept { return m_stream->end; }
std::uint64_t CubebPlayback::taken() const noexcept { return m_stream->taken; }
std::uint64_t CubebPlayback::gaps() const noexcept { return m_stream->gaps; }

std::size_t CubebPlayback::write(std::span<const float> mono) noexcept {
    return m_stream->ring->push(mono.data(), mono.size());
}

void CubebPlayback::finish() noexcept { m_stream->isFinished = true; }

// --- the library's thread

/// No allocation, no lock, no waiting, no message.
long CubebPlayback::Stream::give(cubeb_stream*, void* stream, const void*, void* output,
                                 long frames) noexcept {
    if (output == nullptr || frames <= 0) return 0;
    auto& self = *static_cast<Stream*>(stream);
    const std::size_t channels = self.output.channelCount, wanted = static_cast<std::size_t>(frames);
    const std::span<float> samples(static_cast<float*>(output), wanted * channels);
    // Looked at first: then all that was written before it is in the ring.
    const bool isAll = self.isFinished;
    const std::size_t had = self.fill(samples);
    const bool hasBegun = self.taken.fetch_add(had) + had > 0;
    if (had == wanted) return frames;
    if (isAll) return static_cast<long>(had); // the rest is played, and then the end is told
    std::fill(samples.begin() + static_cast<std::ptrdiff_t>(had * channels), samples.end(), 0.0F);
    if (hasBegun) ++self.gaps;
    return frames;
}

/// @return frames that were there
std::size_t CubebPlayback::Stream::fill(std::span<float> samples) noexcept {
    const std::size_t channels = output.channelCount;
    std::array<float, 256> piece{};
    std::size_t frames = 0;
    while (frames * channels < samples.size()) {
        const std::size_t n =
            ring->pop(piece.data(), std::min(piece.size(), samples.size() / channels - frames));
        for (std::size_t i = 0; i < n * channels; ++i) samples[frames * channels + i] = piece[i / channels];
        frames += n;
        if (n == 0) break;
    }
    return frames;
}

void CubebPlayback::Stream::note(cubeb_stream*, void* stream, cubeb_state state) noexcept {
    auto& self = *static_cast<Stream*>(stream);
    if (state == CUBEB_STATE_DRAINED) self.end = End::Drained;
    if (state == CUBEB_STATE_ERROR) self.end = End::Gone;
}

} // namespace sorvel
