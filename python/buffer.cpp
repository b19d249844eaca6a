#include "python/buffer.hpp"

#include <string>

namespace py = pybind11;

namespace sorvel::python {

namespace {

[[noreturn]] void refuseType(py::handle object) {
    throw py::type_error("samples cannot be of type " + std::string(py::str(py::getattr(object, "dtype"))) +
                         "; float16 to float64, int16, int32 and uint8 are taken, others after astype");
}

std::string shapeOf(const Py_buffer& view) { // as Python writes it
    const py::tuple shape(view.ndim);
    for (int axis = 0; axis < view.ndim; ++axis) shape[static_cast<std::size_t>(axis)] = view.shape[axis];
    return py::str(py::handle(shape));
}

[[noreturn]] void refuseShape(const Py_buffer& view, std::size_t channels) {
    std::string line = "samples have the shape " + shapeOf(view) + "; ";
    const auto wanted = static_cast<Py_ssize_t>(channels);
    line += channels == 1 ? "(frames,) or (frames, 1) is needed"
                          : "(frames, " + std::to_string(channels) + ") is needed";
    if (view.ndim == 2 && view.shape[0] == wanted) line += ": give them transposed, as samples.T";
    throw py::value_error(line);
}

} // namespace

Buffer::Buffer(py::handle object) {
    if (PyObject_GetBuffer(object.ptr(), &m_view, PyBUF_STRIDES | PyBUF_FORMAT) != 0) {
        PyErr_Clear(); // what numpy cannot lend: times, objects
        refuseType(object);
    }
    const char* const format = m_view.format == nullptr ? "B" : m_view.format;
    m_type = sampleTypeOf(format, static_cast<std::size_t>(m_view.itemsize));
    m_is_foreign = isForeign(format);
    if (m_type == SampleType::None) {
        PyBuffer_Release(&m_view);
        refuseType(object);
    }
}

Samples Buffer::frames(std::size_t channels) const {
    const bool isFlat = m_view.ndim == 1 && channels == 1;
    if (!isFlat && (m_view.ndim != 2 || m_view.shape[1] != static_cast<Py_ssize_t>(channels)))
        refuseShape(m_view, channels);
    Samples samples;
    samples.data = static_cast<const std::byte*>(m_view.buf);
    samples.frames = static_cast<std::size_t>(m_view.shape[0]);
    samples.channels = channels;
    samples.frame_stride_bytes = m_view.strides[0];
    samples.channel_stride_bytes = isFlat ? 0 : m_view.strides[1];
    samples.type = m_type;
    samples.is_foreign = m_is_foreign;
    return samples;
}

} // namespace sorvel::python
