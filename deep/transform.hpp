#pragma once

#include <cstddef>
#include <vector>

namespace sorvel::deep {

/// The discrete Fourier transform of complex samples, of a fixed power of two points.
///
/// Stockham's self-sorting form (Cochran et al., "What is the fast Fourier transform?", 1967) in radix 4,
/// with a last pass in radix 2 where four does not divide the points out; real and imaginary parts in
/// arrays of their own, so that every pass is a loop over neighbours.
///
/// Error: below 1e-6 of the largest result. Thread: one at a time per object, which owns its scratch
/// memory. Allocates in the constructor only.
class Transform {
public:
    /// @param points  a power of two, 16 to 4096
    explicit Transform(std::size_t points);

    std::size_t points() const noexcept { return m_points; }

    /// X[k] = sum of x[n] e^(-2 pi i k n / points), in place and in natural order; nothing is scaled.
    void forward(float* re, float* im) noexcept;

private:
    std::size_t m_points;
    std::vector<float> m_twiddles; // per pass: cos w, sin w, cos 2w, sin 2w, cos 3w, sin 3w, each a row
    std::vector<float> m_scratch;  // real parts, then imaginary ones
};

} // namespace sorvel::deep
