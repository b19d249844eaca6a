#pragma once

#include "deep/band.hpp"

#include <array>
#include <cstdint>
#include <span>

namespace sorvel::deep::small {

/// From the device's samples to the band at baseband, as FrontEnd does, in 3.5 KiB at every rate.
///
/// Weights come from one table of the filter at 384 kHz, as it is where the rate goes into that, else
/// interpolated tap by tap, which leaves 80 dB below the signal. Above 50 kHz, pairs of samples that are
/// mixed down already are merged first (weights 1 3 3 1), once or more: what that folds into the band is
/// 58 dB down.
///
///     frontEnd.mix(samples);                        // takes some
///     while (frontEnd.next(re, im)) use(re, im);    // until there is none
///
/// Thread: one at a time. Allocates nothing.
class FrontEnd {
public:
    /// @param rate_hz  of the device, 32000 to 384000
    explicit FrontEnd(double rate_hz);
    void reset() noexcept;

    /// Takes up to 32 of `samples`, full scale 1.0 or 32768; those taken are gone from it.
    template <typename Sample>
    void mix(std::span<const Sample>& samples) noexcept;

    /// The next sample of the baseband. Sample k is centred on the time k * 3 / 8000 s.
    bool next(float& re, float& im) noexcept;

private:
    static constexpr std::size_t kPiece = 32;
    static constexpr std::size_t kMostTaps = 302; // 6 ms at 50 kHz
    static constexpr std::size_t kHeld = kMostTaps + kPiece + 64;

    /// Merges pairs of samples.
    struct Halving {
        std::array<float, 3> re{}, im{};
        bool isSecond = false;
        bool take(float& r, float& i) noexcept;
    };

    void append(float re, float im) noexcept;
    void keepTail() noexcept;

    // Positions count in 2^-32 of a held sample.
    std::uint64_t m_step, m_phaseStep; // per sample of the baseband; turns of 2^64 per sample of the device
    std::int64_t m_start;              // of the first output
    std::uint32_t m_tableStep;         // entries of the filter's table per held sample, 2^-16
    bool m_isWhole;                    // no position lies between entries
    int m_halvings = 0;
    float m_gain;
    std::size_t m_reach; // taps to either side

    std::array<float, kPiece> m_cosines{}, m_sines{}; // of the centre
    std::array<Halving, 3> m_halving{};
    std::array<float, kHeld> m_re{}, m_im{}; // mixed down
    std::size_t m_held = 0;
    std::uint64_t m_phase = 0;
    std::int64_t m_next = 0; // middle of the next output
};

extern template void FrontEnd::mix(std::span<const float>&) noexcept;
extern template void FrontEnd::mix(std::span<const std::int16_t>&) noexcept;

} // namespace sorvel::deep::small
