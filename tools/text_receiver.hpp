/// The path from a recording's samples to the texts in it: the listener itself, on the recording's
/// own clock.
#pragma once

#include "platform/rate_converter.hpp"
#include "sdk/PushCapture.hpp"
#include "sdk/SorvelUBM.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace sorvel {

struct Heard {
    std::string text;
    double time_s =
        0.0; ///< from the recording's start to the end of the 100 ms in which the text was complete
};

/// Which of the deliveries count. The decoder reports a text some two times, and more while one
/// repeats.
enum class Repeats : std::uint8_t {
    Drop,  ///< within one second of the last one that counted, whatever its text
    Report ///< all
};

/// A platform's decoder for a listener without a prefix: every text, not only those that begin with
/// one.
std::unique_ptr<Decoder> decoderOfEveryText();

/// Runs a SorvelUBM over recordings, as fast as they can be read.
///
///     TextReceiver receiver("acme", Repeats::Drop, sorvel::defaultPlatform(), [](const Heard& heard) {...});
///     receiver.begin(44100);
///     receiver.take(samples);   // as often as needed
///     receiver.end();           // the next recording may begin
///
/// Make one in a process: it takes one of the modem's four instances for good.
///
/// Thread: one at a time.
class TextReceiver {
public:
    /// @param prefix    compared without regard to ASCII case. Empty: every text, and no events
    /// @param platform  sends the listener's events and converts; its sound, clock and queue are not used
    /// @param deliver   called inside `take` and `end`; what it throws passes through
    TextReceiver(const std::string& prefix, Repeats repeats, const Platform& platform,
                 std::function<void(const Heard&)> deliver);

    /// Starts a recording; nothing of the one before is left.
    /// @throws std::invalid_argument for a rate outside 8000 to 384000 Hz
    void begin(double sampleRate_hz);
    /// @param mono  samples at that rate, full scale 1.0
    void take(std::span<const float> mono);
    /// Hands over what conversion held back, and 4 s of silence. They complete a text that the
    /// recording ends with, and they are more than the decoder looks back over, so that recordings
    /// do not mix.
    void end();

private:
    class RecordedTime;
    class Texts;

    void push(std::span<const float> converted);

    std::shared_ptr<RecordedTime> m_clock;
    std::shared_ptr<Texts> m_texts;
    PushCapture m_capture;
    SorvelUBM m_listener;
    std::function<void(const Heard&)> m_deliver;

    RateConverter m_converter; // of the recording; before the first one equal rates
    std::vector<float> m_converted;
    std::uint64_t m_time = 0;           // samples at 96 kHz since `begin`
    std::optional<std::uint64_t> m_end; // of the recording, once it is known
};

} // namespace sorvel
