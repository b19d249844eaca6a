#include "platform/audio/cubeb_stream.hpp"

#include "sdk/audio.hpp" // for BlockLengths

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <exception>
#include <thread>
#include <utility>
#include <vector>

namespace sorvel {

namespace {

constexpr double kRing_s = 2.0;
constexpr double kLook_s = 1.0;
constexpr std::chrono::seconds kLongestClose(2);

AudioDeviceError cannotOpen(const CubebInput& input) {
    return AudioDeviceError("cannot open the input \"" + input.name +
                            "\": another program may hold it; 'sorvel devices' lists others");
}

} // namespace

std::shared_ptr<CubebStream> CubebStream::prepare(const std::string& device) {
    return inTime([device] { return std::make_shared<CubebStream>(device); });
}

CubebStream::CubebStream(const std::string& device) : m_isDefault(device.empty()) {
    m_input = chooseInput(m_library.inputs(), device);
    for (const double rate_hz : m_library.ratesToTry(m_input)) {
        m_rate_hz = rate_hz;
        m_ring = std::make_unique<boost::lockfree::spsc_queue<float>>(
            static_cast<std::size_t>(std::ceil(kRing_s * rate_hz)) * m_input.channelCount);
        // Half a block of the reader's, so that one is seldom late by more than that.
        const std::uint32_t blockFrames = BlockLengths(rate_hz).longest() / 2;
        m_handle = m_library.open(m_input, m_isDefault, rate_hz, blockFrames, {hear, note, this});
        if (m_handle) return;
    }
    throw cannotOpen(m_input);
}

CubebStream::~CubebStream() {
    m_handle.reset();
    m_closed.set_value();
}

void CubebStream::start() {
    inTime([self = shared_from_this()] {
        if (cubebFunctions().stream_start(self->m_handle.get()) != CUBEB_OK) throw cannotOpen(self->m_input);
        return true;
    });
    if (m_library.isServed()) std::thread([self = shared_from_this()] { self->watch(); }).detach();
}

void CubebStream::retire(std::shared_ptr<CubebStream> stream) noexcept {
    if (!stream) return;
    try {
        const std::future<void> closed = stream->m_closed.get_future();
        ::sem_post(&stream->m_over.handle);
        std::thread([stream = std::move(stream)]() mutable { stream.reset(); }).detach();
        closed.wait_for(kLongestClose);
    } catch (...) {
        return; // no thread to be had: it has been closed on the way here
    }
}

std::string CubebStream::name() const {
    const std::lock_guard lock(m_nameMutex);
    return m_input.name;
}

bool CubebStream::Semaphore::wait(double timeout_s) noexcept {
    timespec until{};
    ::clock_gettime(CLOCK_MONOTONIC, &until);
    constexpr long kSecond_ns = 1'000'000'000;
    const long nanoseconds = until.tv_nsec + static_cast<long>(timeout_s * static_cast<double>(kSecond_ns));
    until.tv_sec += nanoseconds / kSecond_ns;
    until.tv_nsec = nanoseconds % kSecond_ns;
    int result = 0;
    do result = ::sem_clockwait(&handle, CLOCK_MONOTONIC, &until);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

bool CubebStream::wait(double timeout_s) noexcept { return m_news.wait(timeout_s); }

bool CubebStream::take(std::span<float> interleaved) noexcept {
    return m_ring->read_available() >= interleaved.size() &&
           m_ring->pop(interleaved.data(), interleaved.size()) == interleaved.size();
}

// --- the library's thread

/// No allocation, no lock, no waiting, no message. Waking the reader is all
/// that reaches the system.
long CubebStream::hear(cubeb_stream*, void* stream, const void* input, void*, long frames) noexcept {
    auto& self = *static_cast<CubebStream*>(stream);
    if (input != nullptr && frames > 0)
        self.put(
            {static_cast<const float*>(input), static_cast<std::size_t>(frames) * self.m_input.channelCount});
    self.wake();
    return frames;
}

void CubebStream::put(std::span<const float> interleaved) noexcept {
    // All or nothing, so that what is in the ring stays whole frames.
    if (m_ring->write_available() >= interleaved.size()) {
        m_ring->push(interleaved.data(), interleaved.size());
    } else {
        ++m_overruns;
        m_droppedFrames += interleaved.size() / m_input.channelCount;
    }
}

void CubebStream::note(cubeb_stream*, void* stream, cubeb_state state) noexcept {
    if (state == CUBEB_STATE_ERROR) static_cast<CubebStream*>(stream)->finish(End::Gone);
}

void CubebStream::finish(End end) noexcept {
    m_end = end;
    wake();
}

// --- the watching thread

void CubebStream::watch() noexcept {
    while (m_end == End::None && !m_over.wait(kLook_s)) {
        try {
            look();
        } catch (const std::exception&) {
            continue; // the server is ending, which the library tells, or there is no memory just now
        }
    }
}

void CubebStream::look() {
    const std::vector<CubebInput> inputs = m_library.inputs();
    const auto found = std::find_if(inputs.begin(), inputs.end(), [&](const CubebInput& input) {
        return m_isDefault ? input.isDefault : input.name == m_input.name;
    });
    if (found == inputs.end()) {
        if (!m_isDefault) finish(End::Gone);
    } else if (found->rate_hz != m_rate_hz && found->name != m_input.name) {
        finish(End::Changed);
    } else {
        const std::lock_guard lock(m_nameMutex);
        m_input.name = found->name;
    }
}

} // namespace sorvel
