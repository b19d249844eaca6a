#pragma once

#include "modem/assertion.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace RS {

/// A polynomial over GF(2^8) in a fixed slot of a codec's work area. Coefficients stand highest degree first:
/// index 0 belongs to the highest power, the last index is the constant term.
///
/// A slot owns nothing. It reaches its storage through a pointer to its codec's base pointer, so that moving
/// the base moves every slot; copying a `Poly` copies the view, not the coefficients.
///
/// Errors: what would leave the slot is a programming error and ends the process with a line on standard
/// error. Nothing here allocates, and nothing is synchronised.
struct Poly {
    uint8_t length = 0;          ///< coefficients in use
    uint8_t _id = 0;             ///< number of the slot
    uint8_t _size = 0;           ///< capacity in coefficients
    uint16_t _offset = 0;        ///< bytes from the base to the slot
    uint8_t** _memory = nullptr; ///< where the codec keeps its base pointer

    /// Places the slot, empty. Does not touch the storage.
    void Init(uint8_t id, uint16_t offset, uint8_t size, uint8_t** memory) noexcept;

    /// Adds a coefficient behind the last one: the former constant term becomes that of x.
    void Append(uint8_t x) noexcept;

    /// Copies `len` bytes to position `offset` and makes the length `len + offset`.
    void Set(const uint8_t* src, size_t len, size_t offset = 0) noexcept;

    /// Zeroes the whole storage; the length stays.
    void Reset() noexcept;

    /// Element i, which may lie behind the length but not behind the capacity.
    uint8_t& at(size_t i) noexcept;
    const uint8_t& at(size_t i) const noexcept;
    uint8_t& operator[](size_t i) noexcept { return at(i); }
    const uint8_t& operator[](size_t i) const noexcept { return at(i); }

    /// The storage, of `_size` bytes.
    uint8_t* ptr() noexcept { return base(); }
    const uint8_t* ptr() const noexcept { return base(); }

    /// The storage after one check that it holds `count` coefficients: what an inner loop runs over, where
    /// `at` would check each element again.
    uint8_t* first(size_t count) noexcept;
    const uint8_t* first(size_t count) const noexcept;

private:
    uint8_t* base() const noexcept {
        if (!(_memory && *_memory)) sorvel::detail::assertionFailed("ptr", "poly", 77, "_memory && *_memory");
        return *_memory + _offset;
    }

    uint8_t* checked(size_t count) const noexcept {
        if (count > _size) sorvel::detail::assertionFailed("at", "poly", 63, "i < _size");
        return base();
    }
};

inline void Poly::Init(uint8_t id, uint16_t offset, uint8_t size, uint8_t** memory) noexcept {
    length = 0;
    _id = id;
    _size = size;
    _offset = offset;
    _memory = memory;
}

inline void Poly::Append(uint8_t x) noexcept {
    if (!(length < _size)) sorvel::detail::assertionFailed("Append", "poly", 26, "length < _size");
    base()[length++] = x;
}

inline void Poly::Set(const uint8_t* src, size_t len, size_t offset) noexcept {
    if (!(src && offset <= _size && len <= _size - offset))
        sorvel::detail::assertionFailed("Set", "poly", 50, "src && len <= this->_size-offset");
    std::memmove(base() + offset, src, len);
    length = static_cast<uint8_t>(len + offset);
}

inline void Poly::Reset() noexcept { std::memset(base(), 0, _size); }

inline uint8_t& Poly::at(size_t i) noexcept {
    if (!(i < _size)) sorvel::detail::assertionFailed("at", "poly", 63, "i < _size");
    return base()[i];
}

inline const uint8_t& Poly::at(size_t i) const noexcept {
    if (!(i < _size)) sorvel::detail::assertionFailed("at", "poly", 63, "i < _size");
    return base()[i];
}

inline uint8_t* Poly::first(size_t count) noexcept { return checked(count); }
inline const uint8_t* Poly::first(size_t count) const noexcept { return checked(count); }

} // namespace RS
