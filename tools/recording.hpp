/// What the receivers of texts and of messages share: the way from a recording's samples to their
/// rate.
#pragma once

#include "platform/rate_converter.hpp"

#include <span>
#include <vector>

namespace sorvel {

/// Converts recordings, one after another, and hands them to a receiver at the rate it works at.
///
///     receiver.begin(44100);
///     receiver.take(samples);   // as often as needed
///     receiver.end();           // the next recording may begin
///
/// Thread: one at a time.
class RecordingReceiver {
public:
    virtual ~RecordingReceiver() = default;

    /// Starts a recording; nothing of the one before is left.
    /// @throws std::invalid_argument for a rate outside 8000 to 384000 Hz
    void begin(double sampleRate_hz);
    /// @param mono  samples at that rate, full scale 1.0
    void take(std::span<const float> mono);
    /// Hands over what conversion held back, and silence that completes what the recording ends
    /// with.
    void end();

protected:
    explicit RecordingReceiver(double ownRate_hz);

private:
    virtual void start() = 0;
    virtual void push(std::span<const float> converted) = 0;
    virtual void complete() = 0;

    double m_ownRate_hz;
    RateConverter m_converter; // of the recording; before the first one equal rates
    std::vector<float> m_converted;
};

} // namespace sorvel
