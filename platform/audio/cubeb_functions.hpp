#pragma once

#include "platform/system/shared_library.hpp"

#include <cubeb/cubeb.h>

namespace sorvel {

/// The sound library's functions. It is opened with the first look for an input or output, or at the
/// first start of a capture or of playing.
struct CubebFunctions {
    explicit CubebFunctions(const SharedLibrary& library);

    decltype(&cubeb_init) init = nullptr;
    decltype(&cubeb_destroy) destroy = nullptr;
    decltype(&cubeb_get_backend_id) get_backend_id = nullptr;
    decltype(&cubeb_enumerate_devices) enumerate_devices = nullptr;
    decltype(&cubeb_device_collection_destroy) device_collection_destroy = nullptr;
    decltype(&cubeb_stream_init) stream_init = nullptr;
    decltype(&cubeb_stream_destroy) stream_destroy = nullptr;
    decltype(&cubeb_stream_start) stream_start = nullptr;
    decltype(&cubeb_stream_stop) stream_stop = nullptr;
};

/// @throws SharedLibraryError  at every call, when there is no such library; never after a call that did not
const CubebFunctions& cubebFunctions();

} // namespace sorvel
