/// The path from a recording's samples to the texts in it: the listener itself. What repeats a text
/// is told by the recording's own time; events carry the time of day.
#pragma once

#include "sdk/PushCapture.hpp"
#include "sdk/SorvelUBM.hpp"
#include "tools/recording.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace sorvel {

struct Heard {
    std::string text;
    /// From the recording's start to the end of the 100 ms in which the text was complete.
    double time_s = 0.0;
};

/// Which of the deliveries count. The decoder reports a text some two times, and
/// more while one repeats.
enum class Repeats : std::uint8_t {
    Drop,  ///< within one second of the last one that counted, whatever its text
    Report ///< all
};

/// A platform's decoder for a listener without a prefix: every text, not only those
/// that begin with one.
std::unique_ptr<Decoder> decoderOfEveryText();

/// Runs a SorvelUBM over recordings, as fast as they can be read.
///
///     TextReceiver receiver("acme", Repeats::Drop, sorvel::defaultPlatform(), [](const Heard& heard) {...});
///
/// Make one in a process: it takes one of the modem's four instances for good.
class TextReceiver final : public RecordingReceiver {
public:
    /// @param prefix    compared without regard to ASCII case. Empty: every text, and no events
    /// @param platform  sends the listener's events and converts; its sound, queue and gate are not used
    /// @param deliver   called while a recording is taken and ended; what it throws passes through
    TextReceiver(const std::string& prefix, Repeats repeats, const Platform& platform,
                 std::function<void(const Heard&)> deliver);

private:
    class RecordedTime;
    class Texts;

    void start() override;
    void push(std::span<const float> converted) override;
    /// 4 s of silence: they complete a text that the recording ends with, and they are more than
    /// the decoder looks back over, so that recordings do not mix.
    void complete() override;

    std::shared_ptr<RecordedTime> m_clock;
    std::shared_ptr<Texts> m_texts;
    PushCapture m_capture;
    SorvelUBM m_listener;
    std::function<void(const Heard&)> m_deliver;

    std::uint64_t m_time = 0;           // samples at 96 kHz since `begin`
    std::optional<std::uint64_t> m_end; // of the recording, once it is known
};

} // namespace sorvel
