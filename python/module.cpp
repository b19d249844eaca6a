/// sorvel._sorvel: libsorvel for the Python files in sorvel/, which check what they hand over. A
/// stream is a capsule, which cannot be made, copied or filled with something else from Python.
#include "python/buffer.hpp"
#include "python/stream.hpp"
#include "sorvel/sorvel.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <pybind11/pybind11.h>
#include <string>
#include <string_view>
#include <vector>

namespace py = pybind11;

namespace {

using sorvel::python::Buffer;
using sorvel::python::require;
using sorvel::python::Stream;

constexpr const char* kStream = "sorvel.stream";

py::capsule open(double rate_hz, const std::string& prefix, std::size_t channels, int receiver) {
    auto stream = std::make_unique<Stream>(rate_hz, prefix, channels, receiver);
    py::capsule capsule(stream.get(), kStream, [](PyObject* object) {
        delete static_cast<Stream*>(PyCapsule_GetPointer(object, kStream));
    });
    [[maybe_unused]] const Stream* const the_capsules = stream.release();
    return capsule;
}

Stream& streamIn(py::handle object) {
    void* const stream = PyCapsule_GetPointer(object.ptr(), kStream);
    if (stream == nullptr) throw py::error_already_set();
    return *static_cast<Stream*>(stream);
}

/// (content, end_s, None or (snr_db, speed_m_s, echo, margin)) of each.
py::list told(const std::vector<sorvel_heard>& heard) {
    py::list list;
    for (const sorvel_heard& one : heard) {
        const py::object quality =
            one.has_quality == 1 ? py::object(py::make_tuple(one.snr_db, one.speed_m_s, one.echo, one.margin))
                                 : py::object(py::none());
        list.append(py::make_tuple(py::bytes(one.text, one.length), one.end_s, quality));
    }
    return list;
}

py::list push(const py::object& stream, const py::object& samples) {
    Stream& into = streamIn(stream);
    const Buffer buffer(samples);
    return told(into.push(buffer.frames(into.channels())));
}

struct DestroySender {
    void operator()(sorvel_sender* sender) const noexcept { sorvel_sender_destroy(sender); }
};

py::object send(std::string_view content, int kind, double rate_hz, int volume_percent) {
    sorvel_sender_config config{};
    config.size = sizeof config;
    config.sample_rate_hz = rate_hz;
    config.content = kind;
    config.volume_percent = volume_percent;
    sorvel_sender* made = nullptr;
    require(sorvel_sender_create(&config, &made));
    const std::unique_ptr<sorvel_sender, DestroySender> sender(made);
    std::size_t frames = 0;
    require(sorvel_sender_count(made, content.data(), content.size(), &frames));

    py::object samples = py::module_::import("numpy").attr("empty")(frames, "float32");
    const py::buffer_info memory = py::buffer(samples).request(true);
    int code = SORVEL_OK;
    {
        const py::gil_scoped_release others;
        code = sorvel_sender_send(made, content.data(), content.size(), memory.ptr,
                                  static_cast<std::size_t>(memory.size), nullptr);
    }
    require(code);
    return samples;
}

py::bytes pack(std::string_view text) {
    std::array<std::uint8_t, SORVEL_PAYLOAD_BYTES> payload{};
    require(sorvel_pack(text.data(), text.size(), payload.data()));
    return {reinterpret_cast<const char*>(payload.data()), payload.size()};
}

py::str unpack(std::string_view payload) {
    if (payload.size() != SORVEL_PAYLOAD_BYTES)
        throw py::value_error("a payload has 13 bytes; these are " + std::to_string(payload.size()));
    std::array<char, SORVEL_MOST_TEXT_CHARACTERS + 1> text{};
    require(sorvel_unpack(reinterpret_cast<const std::uint8_t*>(payload.data()), text.data()));
    return text.data();
}

} // namespace

PYBIND11_MODULE(_sorvel, module) {
    module.doc() = "The compiled part of sorvel.";
    module.def("open", open);
    module.def("push", push);
    module.def("finish", [](const py::object& stream) { return told(streamIn(stream).finish()); });
    module.def("reset", [](const py::object& stream) { streamIn(stream).reset(); });
    module.def("send", send);
    module.def("pack", pack);
    module.def("unpack", unpack);
    module.attr("RECEIVERS") = py::dict(py::arg("classic") = int{SORVEL_RECEIVER_CLASSIC},
                                        py::arg("deep") = int{SORVEL_RECEIVER_DEEP},
                                        py::arg("messages") = int{SORVEL_RECEIVER_MESSAGES});
    module.attr("TEXTS") = int{SORVEL_CONTENT_TEXTS};
    module.attr("MESSAGES") = int{SORVEL_CONTENT_MESSAGES};
    module.attr("ALPHABET") = SORVEL_ALPHABET;
    module.attr("MOST_CHANNELS") = int{SORVEL_MOST_CHANNELS};
    module.attr("LOWEST_BAND_RATE_HZ") = int{SORVEL_LOWEST_BAND_RATE_HZ};
    module.attr("VERSION") = sorvel_version_string();
}
