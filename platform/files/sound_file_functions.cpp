#include "platform/files/sound_file_functions.hpp"

namespace sorvel {

SoundFileFunctions::SoundFileFunctions(const SharedLibrary& library) {
    library.find(open_fd, "sf_open_fd");
    library.find(close, "sf_close");
    library.find(error, "sf_error");
    library.find(strerror, "sf_strerror");
    library.find(error_number, "sf_error_number");
    library.find(readf_float, "sf_readf_float");
    library.find(write_raw, "sf_write_raw");
}

const SoundFileFunctions& soundFileFunctions() {
    static const SoundFileFunctions functions(SharedLibrary("libsndfile.so.1", "libsndfile1"));
    return functions;
}

} // namespace sorvel
