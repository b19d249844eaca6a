/// The kernel of both resamplers: a sinc under a Hann taper that reaches zero at 64 input samples, tabled
/// (Smith, "Digital Audio Resampling Home Page", CCRMA); and the sums of samples under it.
///
/// Times count input samples. The output due at time t is the sum of the 127 samples around the whole part of
/// t, each times the kernel at its distance from t. Above a factor of 1 the kernel is widened by the factor,
/// and so filters.
#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace sorvel::detail {

inline constexpr int kKernelWidth = 64;                               ///< input samples to each side
inline constexpr int kKernelResolution = 32;                          ///< table entries per input sample
inline constexpr int kKernelTable = kKernelWidth * kKernelResolution; ///< entries
inline constexpr int kKernelTaps = 2 * kKernelWidth - 1;              ///< input samples under the kernel
inline constexpr int kKernelEnd = 63;                                 ///< zero from this distance on

/// Samples in a delay line. At time t the newest one is number int(t) + 71, so 72 lie ahead of the centre.
inline constexpr int kHistory = kKernelWidth + 72;

using KernelTable = std::span<const float, kKernelTable>;

void makeKernel(std::span<float, kKernelTable> table);

/// The kernel `x` input samples from its middle, interpolated between the entries.
double kernelAt(KernelTable table, double x);

/// When the outputs are due. Each time is the one before plus the factor, rounded to a double.
struct OutputClock {
    double next = 0.0; ///< time of the next output
    int latest = 0;    ///< whole part of the time of the output before

    /// Outputs due before `end`, at most INT_MAX. The clock stays where it is.
    int countBefore(double end, float factor) const;
};

/// What there is to convert: `fresh` follows the delay line. When the first of `fresh` is still to be shifted
/// in, the time is `begin`.
struct KernelInput {
    std::span<const float, kHistory> history;
    std::span<const float> fresh;
    int begin = 0;
};

/// The kernel laid out for the factor in use, so that neighbouring samples meet neighbouring weights.
class SincKernel {
public:
    static constexpr int kRowSize = 2 * kKernelWidth; // weights to both sides of the centre
    static constexpr int kRows = kKernelResolution + 2;
    static constexpr int kPairs = kKernelWidth / 2; // of samples at odd distances, for a factor of 2

    /// Makes the next `convert` look at the table again.
    void forget();

    /// Makes the outputs due before `end`, as many as fit into `out`.
    std::size_t convert(KernelTable table, const KernelInput& input, OutputClock& clock, double end,
                        float factor, std::span<float> out);

private:
    void layOut(KernelTable table, double step);
    void layOutHalfRate(KernelTable table);

    alignas(16) std::array<float, kRows * kRowSize> m_rows{};
    alignas(16) std::array<float, kRowSize> m_offsets{}; // of each weight behind its entry, less 1
    std::array<float, kPairs> m_halfRate{};
    double m_step = 0.0; // table entries per input sample; 0: not laid out
    bool m_hasHalfRate = false;
};

} // namespace sorvel::detail
