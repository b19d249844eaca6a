#include "modem/sinc_kernel.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <span>

// The sums once more, for processors with AVX2. The standard headers come first and stay as they are: what
// they define inline may be linked into code for other processors.
#if defined(__x86_64__) && !defined(__AVX2__)

#ifdef __clang__
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

#include "modem/sinc_sums.hpp"

namespace sorvel::detail {

std::size_t sumStretchAvx2(const KernelWeights& weights, const Stretch& stretch) {
    return sumStretchBy<8>(weights, stretch);
}

} // namespace sorvel::detail

#ifdef __clang__
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

#endif
