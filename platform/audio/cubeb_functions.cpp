#include "platform/audio/cubeb_functions.hpp"

namespace sorvel {

CubebFunctions::CubebFunctions(const SharedLibrary& library) {
    library.find(init, "cubeb_init");
    library.find(destroy, "cubeb_destroy");
    library.find(get_backend_id, "cubeb_get_backend_id");
    library.find(enumerate_devices, "cubeb_enumerate_devices");
    library.find(device_collection_destroy, "cubeb_device_collection_destroy");
    library.find(stream_init, "cubeb_stream_init");
    library.find(stream_destroy, "cubeb_stream_destroy");
    library.find(stream_start, "cubeb_stream_start");
    library.find(stream_stop, "cubeb_stream_stop");
}

const CubebFunctions& cubebFunctions() {
    static const CubebFunctions functions(SharedLibrary("libcubeb.so.0", "libcubeb0"));
    return functions;
}

} // namespace sorvel
