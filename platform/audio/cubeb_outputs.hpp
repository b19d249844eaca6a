/// The outputs of the machine's sound system, on a connection that CubebLibrary has made.
#pragma once

#include "platform/audio/cubeb_library.hpp"

#include <vector>

namespace sorvel {

/// Described as an input is; none is a monitor.
using CubebOutput = CubebInput;

/// The default one first, then by name.
/// @throws AudioDeviceError  when they cannot be listed
std::vector<CubebOutput> outputs(const CubebLibrary& library);

/// Opens an output for interleaved floats, as long as `library` lives. @return null: it cannot be opened
///
/// @param asDefault  whether the server may move the stream when another output becomes the default
CubebLibrary::Stream openOutput(const CubebLibrary& library, const CubebOutput& output, bool asDefault,
                                double rate_hz, std::uint32_t blockFrames,
                                const CubebLibrary::Callbacks& callbacks) noexcept;
bool opens(const CubebLibrary& library, const CubebOutput& output, double rate_hz) noexcept;

/// From here on the data callback is called. @return false: no sound can be given to it
bool startOutput(cubeb_stream* stream) noexcept;

} // namespace sorvel
