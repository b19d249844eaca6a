/// Streaming conversion of float audio between sample rates, and the steps on either side of it:
/// mixing down to one channel before, rounding to 16 bits after.
///
///   - `RateConverter` is for recordings: every sample comes out, none shifted in time.
///   - `LiveRateConverter` is for capture: every block of output is filled, from the first one on.
///
/// Both use a Kaiser-windowed sinc of 80 taps (more when the rate falls, in proportion). Measured
/// in the band from 18.0 to 19.5 kHz, with all that is not the tone below -100 dB of it:
///
///   | from          | to   | level, dB                       |
///   |---------------|------|---------------------------------|
///   | 44.1 kHz      | 96   | -0.08 at 19.5 kHz, else 0.00    |
///   | 48, 192 kHz   | 96   | 0.00                            |
///   | 48 kHz        | 44.1 | -0.56 at 19.5 kHz, 0.00 at 18.8 |
///
/// Equal rates are copied.
///
/// Rates are kept to 0.01 Hz. Thread: one at a time per converter. Only constructors allocate;
/// nothing locks.
#pragma once

#include "sdk/audio.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace sorvel {

/// What one step took and gave, in samples.
struct Converted {
    std::size_t consumed = 0;
    std::size_t produced = 0;
};

/// The library's filter for one channel; latency is the caller's business.
class ResamplingFilter {
public:
    /// @throws std::invalid_argument, one line, for a rate outside kLowestSampleRate_hz to
    /// kHighestSampleRate_hz; std::bad_alloc
    ResamplingFilter(double from_hz, double to_hz);
    ~ResamplingFilter();
    ResamplingFilter(ResamplingFilter&&) noexcept;
    ResamplingFilter& operator=(ResamplingFilter&&) noexcept;

    /// Converts until the input is used up or the output full.
    Converted process(std::span<const float> in, std::span<float> out) noexcept;
    /// Drops the latency from the start of the stream. Before the first `process`.
    void skipLatency() noexcept;
    /// Output samples per input sample.
    double ratio() const noexcept { return m_ratio; }

private:
    struct State;
    std::unique_ptr<State> m_state; // null: equal rates
    double m_ratio;
};

/// Converts a whole recording piece by piece. Output sample k lies at the time of input sample
/// k * from / to, and n samples in all give round(n * to / from).
class RateConverter {
public:
    /// @throws as ResamplingFilter
    RateConverter(double from_hz, double to_hz);

    /// Converts until the input is used up or the output full; call it until all is consumed.
    Converted convert(std::span<const float> in, std::span<float> out) noexcept;
    /// After the last input: what the latency still holds back. Call it until it answers 0.
    std::size_t flush(std::span<float> out) noexcept;

private:
    ResamplingFilter m_filter;
    std::uint64_t m_consumed = 0;
    std::uint64_t m_produced = 0;
};

/// Converts captured blocks, each to an output block of the length the caller wants, which is
/// always filled.
///
/// The latency comes out as leading silence: half the filter (40 input samples while the rate rises
/// or stays), and the 1 ms that is kept in hand so that blocks of uneven length (11025 Hz: 1102 and
/// 1103 samples in 100 ms) still fill theirs. A caller whose blocks ask for less than the input
/// yields loses the surplus in pieces of 1 ms; one that asks for more gets silence
/// for what is missing.
class LiveRateConverter {
public:
    /// @throws as ResamplingFilter
    LiveRateConverter(double from_hz, double to_hz);

    /// Takes all of `in`, fills all of `out`.
    void convert(std::span<const float> in, std::span<float> out) noexcept;

private:
    std::size_t take(std::span<float> out) noexcept;
    void keep(std::span<const float> in) noexcept;

    ResamplingFilter m_filter;
    std::size_t m_reserve;        // samples in hand at the start
    std::vector<float> m_waiting; // ring of twice the reserve, oldest at m_first
    std::size_t m_first = 0;
    std::size_t m_count;
};

/// Mean of the channels of each frame. What is not finite counts as 0, and levels beyond 1e6 times
/// full scale as that, so that one bad sample cannot spread through a filter.
///
/// @param interleaved  mono.size() * channels samples
void mixToMono(std::span<const float> interleaved, std::size_t channels, std::span<float> mono) noexcept;

/// The same for one channel, in place.
void tame(std::span<float> samples) noexcept;

/// Nearest 16-bit level of a sample of full scale 1.0; beyond it the highest or lowest, 0 for NaN.
std::int16_t toInt16(float sample) noexcept;
void toInt16(std::span<const float> samples, std::span<std::int16_t> out) noexcept;

} // namespace sorvel
