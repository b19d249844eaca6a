/// What the receivers of texts and of messages share: the way from a recording's
/// samples to their rate.
#pragma once

#include "platform/audio/rate_converter.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace sorvel {

/// Takes recordings, one after another, each at the rate that it wants it at. Thread: one at a time.
class RecordingReceiver {
public:
    virtual ~RecordingReceiver() = default;

protected:
    RecordingReceiver();

private:
    friend class Recording;

    /// A recording begins; nothing of the one before is left.
    /// @return the rate at which it is to come, best its own, which saves the conversion
    virtual double start(double sampleRate_hz) = 0;
    virtual void push(std::span<const float> samples) = 0;
    /// Completes with silence what the recording ends with.
    virtual void complete() = 0;

    RateConverter m_converter; // of the recording; before the first one equal rates
    std::vector<float> m_converted;
};

/// One recording on its way through a receiver.
///
///     Recording recording(receiver, 44100);
///     recording.take(samples);   // as often as needed
///     recording.finish();
///
/// However it breaks off, what it holds is delivered before the object is gone, so that nothing of
/// it is left for the next one.
class Recording {
public:
    /// @throws std::invalid_argument for a rate outside 8000 to 384000 Hz
    Recording(RecordingReceiver& receiver, double sampleRate_hz);
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;
    /// Finishes what is not finished. Only an exception leads here then, so that one from a
    /// delivery is left unsaid.
    ~Recording();

    /// @param mono  samples at that rate, full scale 1.0
    void take(std::span<const float> mono);
    /// Hands over what conversion held back, and the silence behind it.
    void finish();

private:
    RecordingReceiver& m_receiver;
    bool m_isConverted = false;
    bool m_isFinished = false;
};

} // namespace sorvel
