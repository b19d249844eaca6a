#pragma once

#include "modem/gf.hpp"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace RS::gf {

/// The values of a polynomial at all 256 elements of the field, computed together. With vectors of 16 bytes
/// it takes about as long as Horner's rule at some five elements. 256 bytes; twice that while it is made.
///
///     const gf::Values values(word, length);
///     syndrome = values.at(gf::exp[i]);
///
/// An additive Fourier transform (D. G. Cantor, "On arithmetical algorithms over finite fields", 1989). The
/// elements are numbered along a basis with b[0] = 1 and b[i]^2 + b[i] = b[i - 1], so that x -> x^2 + x
/// halves an element's number. That map taken k times is a polynomial s_k of few terms, each x to a power of
/// two, and on a block of 2^k numbers it has one value: c, whose number is theirs / 2^k. So q * s_k + r, on a
/// block twice as long, is c * q + r on the one half and (c + 1) * q + r on the other: two polynomials half
/// as long. Eight such steps leave the values.
///
/// A step does the same to sixteen coefficients side by side. Expanded in powers of s_4 = x^16 + x, the
/// polynomial is sixteen rows of coefficients, which the steps with s_7 = s_3(s_4) to s_4 combine as wholes;
/// then each row is the polynomial of a block of sixteen, and s_3 to s_0 combine the columns.
class Values {
public:
    /// @param coefficients  highest degree first
    /// @param length        0 to 256
    Values(const uint8_t* coefficients, size_t length) noexcept;

    /// The value at the element x.
    uint8_t at(uint8_t x) const noexcept;

    /// The number of elements other than 0 whose value is 0.
    size_t roots() const noexcept;

private:
    /// One register where the processor has such, plain code elsewhere.
    using Row = uint8_t __attribute__((vector_size(16)));

    static consteval std::array<uint8_t, 8> makeBasis();
    static constexpr uint8_t element(size_t number) noexcept;
    static consteval std::array<std::array<uint8_t, 16>, 4> makeBlocks();
    static consteval std::array<std::array<uint8_t, 16>, 2> makePlaces();

    static Row spread(uint8_t x) noexcept { return Row{} + x; }
    static Row highBits(Row x) noexcept;
    static Row mul(Row x, Row y) noexcept;
    template <size_t half>
    static void expand(uint8_t* f, size_t length) noexcept;
    template <bool isByBlock>
    static void split(Row* f, size_t used) noexcept;
    template <size_t k, bool isByBlock>
    static void halve(Row* f, size_t used) noexcept;

    Row m_values[16]; // number 16 * block + i: row i, byte `block`
};

// --- numbers and elements

consteval std::array<uint8_t, 8> Values::makeBasis() {
    std::array<uint8_t, 8> b{};
    for (uint8_t last = 2; b[0] != 1; ++last) {
        b[7] = last;
        for (size_t i = 7; i > 0; --i) b[i - 1] = static_cast<uint8_t>(gf::mul(b[i], b[i]) ^ b[i]);
    }
    return b;
}

constexpr uint8_t Values::element(size_t number) noexcept {
    constexpr std::array<uint8_t, 8> kBasis = makeBasis();
    uint8_t sum = 0;
    for (size_t i = 0; i < kBasis.size(); ++i)
        if (number >> i & 1u) sum ^= kBasis[i];
    return sum;
}

/// By k and block of 16: the value of s_k at the block's first element.
consteval std::array<std::array<uint8_t, 16>, 4> Values::makeBlocks() {
    std::array<std::array<uint8_t, 16>, 4> values{};
    for (size_t k = 0; k < 4; ++k)
        for (size_t block = 0; block < 16; ++block) values[k][block] = element(16 * block >> k);
    return values;
}

/// Where m_values has an element's value, by the low and the high half of the element: a linear map as well.
consteval std::array<std::array<uint8_t, 16>, 2> Values::makePlaces() {
    std::array<std::array<uint8_t, 16>, 2> places{};
    for (size_t number = 0; number < 256; ++number) {
        const uint8_t x = element(number);
        const auto place = static_cast<uint8_t>(number % 16 * 16 + number / 16);
        if (x < 16) places[0][x] = place;
        if (x % 16 == 0) places[1][x / 16] = place;
    }
    return places;
}

