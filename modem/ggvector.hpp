/// Views of memory that somebody else owns.
#pragma once

#include "modem/assertion.hpp"

#include <algorithm>
#include <cstddef>
#include <span>

/// `size()` elements. Valid as long as their memory: for the views a modem instance hands out, until
/// its next `prepare` or its end.
template <class T>
class ggvector {
public:
    ggvector() = default;
    ggvector(T* data, int size) : m_data(data), m_size(size) {}

    T& operator[](int i) { return m_data[i]; }
    const T& operator[](int i) const { return m_data[i]; }
    int size() const { return m_size; }
    T* data() const { return m_data; }
    T* begin() const { return m_data; }
    T* end() const { return m_data + m_size; }

    void assign(const ggvector& other) { *this = other; }

    /// Copies as many elements as both views hold. Onto itself: a programming error, aborts.
    void copy(const ggvector& other) {
        if (this == &other) sorvel::detail::assertionFailed("copy", "ggwave", 327, "false");
        std::copy_n(other.m_data, std::min(m_size, other.m_size), m_data);
    }
    void zero() { zero(m_size); }
    void zero(int n) { std::fill_n(m_data, n, T{}); }

    std::span<T> span() const { return {m_data, static_cast<std::size_t>(m_size)}; }

private:
    T* m_data = nullptr;
    int m_size = 0;
};

/// rows() x cols() elements, row after row.
template <class T>
class ggmatrix {
public:
    ggmatrix() = default;
    ggmatrix(T* data, int rows, int cols) : m_data(data), m_rows(rows), m_cols(cols) {}

    ggvector<T> operator[](int row) const {
        return {m_data + static_cast<std::ptrdiff_t>(row) * m_cols, m_cols};
    }
    T* data() const { return m_data; }
    int rows() const { return m_rows; }
    int cols() const { return m_cols; }
    void zero() { std::fill_n(m_data, static_cast<std::ptrdiff_t>(m_rows) * m_cols, T{}); }

private:
    T* m_data = nullptr;
    int m_rows = 0;
    int m_cols = 0;
};
