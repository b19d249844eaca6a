/// Included before every file that is compiled for browsers: what the code uses of C++20 and the library of
/// emscripten 3.1.6 lacks.
#pragma once

#include <bit>
#include <cstddef>
#include <memory>
#include <type_traits>

namespace std {

#ifndef __cpp_lib_bit_cast
template <typename To, typename From>
constexpr To bit_cast(const From& from) noexcept {
    return __builtin_bit_cast(To, from);
}
#endif

#ifndef __cpp_lib_smart_ptr_for_overwrite
template <typename Array>
unique_ptr<Array> make_unique_for_overwrite(size_t size) {
    return unique_ptr<Array>(new remove_extent_t<Array>[size]);
}
#endif

} // namespace std