inline uint8_t Values::at(uint8_t x) const noexcept {
    static constexpr auto kPlaces = makePlaces();
    const size_t place = size_t{kPlaces[0][x % 16]} ^ kPlaces[1][x / 16];
    return m_values[place / 16][place % 16];
}

inline size_t Values::roots() const noexcept {
    Row counts{};
    for (const Row& row : m_values) counts -= reinterpret_cast<Row>(row == Row{});
    size_t sum = 0;
    for (size_t i = 0; i < 16; ++i) sum += counts[i];
    return sum - (at(0) == 0 ? 1 : 0);
}

// --- rows

/// All bits of the bytes whose highest bit is set.
inline Values::Row Values::highBits(Row x) noexcept {
    using Signed = int8_t __attribute__((vector_size(16)));
    return reinterpret_cast<Row>(reinterpret_cast<Signed>(x) < Signed{});
}

/// Products byte by byte, one bit of y at a time: sixteen pairs of logarithms take longer to look up.
inline Values::Row Values::mul(Row x, Row y) noexcept {
    Row product = highBits(y) & x;
    for (int bit = 1; bit < 8; ++bit) {
        y += y;
        product = (product + product) ^ (highBits(product) & spread(0x1D)) ^ (highBits(y) & x);
    }
    return product;
}

// --- the transform

inline Values::Values(const uint8_t* coefficients, size_t length) noexcept : m_values{} {
    Row rows[16]{};
    auto* const f = reinterpret_cast<uint8_t*>(rows);
    for (size_t i = 0; i < length; ++i) f[i] = coefficients[length - 1 - i];
    expand<128>(f, length);
    split<false>(rows, (length + 15) / 16);
    auto* const turned = reinterpret_cast<uint8_t*>(m_values);
    for (size_t block = 0; block < 16; ++block)
        for (size_t i = 0; i < 16; ++i) turned[16 * i + block] = f[16 * block + i];
    split<true>(m_values, 16);
}

/// From powers of x to powers of s_4, with 16 coefficients each, by halves: for a power of two m, s_4^m is
/// x^(16 m) + x^m, and dividing by it adds the upper half at a lower place.
template <size_t half>
void Values::expand(uint8_t* f, size_t length) noexcept {
    if (length > half) {
        constexpr size_t kDown = half - half / 16;
        for (size_t start = 0; start < 256; start += 2 * half) {
            // The upper part of the upper half first: some of it comes down on the lower part.
            for (uint8_t* const from : {f + start + half + half / 2, f + start + half})
                for (size_t i = 0; i < half / 2; ++i) (from - kDown)[i] ^= from[i];
        }
    }
    if constexpr (half > 16) expand<half / 2>(f, length);
}

/// Four steps on 16 rows, of which those from `used` on are 0. By block, each byte of a row belongs to the
/// block of its number; otherwise all belong to the first.
template <bool isByBlock>
void Values::split(Row* f, size_t used) noexcept {
    halve<3, isByBlock>(f, used);
    halve<2, isByBlock>(f, used);
    halve<1, isByBlock>(f, used);
    halve<0, isByBlock>(f, used);
}

template <size_t k, bool isByBlock>
void Values::halve(Row* f, size_t used) noexcept {
    static constexpr auto kBlocks = makeBlocks();
    constexpr size_t kHalf = size_t{1} << k;
    for (size_t at = 0; at < 16; at += 2 * kHalf) {
        Row* const r = f + at;
        Row* const q = r + kHalf;
        if (used <= kHalf) { // q is 0
            for (size_t i = 0; i < kHalf; ++i) q[i] = r[i];
            continue;
        }
        // Division by s_k: its terms are x^(2^i) for each i whose bits are all in k, up to k itself.
        for (size_t i = kHalf; i-- > 0;)
            for (size_t term = 0; term < k; ++term)
                if ((term & k) == term) r[i + (size_t{1} << term)] ^= q[i];
        Row c = spread(element(at >> k));
        if (isByBlock) c ^= std::bit_cast<Row>(kBlocks[k]);
        for (size_t i = 0; i < kHalf; ++i) {
            if (isByBlock || at != 0) r[i] ^= mul(q[i], c);
            q[i] ^= r[i];
        }
    }
}

} // namespace RS::gf
