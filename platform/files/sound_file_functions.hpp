#pragma once

#include "platform/system/shared_library.hpp"

#include <sndfile.h>

namespace sorvel {

/// The functions of the library for sound files. It is opened with the first file, and brings along one for
/// each format that it reads.
struct SoundFileFunctions {
    explicit SoundFileFunctions(const SharedLibrary& library);

    decltype(&sf_open_fd) open_fd = nullptr;
    decltype(&sf_close) close = nullptr;
    decltype(&sf_error) error = nullptr;
    decltype(&sf_strerror) strerror = nullptr;
    decltype(&sf_error_number) error_number = nullptr;
    decltype(&sf_readf_float) readf_float = nullptr;
    decltype(&sf_write_raw) write_raw = nullptr;
};

/// @throws SharedLibraryError  at every call, when there is no such library; never after a call that did not
const SoundFileFunctions& soundFileFunctions();

} // namespace sorvel
