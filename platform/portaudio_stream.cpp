#include "platform/portaudio_stream.hpp"

#include "platform/quiet_stderr.hpp"

#include <chrono>
#include <cmath>
#include <ctime>
#include <exception>
#include <future>
#include <pa_linux_alsa.h>
#include <thread>
#include <utility>

namespace sorvel {

namespace {

constexpr double kRing_s = 2.0;
constexpr double kLatency_s = 0.1;
constexpr double kAsking_s = 0.2;
constexpr std::chrono::seconds kLongestClose(2);

AudioDeviceError cannotOpen(const InputChoice& input, PaError error) {
    std::string why = Pa_GetErrorText(error);
    if (error == paUnanticipatedHostError && Pa_GetLastHostErrorInfo()->errorText != nullptr)
        why = Pa_GetLastHostErrorInfo()->errorText;
    return AudioDeviceError("cannot open the input \"" + input.name + "\" (" + why +
                            "): another program may hold it; 'sorvel devices' lists others");
}

} // namespace

std::shared_ptr<PortAudioStream> PortAudioStream::prepare(const std::string& device) {
    const SoundServer server = askSoundServer();
    if (server.state == ServerState::Silent) throw AudioDeviceError(kServerIsSilent);
    auto stream = std::make_shared<PortAudioStream>();
    try {
        const auto turn = portAudioTurn();
        stream->m_library.emplace();
        stream->m_input = chooseInput(device, server);
        stream->m_isServed = server.find(stream->m_input.name) != nullptr;
        return stream;
    } catch (...) {
        retire(std::move(stream)); // outside the turn, in which it could not end
        throw;
    }
}

void PortAudioStream::start(std::uint32_t blockFrames) {
    m_ring = std::make_unique<boost::lockfree::spsc_queue<float>>(
        static_cast<std::size_t>(std::ceil(kRing_s * m_input.rate_hz)) * m_input.channelCount);

    PaAlsaStreamInfo alsa;
    PaAlsa_InitializeStreamInfo(&alsa);
    alsa.deviceString = m_input.alsaName.c_str();
    const bool isNamed = !m_input.alsaName.empty();
    const PaStreamParameters parameters{isNamed ? paUseHostApiSpecificDeviceSpecification : m_input.index,
                                        static_cast<int>(m_input.channelCount), paFloat32, kLatency_s,
                                        isNamed ? &alsa : nullptr};
    const auto turn = portAudioTurn();
    const QuietStandardError quiet;
    PaStream* opened = nullptr;
    PaError error =
        Pa_OpenStream(&opened, &parameters, nullptr, m_input.rate_hz, blockFrames, paClipOff, hear, this);
    if (error != paNoError) throw cannotOpen(m_input, error);
    m_handle = opened;
    error = Pa_SetStreamFinishedCallback(m_handle, end);
    if (error == paNoError) error = Pa_StartStream(m_handle);
    if (error != paNoError) throw cannotOpen(m_input, error);
}

PortAudioStream::~PortAudioStream() {
    if (!m_library) return; // nor anything opened
    const auto turn = portAudioTurnAtLast();
    std::optional<HushedPortAudio> hushed; // which also makes its thread heed the abort
    if (m_isGivenUp) hushed.emplace();
    // Not quiet: while this hangs, the process would have no standard error.
    if (m_handle != nullptr) {
        Pa_AbortStream(m_handle);
        Pa_CloseStream(m_handle);
    }
    m_library.reset();
}

void PortAudioStream::retire(std::shared_ptr<PortAudioStream> stream) noexcept {
    if (!stream) return;
    try {
        std::promise<void> closing;
        const std::future<void> closed = closing.get_future();
        std::thread([stream = std::move(stream), closing = std::move(closing)]() mutable {
            stream.reset();
            closing.set_value();
        }).detach();
        closed.wait_for(kLongestClose);
    } catch (...) {
        return; // no thread to be had: it has been closed on the way here
    }
}

bool PortAudioStream::wait(double timeout_s) noexcept {
    timespec until{};
    ::clock_gettime(CLOCK_MONOTONIC, &until);
    constexpr long kSecond_ns = 1'000'000'000;
    const long nanoseconds = until.tv_nsec + static_cast<long>(timeout_s * static_cast<double>(kSecond_ns));
    until.tv_sec += nanoseconds / kSecond_ns;
    until.tv_nsec = nanoseconds % kSecond_ns;
    return ::sem_clockwait(&m_news.handle, CLOCK_MONOTONIC, &until) == 0;
}

bool PortAudioStream::take(std::span<float> interleaved) noexcept {
    return m_ring->read_available() >= interleaved.size() &&
           m_ring->pop(interleaved.data(), interleaved.size()) == interleaved.size();
}

bool PortAudioStream::hasLostServer() const noexcept {
    try {
        return m_isServed && askSoundServer(kAsking_s).state == ServerState::Absent;
    } catch (const std::exception&) { // out of memory
        return false;
    }
}

/// On the library's thread: no allocation, no lock, no waiting, no message. Waking the reader is
/// all that reaches the system.
int PortAudioStream::hear(const void* input, void*, unsigned long frames, const PaStreamCallbackTimeInfo*,
                          PaStreamCallbackFlags flags, void* stream) noexcept {
    auto& self = *static_cast<PortAudioStream*>(stream);
    if ((flags & paInputOverflow) != 0) ++self.m_overruns;
    if (input != nullptr) self.put({static_cast<const float*>(input), frames * self.m_input.channelCount});
    self.wake();
    return paContinue;
}

void PortAudioStream::put(std::span<const float> interleaved) noexcept {
    // All or nothing, so that what is in the ring stays whole frames.
    if (m_ring->write_available() >= interleaved.size()) {
        m_ring->push(interleaved.data(), interleaved.size());
    } else {
        ++m_overruns;
        m_droppedFrames += interleaved.size() / m_input.channelCount;
    }
}

void PortAudioStream::end(void* stream) noexcept {
    auto& self = *static_cast<PortAudioStream*>(stream);
    self.m_hasEnded = true;
    self.wake();
}

} // namespace sorvel
