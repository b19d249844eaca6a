#include "python/stream.hpp"

#include <algorithm>
#include <array>
#include <new>
#include <pybind11/pybind11.h>
#include <span>
#include <stdexcept>

namespace py = pybind11;

namespace sorvel::python {

namespace {

constexpr std::size_t kConverted_samples = 4096; // 16 KiB of the stack
constexpr std::size_t kPlain_frames = 65536;     // 8 s at most: fewer texts than can wait
constexpr std::size_t kDeaf_frames = 1U << 22U;  // between two looks for signals

} // namespace

void require(int code) {
    if (code == SORVEL_ERROR_MEMORY) throw std::bad_alloc();
    if (code != SORVEL_OK) throw py::value_error(sorvel_error_text(code));
}

/// Waits until no other thread is in the listener. To be made without Python's lock.
class Stream::Turn {
public:
    explicit Turn(Stream& stream) : m_stream(stream), m_lock(stream.m_turns) {
        m_stream.m_whose = std::this_thread::get_id();
    }
    ~Turn() { m_stream.m_whose = std::thread::id(); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    Stream& m_stream;
    std::lock_guard<std::mutex> m_lock;
};

Stream::Stream(double rate_hz, const std::string& prefix, std::size_t channels, int receiver)
    : m_channels(channels) {
    sorvel_listener_config config{};
    config.size = sizeof config;
    config.channels = static_cast<std::uint32_t>(channels);
    config.sample_rate_hz = rate_hz;
    config.prefix = prefix.c_str();
    config.receiver = receiver;
    sorvel_listener* listener = nullptr;
    require(sorvel_listener_create(&config, &listener));
    m_listener.reset(listener);
}

std::vector<sorvel_heard> Stream::push(const Samples& samples) {
    std::vector<sorvel_heard> heard;
    if (samples.frames == 0) return heard;
    refuseReentry();
    bool isInterrupted = false;
    {
        const py::gil_scoped_release others;
        const Turn turn(*this);
        const std::size_t most =
            samples.isPlain() ? kPlain_frames : std::max<std::size_t>(kConverted_samples / m_channels, 1);
        std::size_t looked = 0;
        for (std::size_t first = 0; first < samples.frames && !isInterrupted; first += most) {
            hear(samples, first, std::min(most, samples.frames - first));
            poll(heard);
            if (first - looked < kDeaf_frames) continue;
            looked = first;
            const py::gil_scoped_acquire looking;
            isInterrupted = PyErr_CheckSignals() != 0;
        }
    }
    if (isInterrupted) throw py::error_already_set();
    return heard;
}

std::vector<sorvel_heard> Stream::finish() {
    refuseReentry();
    const py::gil_scoped_release others;
    const Turn turn(*this);
    std::vector<sorvel_heard> heard;
    sorvel_listener_finish(m_listener.get());
    poll(heard);
    return heard;
}

void Stream::reset() {
    refuseReentry();
    const py::gil_scoped_release others;
    const Turn turn(*this);
    sorvel_listener_reset(m_listener.get());
}

/// A signal's handler may call what it has interrupted: that thread would wait for itself.
void Stream::refuseReentry() const {
    if (m_whose == std::this_thread::get_id())
        throw std::runtime_error("this Listener is at work in the call that the signal's handler interrupts; "
                                 "note the wish there, and act on it afterwards");
}

void Stream::hear(const Samples& samples, std::size_t first, std::size_t frames) {
    if (samples.isPlain()) {
        sorvel_listener_push(m_listener.get(), samples.frame(first), frames);
        return;
    }
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): read fills what is used of it
    std::array<float, kConverted_samples> floats;
    samples.read(first, std::span(floats).first(frames * m_channels));
    sorvel_listener_push(m_listener.get(), floats.data(), frames);
}

void Stream::poll(std::vector<sorvel_heard>& heard) {
    sorvel_heard next{};
    next.size = sizeof next;
    while (sorvel_listener_poll(m_listener.get(), &next) == 1) heard.push_back(next);
}

} // namespace sorvel::python
