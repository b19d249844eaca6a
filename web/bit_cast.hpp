/// Included before every file that is compiled for browsers: emscripten 3.1.6 comes with a standard library
/// that has <bit> without std::bit_cast, and a compiler that has what it is made of.
#pragma once

#include <bit>

#ifndef __cpp_lib_bit_cast
namespace std { // NOLINT(cert-dcl58-cpp): it is the name that all the code uses
template <typename To, typename From>
constexpr To bit_cast(const From& from) noexcept {
    return __builtin_bit_cast(To, from);
}
} // namespace std
#endif
