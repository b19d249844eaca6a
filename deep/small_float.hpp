#pragma once

#include "deep/short_float.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace sorvel::deep::small {

/// A power from 2^-14 to 2^17 in one byte, within 6 %. They stand in the order of their values.
using Byte = std::uint8_t;

inline constexpr int kLeastByte = (127 - 14) << 3;

inline Byte toByte(float power) {
    const int bits = (static_cast<int>(shortened(power)) + 8) >> 4;
    return static_cast<Byte>(std::clamp(bits - kLeastByte, 0, 255));
}

inline float ofByte(Byte byte) { return lengthened(static_cast<ShortFloat>((byte + kLeastByte) << 4)); }

/// A power as it is up to 16, then by its root: one loud bin must not outweigh the others.
inline float compressed(float e) { return e > 16.0F ? 8.0F * std::sqrt(e) - 16.0F : e; }

} // namespace sorvel::deep::small
