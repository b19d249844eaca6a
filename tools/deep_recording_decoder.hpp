/// The way of recordings through the deep receiver.
#pragma once

#include "deep/receiver.hpp"
#include "tools/heard.hpp"
#include "tools/recording.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

namespace sorvel {

/// Feeds recordings to a deep receiver of its own, at their own rate from 32 kHz on, below that at 48 kHz.
///
/// Any number may be at work, each on a thread of its own.
class DeepRecordingDecoder : public RecordingReceiver {
public:
    /// @param prefix   compared without regard to ASCII case. Empty: every text
    /// @param deliver  called while a recording is taken and finished, once for each text. What it throws
    ///                 passes through
    DeepRecordingDecoder(std::string prefix, std::function<void(const Heard&)> deliver);

private:
    double start(double sampleRate_hz) override;
    void complete() override;
    double length_s() const; // of what has been pushed
    void push(std::span<const float> samples) override;
    void deliver();

    std::string m_prefix;
    std::function<void(const Heard&)> m_deliver;
    std::unique_ptr<deep::Receiver> m_receiver;
    double m_rate_hz = 0.0;     // that it was made for
    std::uint64_t m_pushed = 0; // samples of this recording
};

} // namespace sorvel
