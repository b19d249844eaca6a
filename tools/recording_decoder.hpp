/// The path from a recording's samples to all deliveries of texts in it.
#pragma once

#include "modem/ggwave.h"
#include "tools/heard.hpp"
#include "tools/recording.hpp"

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace sorvel {

/// Feeds recordings to a modem of its own, as floats: of 48 and 96 kHz at their own rate, of others converted
/// to 48 kHz, rather than through 16 bits at 96 kHz as a microphone.
///
/// Any number may be at work, each on a thread of its own; 0.4 MB each.
class RecordingDecoder : public RecordingReceiver {
public:
    /// @param prefix   compared without regard to ASCII case. Empty: every text
    /// @param deliver  called while a recording is taken and finished, for each delivery: the decoder reports
    ///                 a text some two times, and more while one repeats. What it throws passes through
    RecordingDecoder(const std::string& prefix, std::function<void(const Heard&)> deliver);

protected:
    double start(double sampleRate_hz) override;
    /// A second of silence: it completes a text that the recording ends with. One that misses more is
    /// beyond what the code corrects.
    void complete() override;
    double length_s() const; ///< of the recording, once it is complete

private:
    void push(std::span<const float> samples) override;
    void decode(std::span<const float> block);

    std::string m_prefix;
    std::function<void(const Heard&)> m_deliver;
    GGWave m_modem;
    double m_rate_hz = 0.0;
    std::vector<float> m_block; // the one that is being filled
    std::size_t m_gathered = 0; // samples in it
    std::uint64_t m_pushed = 0; // samples of this recording
    std::uint64_t m_decoded = 0;
    bool m_isComplete = false;
};

} // namespace sorvel
