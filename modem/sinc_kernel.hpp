/// The kernel of both resamplers: a sinc under a Hann taper that reaches zero at 64 input samples, tabled.
/// (Smith, "Digital Audio Resampling Home Page", CCRMA.)
#pragma once

#include <cmath>
#include <numbers>
#include <span>

namespace sorvel::detail {

inline constexpr int kKernelWidth = 64;                               ///< input samples to each side
inline constexpr int kKernelResolution = 32;                          ///< table entries per input sample
inline constexpr int kKernelTable = kKernelWidth * kKernelResolution; ///< entries
inline constexpr int kKernelTaps = 2 * kKernelWidth - 1;              ///< input samples under the kernel
inline constexpr double kKernelEnd = 63.0; ///< cut off from here on, in input samples

inline void makeKernel(std::span<float, kKernelTable> table) {
    table[0] = 1.0F;
    for (std::size_t j = 1; j < table.size(); ++j) {
        const double x = std::numbers::pi * static_cast<double>(j) / kKernelResolution;
        const auto lobes = static_cast<float>(std::sin(x) / x);
        const double taper = 0.5 + 0.5 * std::cos(std::numbers::pi * static_cast<double>(j) / kKernelTable);
        table[j] = static_cast<float>(static_cast<double>(lobes) * taper);
    }
}

/// The kernel `x` input samples from its middle, interpolated between the entries.
inline double kernelAt(std::span<const float, kKernelTable> table, double x) {
    x = std::fabs(x);
    if (!(x < kKernelEnd)) return 0.0;
    const double u = x * kKernelResolution;
    const auto i = static_cast<std::size_t>(u);
    const auto low = static_cast<double>(table[i]), high = static_cast<double>(table[i + 1]);
    return low + (high - low) * (u - static_cast<double>(i));
}

/// One output sample: `taps` around a point `position` (0 to 1) behind their middle one. Above a factor of 1
/// the kernel is widened by it, and so filters.
inline float kernelSum(std::span<const float, kKernelTable> table, std::span<const float, kKernelTaps> taps,
                       double position, float factor) {
    const double scale = factor < 1.0F ? 1.0 : 1.0 / static_cast<double>(factor);
    double sum = 0.0;
    for (int i = 0; i < kKernelTaps; ++i) {
        const double distance = position - (i - (kKernelWidth - 1));
        sum += scale * static_cast<double>(taps[static_cast<std::size_t>(i)]) *
               kernelAt(table, distance * scale);
    }
    return static_cast<float>(sum);
}

/// Input samples per output sample that keep every count finite and every time within an int.
inline bool isUsableFactor(float factor) { return factor > 0.0F && factor < 1e6F; }

} // namespace sorvel::detail
