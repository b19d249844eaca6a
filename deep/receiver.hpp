#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace sorvel::deep {

/// A text that was heard.
struct Reception {
    std::array<char, 16> text{}; ///< zero-terminated, at most 15 characters of encoding::kAlphabet
    double end_s = 0.0;          ///< end of the transmission, from the first sample pushed
    float snr_db = 0.0F;         ///< power of the tones over that of the noise from 18.0 to 19.5 kHz
    float speed_m_s = 0.0F;      ///< at which the source came closer, on average
    float echo = 0.0F;           ///< part of a tone's energy that rang on into the next chunk, 0 to 1
    float margin = 0.0F;         ///< nats above what a text must have to be believed
};

/// Hears transmissions of texts where the modem's own receiver is deaf: 9 dB further down in noise, from
/// sources that move, through whistles, bursts and echo. It takes the same sound and gives the same texts.
///
///     deep::Receiver receiver(48000.0, "acme");
///     receiver.push(samples);                         // any number at a time
///     for (deep::Reception heard; receiver.poll(heard);) use(heard.text.data());
///
/// How long a text takes from its transmission's end, by the sound pushed since, in blocks of 10 ms: median
/// 0.11 s down to -10 dB, at most 0.24 (180 texts); from a walking source (2 Hz, +-0.35 m/s, mean 0 to
/// 1.4 m/s, 10 and -3 dB) 0.28 s, at most 0.34 (360). At the edge of hearing two of 559 (walking down to
/// -11 dB, rooms, whistles, bursts, repeats) took more than 0.5 s, 0.56 at most. Larger blocks add up to
/// their length.
/// Of transmissions that end within one second only the first is told.
///
/// False texts, as a bound, in 1000 hours: in noise 0.015 with a prefix of four characters and 0.40 without
/// one; in dense tones within the band 0.23 and 6.2. Delivery tells how it comes about.
///
/// Work is bounded whatever is heard: looks at candidates are paid from an allowance that grows with the
/// sound, and spread over the blocks that follow (README.md tells how much).
///
/// Thread: one at a time per object; objects are independent. The constructor allocates, nothing else does.
/// No locks, clocks or exceptions.
class Receiver {
public:
    static constexpr double kLowestRate_hz = 32000.0;
    static constexpr double kHighestRate_hz = 384000.0;

    /// @param rate_hz  of the samples; below 39,000 Hz the band is not all there, and little is heard
    /// @param prefix   at most 15 characters of the alphabet, upper case taken for lower; empty: all texts
    Receiver(double rate_hz, std::string_view prefix);
    ~Receiver();
    Receiver(Receiver&&) noexcept;
    Receiver& operator=(Receiver&&) noexcept;

    /// False: the rate or the prefix is none, and nothing will be heard.
    bool isReady() const noexcept;

    /// One channel, full scale 1.0. What is not a number counts as 0.
    void push(std::span<const float> samples) noexcept;
    /// The same, full scale 32768.
    void push(std::span<const std::int16_t> samples) noexcept;

    /// Takes the oldest text that waits; eight are kept. False: none.
    bool poll(Reception& reception) noexcept;

    /// The sound has ended: completes what is under way, as 0.7 s of silence would, without delay.
    void finish() noexcept;

    /// As newly made.
    void reset() noexcept;

private:
    class Parts;
    std::unique_ptr<Parts> m_parts;
};

} // namespace sorvel::deep
