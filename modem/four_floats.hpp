/// Four floats that are worked on at once: a register of SSE2 or NEON where the compiler has vector
/// types, an array elsewhere, with the same results to the bit. Addresses need no alignment beyond
/// a float's.
#pragma once

#include <cstring>

#if defined(__has_builtin) && (defined(__SSE2__) || defined(__ARM_NEON)) && !defined(SORVEL_PLAIN_FLOATS)
#if __has_builtin(__builtin_shufflevector)
#define SORVEL_HAS_VECTOR_TYPES
#endif
#endif

namespace sorvel::detail {

#ifdef SORVEL_HAS_VECTOR_TYPES

using FourFloats = float __attribute__((vector_size(16)));

/// Four of the numbers of x (places 0 to 3) and y (4 to 7).
template <int... places>
FourFloats picked(FourFloats x, FourFloats y) {
    return __builtin_shufflevector(x, y, places...);
}

#else

struct FourFloats {
    float number[4];
};

template <int... places>
FourFloats picked(FourFloats x, FourFloats y) {
    return {(places < 4 ? x : y).number[places % 4]...};
}
template <class Operation>
FourFloats each(FourFloats x, FourFloats y, Operation of) {
    FourFloats result;
    for (int i = 0; i < 4; ++i) result.number[i] = of(x.number[i], y.number[i]);
    return result;
}
inline FourFloats operator+(FourFloats x, FourFloats y) {
    return each(x, y, [](float p, float q) { return p + q; });
}
inline FourFloats operator-(FourFloats x, FourFloats y) {
    return each(x, y, [](float p, float q) { return p - q; });
}
inline FourFloats operator*(FourFloats x, FourFloats y) {
    return each(x, y, [](float p, float q) { return p * q; });
}
inline FourFloats operator*(FourFloats x, float y) { return x * FourFloats{y, y, y, y}; }
inline FourFloats operator-(float x, FourFloats y) { return FourFloats{x, x, x, x} - y; }
inline FourFloats operator-(FourFloats x) { return x * -1.0F; }

#endif

inline FourFloats loaded(const float* from) {
    FourFloats x;
    std::memcpy(&x, from, sizeof x);
    return x;
}
inline void store(float* to, FourFloats x) { std::memcpy(to, &x, sizeof x); }

inline FourFloats reversed(FourFloats x) { return picked<3, 2, 1, 0>(x, x); }

/// Makes rows of columns.
inline void transpose(FourFloats& a, FourFloats& b, FourFloats& c, FourFloats& d) {
    const FourFloats abLow = picked<0, 4, 1, 5>(a, b), abHigh = picked<2, 6, 3, 7>(a, b);
    const FourFloats cdLow = picked<0, 4, 1, 5>(c, d), cdHigh = picked<2, 6, 3, 7>(c, d);
    a = picked<0, 1, 4, 5>(abLow, cdLow);
    b = picked<2, 3, 6, 7>(abLow, cdLow);
    c = picked<0, 1, 4, 5>(abHigh, cdHigh);
    d = picked<2, 3, 6, 7>(abHigh, cdHigh);
}

} // namespace sorvel::detail
