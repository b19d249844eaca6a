#include "tools/play.hpp"

#include "platform/audio/cubeb_devices.hpp"
#include "tools/interruption.hpp"
#include "tools/transmission.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

namespace sorvel {

namespace {

constexpr std::chrono::milliseconds kWait(20);
// Counted in waits rather than in time, so that a machine that stands still for a while ends
// nothing. A server that suspends its output may take 2 s to begin.
constexpr int kMostQuietWaits = 250;

} // namespace

void SoundSink::silence(std::uint64_t samples) {
    static constexpr std::array<float, 4096> kSilence{};
    while (samples > 0) {
        const std::size_t n = std::min<std::uint64_t>(samples, kSilence.size());
        sound(std::span(kSilence).first(n));
        samples -= n;
    }
}

Loudspeaker::Loudspeaker(const std::string& device)
    : m_playback(device), m_converter(kTransmissionRate_hz, m_playback.rate_hz()) {}

void Loudspeaker::sound(std::span<const float> samples) {
    while (!samples.empty()) {
        const Converted step = m_converter.convert(samples, m_piece);
        samples = samples.subspan(step.consumed);
        soundAtOwnRate(std::span(m_piece).first(step.produced));
    }
}

void Loudspeaker::soundAtOwnRate(std::span<const float> samples) {
    while (true) {
        samples = samples.subspan(m_playback.write(samples));
        if (samples.empty()) return;
        wait();
    }
}

void Loudspeaker::finish() {
    while (const std::size_t n = m_converter.flush(m_piece)) soundAtOwnRate(std::span(m_piece).first(n));
    m_playback.finish();
    while (m_playback.end() != CubebPlayback::End::Drained) wait();
}

void Loudspeaker::wait() {
    if (Interruption::hasCome()) throw Interrupted();
    const std::string output = "the output \"" + name() + "\" ";
    if (m_playback.end() == CubebPlayback::End::Gone)
        throw AudioDeviceError(output + "is gone: it was unplugged, or the sound server ended");
    const std::uint64_t taken = m_playback.taken();
    m_quietWaits = taken == m_taken ? m_quietWaits + 1 : 0;
    m_taken = taken;
    if (m_quietWaits > kMostQuietWaits)
        throw AudioDeviceError(output + "takes no sound: unplugged, or the sound server hangs");
    if (m_look) m_look();
    std::this_thread::sleep_for(kWait);
}

} // namespace sorvel
