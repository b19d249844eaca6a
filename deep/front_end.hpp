#pragma once

#include "deep/band.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace sorvel::deep {

/// From the device's samples to the band at baseband: 8000/3 complex samples a second around 18,666.67 Hz.
///
/// Sound is mixed down at its own rate, then summed through one low-pass filter at every sample of the
/// baseband: 6 ms of windowed sinc (Kaiser and Schafer, "On the use of the I0-sinh window for spectrum
/// analysis", 1980; beta 7.86), half its amplitude at 1330 Hz, 80 dB down from 1750 Hz on. Where a sample
/// falls between those of the device, two rows of weights an eighth of a sample apart are mixed (less finely
/// at rates above 44.1 kHz, for the same time apart); what that leaves is 80 dB below the signal. The centre
/// turns whole times in a sample of the baseband, so nothing needs to be turned back.
///
/// Delay: 3 ms. Thread: one at a time. Allocates in the constructor only.
class FrontEnd {
public:
    /// @param rate_hz  of the device, 32000 to 384000; the whole band needs more than 39,000
    explicit FrontEnd(double rate_hz);

    /// Takes up to `room()` of `samples`, full scale 1.0, and appends what they complete.
    ///
    /// @param re  room for 64 samples, as `im`
    /// @return samples of the baseband written; those taken are gone from `samples`. Sample k of the
    ///         baseband is centred on the time k * 3 / 8000 s after the first sample of the device.
    template <typename Sample>
    std::size_t take(std::span<const Sample>& samples, float* re, float* im) noexcept;

    void reset() noexcept;

private:
    void mix(std::size_t count) noexcept;
    std::size_t filter(float* re, float* im) noexcept;
    void keepTail() noexcept;

    double m_step;            // samples of the device per sample of the baseband
    double m_cyclesPerSample; // of the centre
    std::size_t m_taps;
    std::size_t m_positions; // between two samples at which the filter is known
    std::size_t m_rows;      // of weights, for positions between two samples; 1 where there is none between
    std::vector<float> m_weights;
    std::vector<float> m_turn; // cosine and sine of the centre over the samples of a piece
    std::vector<float> m_piece;
    std::vector<float> m_re, m_im; // mixed down
    std::size_t m_held = 0;        // samples in them
    std::uint64_t m_taken = 0;     // samples of the device in all
    double m_next = 0.0;           // in `m_re`: first sample under the filter for the next output
};

extern template std::size_t FrontEnd::take(std::span<const float>&, float*, float*) noexcept;
extern template std::size_t FrontEnd::take(std::span<const std::int16_t>&, float*, float*) noexcept;

} // namespace sorvel::deep
