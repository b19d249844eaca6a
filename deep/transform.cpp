#include "deep/transform.hpp"

#include "deep/target_clones.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sorvel::deep {

namespace {

/// Samples in two arrays.
struct Split {
    float* re;
    float* im;
};

/// One pass in radix 4: `stride` interleaved sequences of `n` points become four times as many of a
/// quarter of the length. `w` holds the six rows of n / 4 factors.
inline void quarter(std::size_t n, std::size_t stride, Split x, Split y, const float* w) {
    const std::size_t m = n / 4;
    const std::size_t quarterOfAll = m * stride;
    const auto butterfly = [&](std::size_t p, std::size_t from, std::size_t to) {
        const float* const xr = x.re + from;
        const float* const xi = x.im + from;
        float* const yr = y.re + to;
        float* const yi = y.im + to;
        const float ar = xr[0], ai = xi[0];
        const float br = xr[quarterOfAll], bi = xi[quarterOfAll];
        const float cr = xr[2 * quarterOfAll], ci = xi[2 * quarterOfAll];
        const float dr = xr[3 * quarterOfAll], di = xi[3 * quarterOfAll];
        const float acr = ar + cr, aci = ai + ci, bdr = br + dr, bdi = bi + di;
        const float amr = ar - cr, ami = ai - ci, bmr = bi - di, bmi = dr - br; // (b - d) times -i
        const float r1 = amr + bmr, i1 = ami + bmi;
        const float r2 = acr - bdr, i2 = aci - bdi;
        const float r3 = amr - bmr, i3 = ami - bmi;
        const float w1r = w[p], w1i = w[m + p], w2r = w[2 * m + p], w2i = w[3 * m + p];
        const float w3r = w[4 * m + p], w3i = w[5 * m + p];
        yr[0] = acr + bdr;
        yi[0] = aci + bdi;
        yr[stride] = r1 * w1r - i1 * w1i;
        yi[stride] = r1 * w1i + i1 * w1r;
        yr[2 * stride] = r2 * w2r - i2 * w2i;
        yi[2 * stride] = r2 * w2i + i2 * w2r;
        yr[3 * stride] = r3 * w3r - i3 * w3i;
        yi[3 * stride] = r3 * w3i + i3 * w3r;
    };
    if (stride == 1) { // neighbours are then the points of one sequence
        for (std::size_t p = 0; p < m; ++p) butterfly(p, p, 4 * p);
        return;
    }
    for (std::size_t p = 0; p < m; ++p)
        for (std::size_t q = 0; q < stride; ++q) butterfly(p, q + stride * p, q + 4 * stride * p);
}

inline void half(std::size_t stride, Split x, Split y) {
    for (std::size_t q = 0; q < stride; ++q) {
        const float ar = x.re[q], ai = x.im[q], br = x.re[q + stride], bi = x.im[q + stride];
        y.re[q] = ar + br;
        y.im[q] = ai + bi;
        y.re[q + stride] = ar - br;
        y.im[q + stride] = ai - bi;
    }
}

// The two sides are distinct memory by construction, which vectors need to know.
SORVEL_DEEP_CLONES
void passes(std::size_t points, float* __restrict re, float* __restrict im, float* __restrict re2,
            float* __restrict im2, const float* __restrict w) {
    bool isHome = true;
    std::size_t stride = 1;
    std::size_t n = points;
    for (; n >= 4; n /= 4, stride *= 4) {
        if (isHome)
            quarter(n, stride, {re, im}, {re2, im2}, w);
        else
            quarter(n, stride, {re2, im2}, {re, im}, w);
        isHome = !isHome;
        w += 6 * (n / 4);
    }
    if (n == 2) {
        if (isHome)
            half(stride, {re, im}, {re2, im2});
        else
            half(stride, {re2, im2}, {re, im});
        isHome = !isHome;
    }
    if (isHome) return;
    std::copy(re2, re2 + points, re);
    std::copy(im2, im2 + points, im);
}

} // namespace

Transform::Transform(std::size_t points) : m_points(points), m_scratch(2 * points) {
    std::size_t count = 0;
    for (std::size_t n = points; n >= 4; n /= 4) count += 6 * (n / 4);
    m_twiddles.reserve(count);
    for (std::size_t n = points; n >= 4; n /= 4) {
        for (unsigned multiple = 1; multiple <= 3; ++multiple) {
            for (const bool isSine : {false, true}) {
                for (std::size_t p = 0; p < n / 4; ++p) {
                    const double angle =
                        -2.0 * std::numbers::pi * static_cast<double>(multiple * p) / static_cast<double>(n);
                    m_twiddles.push_back(static_cast<float>(isSine ? std::sin(angle) : std::cos(angle)));
                }
            }
        }
    }
}

void Transform::forward(float* re, float* im) noexcept {
    passes(m_points, re, im, m_scratch.data(), m_scratch.data() + m_points, m_twiddles.data());
}

} // namespace sorvel::deep
