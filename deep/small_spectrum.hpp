#pragma once

#include "deep/band.hpp"
#include "deep/small_baseband.hpp"

#include <array>
#include <span>

namespace sorvel::deep::small {

/// The spectrum of one chunk of the baseband, limited and windowed as `limitBursts` and `trapezoid` do, at
/// all half bins of 1.302 Hz: a quarter of them at a time, each by a transform of 512 points in place.
///
///     spectrum.take(baseband, from);
///     spectrum.turn(k);                                // k = 0, 1, 2, 3
///     spectrum.power(4 * i + k);                       // of any half bin with that remainder
///
/// A transform of 2048 points would need 16 KiB; this one has 4.
///
/// Thread: one at a time. Allocates nothing.
class Spectrum {
public:
    static constexpr int kFirstBin = -312; ///< of the whole bins
    static constexpr std::size_t kBins = 672;

    /// Chooses the 512 samples from number `from` on.
    void take(const Baseband& baseband, std::int64_t from) noexcept;
    /// Makes the half bins with this remainder by four.
    void turn(std::size_t quarter) noexcept;
    /// |X|^2 at a half bin, negative below the centre.
    float power(int halfBin) const noexcept;

    /// The powers of all whole bins from kFirstBin on, from turns of their own.
    void wholeBins(std::span<float, kBins> powers) noexcept;
    /// Of those with the quarter at hand, 0 or 2.
    void someWholeBins(std::span<float, kBins> powers) const noexcept;

private:
    void transform() noexcept;

    const Baseband* m_baseband = nullptr;
    std::int64_t m_from = 0;
    float m_most = 0.0F; // power of a sample that is not a burst's
    std::size_t m_quarter = 0;
    std::array<float, kChunk> m_re{}, m_im{};
};

} // namespace sorvel::deep::small
