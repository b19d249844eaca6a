#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace sorvel::stream {

/// Conversion of a stream of samples between any two rates, by a Kaiser-windowed sinc of 64 taps at
/// the lower of both.
///
/// Output sample k lies at the time of input sample k * from / to, and depends on the sound alone,
/// not on the lengths of blocks. From and to 44.1 kHz it is flat within 0.01 dB up to 19.5 kHz.
///
/// Thread: one at a time. Only the constructor allocates.
class RateConversion {
public:
    /// @param from_hz  as `to_hz` 8000 to 384000; equal rates are copied
    RateConversion(double from_hz, double to_hz);

    struct Step {
        std::size_t consumed = 0, produced = 0; // samples
    };
    /// Converts until the input is used up or the output full. What is left of the input then may
    /// have to wait for the next call.
    Step convert(std::span<const float> in, std::span<float> out) noexcept;

    /// Samples of silence that, behind the last input, bring out all that belongs to it.
    std::size_t latency_samples() const noexcept { return m_taps / 2; }

    /// Forgets the stream.
    void reset() noexcept;

private:
    void makeWeights(double step);
    std::size_t take(std::span<const float> in) noexcept;
    float outputAt(double place) const noexcept;

    double m_step; // input samples per output sample
    std::size_t m_taps;
    std::size_t m_places;         // between two input samples; 0: all outputs lie on input samples
    std::vector<float> m_weights; // row by row, one for each place and for the next sample
    std::vector<float> m_line;    // input that is still needed
    std::size_t m_held = 0;       // samples in it
    double m_next = 0.0;          // where in the line the taps of the next output sample begin
};

} // namespace sorvel::stream
