#pragma once

#include "deep/band.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace sorvel::deep {

/// Reads off a power spectrum of the band how well it fits the code when everything is shifted by s bins:
/// the strongest of the 16 lower tones and the strongest of the 16 upper ones, compressed and added.
///
/// A moving source scales frequencies, so a tone's own shift is s times its frequency over the middle's.
/// In noise a score is 6.76 on average: twice the mean of the largest of 16 exponential variables.
///
/// Thread: constant after construction, which alone allocates.
class ToneComb {
public:
    /// @param points  of the transform: 512 or 1024
    /// @param reach   the shifts run from -reach to reach, at most 63
    ToneComb(std::size_t points, int reach);

    /// Bins that hold a tone at some shift, from the lowest up: the length of what the others call power.
    std::size_t bins() const noexcept { return m_bins; }

    /// |X|^2 of these bins.
    void powers(const float* re, const float* im, float* power) const noexcept;

    /// The mean power of noise, from the powers' median, to 0.4 %.
    static float noise(std::span<const float> power) noexcept;

    /// Scores of the shifts `first` to `last`, of powers times `scale`.
    void scores(const float* power, float scale, int first, int last, float* score) const noexcept;

private:
    /// At the shifts from `first` to `last` a tone stands in power[bin + shift].
    struct Run {
        int bin, first, last;
    };

    std::size_t m_points;
    int m_firstBin; // of the lowest one used, negative
    std::size_t m_bins;
    std::vector<Run> m_low, m_high;
};

} // namespace sorvel::deep
