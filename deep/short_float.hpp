#pragma once

#include <bit>
#include <cstdint>

namespace sorvel::deep {

/// The upper half of a float: within 0.4 %, in half the memory. Those that are not negative stand in the
/// order of their bits.
using ShortFloat = std::uint16_t;

inline ShortFloat shortened(float value) {
    return static_cast<ShortFloat>((std::bit_cast<std::uint32_t>(value) + 0x8000U) >> 16U);
}

inline float lengthened(ShortFloat value) {
    return std::bit_cast<float>(static_cast<std::uint32_t>(value) << 16U);
}

} // namespace sorvel::deep
