/// Sound on its way to the loudspeaker, in real time.
#pragma once

#include "platform/audio/cubeb_playback.hpp"
#include "platform/audio/rate_converter.hpp"
#include "tools/command.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace sorvel {

/// Takes sound at kTransmissionRate_hz, piece by piece.
class SoundSink {
public:
    virtual ~SoundSink() = default;
    virtual void sound(std::span<const float> samples) = 0;
    /// What was taken is all: returns once it has arrived.
    virtual void finish() = 0;
    void silence(std::uint64_t samples);
};

/// Plays at the output's own rate. Lines about what is wrong with it go to standard error.
class Loudspeaker final : public SoundSink {
public:
    /// @throws AudioDeviceError  as CubebPlayback
    explicit Loudspeaker(const std::string& device);

    const std::string& name() const noexcept { return m_playback.name(); }
    double rate_hz() const noexcept { return m_playback.rate_hz(); }
    /// Of what was taken.
    double played_s() const noexcept { return static_cast<double>(m_playback.taken()) / rate_hz(); }
    std::uint64_t gaps() const noexcept { return m_playback.gaps(); }
    /// Called while the others wait, some fifty times a second; what it throws passes through.
    void whileWaiting(std::function<void()> look) { m_look = std::move(look); }

    // All three wait. They throw AudioDeviceError when the output goes away or stands still, and
    // Interrupted with a signal.

    void sound(std::span<const float> samples) override;
    void finish() override;
    /// Without conversion: samples at the output's rate.
    void soundAtOwnRate(std::span<const float> samples);

private:
    void wait();

    CubebPlayback m_playback;
    RateConverter m_converter;
    std::array<float, 4096> m_piece{};
    std::function<void()> m_look;
    std::uint64_t m_taken = 0; // when it was last looked at
    int m_quietWaits = 0;
};

} // namespace sorvel
