/// Streaming conversion of float audio between sample rates, and the steps on either side of it:
/// mixing down to one channel before, rounding to 16 bits after.
///
///   - `RateConverter` is for recordings: every sample comes out, none shifted in time.
///   - `LiveRateConverter` is for capture: every block of output is filled, from the first one on.
///
/// Most ratios go through a PolyphaseFilter: from 44.1 to 96 kHz flat within 0.001 dB up to 19.5 kHz, all
/// that is not the tone below -105 dB of it. What rises to a whole multiple, or has no ratio of small
/// numbers, goes through speexdsp's Kaiser-windowed sinc of 80 taps (more when the rate falls, in
/// proportion): from 48 kHz 0.00 dB and below -100 dB in the band.
///
/// Equal rates are copied.
///
/// Rates are kept to 0.01 Hz. Thread: one at a time per converter. Only constructors allocate;
/// nothing locks.
#pragma once

#include "platform/audio/polyphase_filter.hpp"
#include "sdk/audio.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace sorvel {

/// The filter for one channel: a PolyphaseFilter where the ratio allows it, else speexdsp's; latency is the
/// caller's business.
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
    std::optional<PolyphaseFilter> m_polyphase;
    std::unique_ptr<State> m_state; // the library's. Neither: equal rates
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
/// The latency comes out as leading silence: half the filter (32 or 40 input samples while the
/// rate rises), and the 1 ms that is kept in hand so that blocks of uneven length (11025 Hz: 1102 and
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
