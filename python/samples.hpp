/// The samples of an array as they lie in memory: any of the usual types, either order of bytes,
/// any strides, and nothing aligned. Whatever libsorvel cannot take in place becomes floats here,
/// a piece at a time, so that no array is ever copied as a whole.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace sorvel::python {

enum class SampleType { None, F16, F32, F64, Long, I16, I32, U8 };

/// @param format  as of the buffer protocol, for example "f" or ">h"
/// @param bytes   of one sample
/// @return None where that is no type that sound comes in
SampleType sampleTypeOf(std::string_view format, std::size_t bytes) noexcept;

/// @param format  as of the buffer protocol
/// @return whether a sample's bytes lie in another order than this machine's
bool isForeign(std::string_view format) noexcept;

/// A view; who made it sees that the memory stays.
struct Samples {
    const std::byte* data = nullptr;
    std::size_t frames = 0;
    std::size_t channels = 1;
    std::ptrdiff_t frame_stride_bytes = 0, channel_stride_bytes = 0; ///< also 0, or negative
    SampleType type = SampleType::None;
    bool is_foreign = false;

    /// Whether libsorvel takes the memory as it is.
    [[nodiscard]] bool isPlain() const noexcept;

    /// @param first  frame to begin with
    [[nodiscard]] const std::byte* frame(std::size_t first) const noexcept;

    /// Full scale becomes -1.0 to 1.0: of integers the range of their type, of uint8 around 128.
    ///
    /// @param first  frame to begin with
    /// @param to     whole frames, interleaved; no more than there are from `first` on
    void read(std::size_t first, std::span<float> to) const noexcept;
};

} // namespace sorvel::python
