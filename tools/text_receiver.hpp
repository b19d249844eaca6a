/// The path from a recording's samples to the texts in it, as the listener hears them.
#pragma once

#include "platform/rate_converter.hpp"
#include "sdk/CPP_wrapper.hpp"

#include <array>
#include <cstdint>
#include <functional>
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

/// Which of the deliveries count. The decoder reports a text some two times, and more while one repeats.
enum class Repeats : std::uint8_t {
    Drop,  ///< within one second of the last one that counted, whatever its text
    Report ///< all
};

/// Converts sound to 96 kHz and 16 bits, hands it to the decoder in blocks of 100 ms and sorts what it
/// answers.
///
///     TextReceiver receiver("acme", Repeats::Drop, [](const Heard& heard) {...});
///     receiver.begin(44100);
///     receiver.take(samples);   // as often as needed
///     receiver.end();           // the next recording may begin
///
/// Make one in a process: it takes one of the modem's four instances for good.
///
/// Thread: one at a time. `take` allocates nothing but delivered texts.
class TextReceiver {
public:
    /// @param prefix   compared without regard to ASCII case. Empty: every text
    /// @param deliver  called inside `take` and `end`; what it throws passes through
    TextReceiver(std::string prefix, Repeats repeats, std::function<void(const Heard&)> deliver);

    /// Starts a recording; nothing of the one before is left.
    /// @throws std::invalid_argument for a rate outside 8000 to 384000 Hz
    void begin(double sampleRate_hz);
    /// @param mono  samples at that rate, full scale 1.0
    void take(std::span<const float> mono);
    /// Hands over what conversion held back, and 4 s of silence. They complete a text that the recording ends
    /// with, and they are more than the decoder looks back over, so that recordings do not mix.
    void end();

private:
    static constexpr std::size_t kBlock_samples = 9600;

    void gather(std::span<const float> converted);
    void decodeBlock();
    void judge(std::string text);

    CPP_wrapper m_decoder;
    std::string m_prefix;
    Repeats m_repeats;
    std::function<void(const Heard&)> m_deliver;

    std::optional<RateConverter> m_converter;
    std::vector<float> m_converted;
    std::array<std::int16_t, kBlock_samples> m_block{};
    std::size_t m_gathered = 0;               // samples in m_block
    std::uint64_t m_time = 0;                 // samples at 96 kHz since `begin`
    std::optional<std::uint64_t> m_lastCount; // m_time of the last delivery that counted
    std::optional<std::uint64_t> m_end;       // of the recording, once it is known
};

} // namespace sorvel
