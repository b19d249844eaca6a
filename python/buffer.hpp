/// What an object lends through Python's buffer protocol, which numpy's arrays have in every
/// version: the module needs none of numpy's own interface.
#pragma once

#include "python/samples.hpp"

#include <cstddef>
#include <pybind11/pybind11.h>

namespace sorvel::python {

/// While it lives, the memory stays; it is neither written nor required to be writable.
class Buffer {
public:
    /// @param object  whose samples are wanted
    /// @throws pybind11::type_error  where it has none
    explicit Buffer(pybind11::handle object);
    ~Buffer() { PyBuffer_Release(&m_view); }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    /// @param channels  that a frame must have; of one channel, an array of one dimension will do
    /// @throws pybind11::value_error  where the shape is another one
    [[nodiscard]] Samples frames(std::size_t channels) const;

private:
    Py_buffer m_view{};
    SampleType m_type = SampleType::None;
    bool m_is_foreign = false;
};

} // namespace sorvel::python
