#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace sorvel {

/// What one step took and gave, in samples.
struct Converted {
    std::size_t consumed = 0;
    std::size_t produced = 0;
};

/// Rate conversion by a ratio of small whole numbers, with every weight computed beforehand: a
/// Kaiser-windowed sinc of 64 taps (more when the rate falls, in proportion), one row of them for each place
/// that an output sample can have between two of the input: 320 from 44.1 to 96 kHz, 2 from 48 to 96 kHz.
///
/// Up to 19.5 of 44.1 kHz, and so in proportion, it is flat within 0.001 dB, and all that is not the tone
/// lies below -105 dB of it: docs/conversion_response.svg, made by bench/conversion_response.
///
/// Thread: one at a time. Only the constructor allocates; nothing locks.
class PolyphaseFilter {
public:
    /// The samples ahead that an output sample needs; the latency while the rate rises or stays.
    static constexpr std::size_t kAhead = 32;

    /// @return nothing for a ratio that takes more than 320 rows, or falls to less than an eighth
    static std::optional<PolyphaseFilter> make(std::uint32_t from, std::uint32_t to);

    /// Converts until the input is used up or the output full.
    Converted process(std::span<const float> in, std::span<float> out) noexcept;
    /// Drops the latency from the start of the stream. Before the first `process`.
    void skipLatency() noexcept { m_first += m_taps / 2; }

private:
    PolyphaseFilter(std::size_t rows, std::size_t step, std::size_t taps);
    void makeWeights();
    std::size_t wanted(std::size_t outputs) const noexcept;
    void dropPassed() noexcept;

    std::size_t m_rows; // places between two input samples
    std::size_t m_step; // from one output sample to the next, in such places
    std::size_t m_taps;
    std::vector<float> m_weights; // row by row
    std::vector<float> m_line;    // input that is still needed
    std::size_t m_count;          // samples in it
    std::size_t m_first = 0;      // the oldest that the next output sample needs
    std::size_t m_place = 0;      // of that output sample
};

} // namespace sorvel
