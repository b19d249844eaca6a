#pragma once

#include "deep/receiver.hpp"

namespace sorvel::deep {

/// The deep receiver for small machines: an object of 64 KiB without a heap behind it, float arithmetic
/// alone in what runs steadily, tables that can stay in flash.
///
///     static deep::SmallReceiver receiver(48000.0, "acme");
///     receiver.push(samples);                         // any number at a time
///     for (deep::Reception heard; receiver.poll(heard);) use(heard.text.data());
///
/// It takes the same sound as Receiver and believes a text on the same terms, so that its false texts have
/// the same bound or a lower one. What it does not do, deep/README.md has in figures: it hears no source that
/// changes its speed, does not add two hearings of one text, searches a quarter of the words, and needs up
/// to 4.6 s to get used to a whistle. A text comes some 0.3 s after its transmission ended.
///
/// With every block of 64 samples of the baseband, 24 ms, it looks once for ends, and does at most one step
/// of an attempt at one.
///
/// Thread: one at a time per object; objects are independent. Nothing allocates, locks, reads a clock or
/// throws. The object is too large for most stacks.
class SmallReceiver {
public:
    static constexpr std::size_t kBytes = 65536; ///< of an object, at most

    /// @param rate_hz  32,000 to 384,000; below 39,000 Hz the band is not all there, and little is heard
    /// @param prefix   at most 15 characters of the alphabet, upper case taken for lower; empty: all texts
    SmallReceiver(double rate_hz, std::string_view prefix) noexcept;
    SmallReceiver(const SmallReceiver&) = delete;
    SmallReceiver& operator=(const SmallReceiver&) = delete;

    /// False: the rate or the prefix is none, and nothing will be heard.
    bool isReady() const noexcept { return m_isReady; }

    /// One channel, full scale 1.0. What is not a number counts as 0.
    void push(std::span<const float> samples) noexcept;
    /// The same, full scale 32768.
    void push(std::span<const std::int16_t> samples) noexcept;

    /// Takes the oldest text that waits; four are kept. False: none.
    bool poll(Reception& reception) noexcept;

    /// The sound has ended: completes what is under way, as 0.7 s of silence would, without delay.
    void finish() noexcept;

    /// As newly made.
    void reset() noexcept;

private:
    class Parts;
    Parts& parts() noexcept;

    bool m_isReady = false;
    alignas(8) std::array<std::byte, kBytes - 8> m_memory{}; // of Parts
};

static_assert(sizeof(SmallReceiver) <= SmallReceiver::kBytes);

} // namespace sorvel::deep
