#include "telemetry/Event.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

/// Any document is read or refused; what was read is written as a document that reads the same.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const sorvel::Environment environment;
    const std::string_view json(reinterpret_cast<const char*>(data), size);
    const auto first = Event::decode(json, environment);
    if (first.event.has_value() == !first.error.empty()) std::abort();
    if (!first.event) return 0;
    const auto document = first.event->encode();
    if (!document) std::abort(); // JSON has no infinite coordinates
    const auto second = Event::decode(*document, environment);
    if (second.event != first.event) std::abort();
    return 0;
}
