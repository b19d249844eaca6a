#pragma once

#include "modem/assertion.hpp"
#include "modem/poly.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

/// Arithmetic of GF(2^8) with the primitive polynomial x^8 + x^4 + x^3 + x^2 + 1 (0x11D) and the generator
/// element alpha = 2. Addition is XOR. A product is a sum of logarithms, looked up in two constant tables.
///
/// The names `exp`, `log`, `pow` and `div` are also those of C functions: write them with their namespace.
///
/// Errors: division by zero, and a slot too small for a result, are programming errors that end the process.
/// Every function is safe to call from any thread, as far as its slots are not shared.
namespace RS::gf {

namespace detail {

consteval std::array<uint8_t, 512> makeExp() {
    std::array<uint8_t, 512> table{};
    unsigned power = 1;
    for (size_t i = 0; i < 255; ++i) {
        table[i] = static_cast<uint8_t>(power);
        power <<= 1;
        if (power & 0x100u) power ^= 0x11Du;
    }
    for (size_t i = 255; i < table.size(); ++i) table[i] = table[i - 255];
    return table;
}

consteval std::array<uint8_t, 256> makeLog() {
    std::array<uint8_t, 256> table{};
    constexpr auto kPowers = makeExp();
    for (size_t i = 0; i < 255; ++i) table[kPowers[i]] = static_cast<uint8_t>(i);
    return table;
}

} // namespace detail

// NOLINTBEGIN(readability-identifier-naming): the names of the two tables are part of the interface.

/// exp[i] = alpha^i, with the period of 255 repeated so that a sum of two logarithms needs no reduction.
inline constexpr std::array<uint8_t, 512> exp = detail::makeExp();

/// log[exp[i]] = i for i = 0..254. Zero has no logarithm; its entry is 0.
inline constexpr std::array<uint8_t, 256> log = detail::makeLog();

// NOLINTEND(readability-identifier-naming)

/// Product.
constexpr uint8_t mul(uint8_t x, uint8_t y) noexcept {
    return x == 0 || y == 0 ? uint8_t{0} : exp[size_t{log[x]} + log[y]];
}

/// Quotient; y must not be 0.
constexpr uint8_t div(uint8_t x, uint8_t y) noexcept {
    if (!(y != 0)) sorvel::detail::assertionFailed("div", "gf", 118, "y != 0");
    return x == 0 ? uint8_t{0} : exp[(size_t{log[x]} + 255u - log[y]) % 255u];
}

/// x to the power n, which may be negative. x must not be 0: the tables answer 1 for it.
constexpr uint8_t pow(uint8_t x, int n) noexcept {
    const int64_t exponent = (int64_t{log[x]} * n) % 255;
    return exp[static_cast<size_t>(exponent < 0 ? exponent + 255 : exponent)];
}

/// 1 / x. x must not be 0: the tables answer 1 for it.
constexpr uint8_t inverse(uint8_t x) noexcept { return exp[size_t{255} - log[x]]; }

/// out = p * x. `out` may be `p`.
inline void poly_scale(const Poly* p, Poly* out, uint8_t x) noexcept {
    const size_t length = p->length;
    const uint8_t* from = p->first(length);
    uint8_t* to = out->first(length);
    for (size_t i = 0; i < length; ++i) to[i] = mul(from[i], x);
    out->length = static_cast<uint8_t>(length);
}

/// out = p + q, constant terms aligned. `out` must be another slot than `p` and `q`.
inline void poly_add(const Poly* p, const Poly* q, Poly* out) noexcept {
    const size_t length = std::max(p->length, q->length);
    uint8_t* to = out->first(length);
    std::memset(to, 0, length);
    std::memcpy(to + (length - p->length), p->first(p->length), p->length);
    const uint8_t* from = q->first(q->length);
    for (size_t i = 0; i < q->length; ++i) to[length - q->length + i] ^= from[i];
    out->length = static_cast<uint8_t>(length);
}

/// out = p * q; without coefficients when one of them has none. `out` must be another slot than `p` and `q`.
inline void poly_mul(const Poly* p, const Poly* q, Poly* out) noexcept {
    const size_t length = p->length == 0 || q->length == 0 ? 0 : size_t{p->length} + q->length - 1;
    const uint8_t* left = p->first(p->length);
    const uint8_t* right = q->first(q->length);
    uint8_t* to = out->first(length);
    std::memset(to, 0, length);
    for (size_t j = 0; j < q->length; ++j)
        for (size_t i = 0; i < p->length; ++i) to[i + j] ^= mul(left[i], right[j]);
    out->length = static_cast<uint8_t>(length);
}

/// out = remainder of p / q, of q.length - 1 coefficients; p itself when q is longer or empty. The divisor is
/// taken as monic: q[0] is never divided by. `out` may be `p`, not `q`.
inline void poly_div(const Poly* p, const Poly* q, Poly* out) noexcept {
    const size_t length = p->length;
    const uint8_t* from = p->first(length);
    const uint8_t* divisor = q->first(q->length);
    uint8_t* rest = out->first(length);
    std::memmove(rest, from, length);
    out->length = static_cast<uint8_t>(length);
    if (q->length == 0 || q->length > length) return;

    const size_t steps = length - q->length + 1;
    for (size_t i = 0; i < steps; ++i) {
        const uint8_t c = rest[i];
        if (c == 0) continue;
        for (size_t j = 1; j < q->length; ++j) rest[i + j] ^= mul(divisor[j], c);
    }
    std::memmove(rest, rest + steps, length - steps);
    out->length = static_cast<uint8_t>(length - steps);
}

/// p(x) by Horner's rule; 0 when p has no coefficients.
inline uint8_t poly_eval(const Poly* p, uint8_t x) noexcept {
    const uint8_t* from = p->first(p->length);
    uint8_t y = 0;
    for (size_t i = 0; i < p->length; ++i) y = static_cast<uint8_t>(mul(y, x) ^ from[i]);
    return y;
}

} // namespace RS::gf
