/// Where arrays lie in a block of memory.
#pragma once

#include "modem/ggwave.h"

namespace sorvel::modem {

/// Hands out consecutive arrays of a block, each at a multiple of 8 bytes from its start; without a
/// block it only measures. A part runs the same function for both, so that the two cannot disagree.
///
///     Layout sizes(nullptr);
///     part.place(sizes);                    // sizes.bytes() is what it needs; its views stay as they were
///     Layout places(block_of_zeros);
///     part.place(places);                   // its views now point into the block
class Layout {
public:
    explicit Layout(void* block, std::int64_t start_bytes = 0)
        : m_block(static_cast<std::byte*>(block)), m_bytes(start_bytes) {}

    template <class T>
    void place(ggvector<T>& view, std::int64_t count) {
        if (T* const data = take<T>(count)) view = {data, static_cast<int>(count)};
    }
    template <class T>
    void place(ggmatrix<T>& view, std::int64_t rows, std::int64_t cols) {
        if (T* const data = take<T>(rows * cols))
            view = {data, static_cast<int>(rows), static_cast<int>(cols)};
    }

    void* block() const { return m_block; }
    std::int64_t bytes() const { return m_bytes; } ///< from the block's start, a multiple of 8

private:
    template <class T>
    T* take(std::int64_t count) {
        std::byte* const at = m_block == nullptr ? nullptr : m_block + m_bytes;
        m_bytes += (count * static_cast<std::int64_t>(sizeof(T)) + 7) / 8 * 8;
        return reinterpret_cast<T*>(at);
    }

    std::byte* m_block;
    std::int64_t m_bytes;
};

} // namespace sorvel::modem
