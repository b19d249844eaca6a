#pragma once

#include "sdk/PushCapture.hpp"
#include "sdk/SorvelUBM.hpp"
#include "tools/heard.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace sorvel {

/// Which of the deliveries count.
enum class Repeats : std::uint8_t {
    Drop,  ///< within one second of the last one that counted, whatever its text
    Report ///< all
};

/// A platform's decoder for a listener without a prefix: every text, not only those
/// that begin with one.
std::unique_ptr<Decoder> decoderOfEveryText();

/// Replays what was found in recordings to a listener, so that it counts the same texts and sends the same
/// events as if it had heard them. What repeats a text is told by the recording's own time; events carry the
/// time of day.
///
///     TextReplay replay("acme", Repeats::Drop, sorvel::defaultPlatform(), [](const Heard& heard) {...});
///     replay.begin();
///     replay.take({"acme_1", 3.4});
///     replay.end(10.0);
class TextReplay {
public:
    /// @param prefix    of the texts, for the events. Empty: no events
    /// @param platform  sends the listener's events; its sound, decoder, queue and gate are not used
    /// @param deliver   called inside `take` for each text that counts; what it throws passes through
    TextReplay(const std::string& prefix, Repeats repeats, const Platform& platform,
               std::function<void(const Heard&)> deliver);

    void begin();
    /// In the order of time.
    void take(const Heard& heard);
    void end(double length_s); ///< of the recording

private:
    class RecordedTime;
    class Found;
    class Texts;

    std::shared_ptr<RecordedTime> m_clock;
    std::shared_ptr<Found> m_found;
    std::shared_ptr<Texts> m_texts;
    PushCapture m_capture;
    SorvelUBM m_listener;
};

} // namespace sorvel
