#pragma once

#include <cstdint>
#include <string>

/// The listener's way into the modem: one receiver of texts, for 16-bit mono samples at 96 kHz.
///
///     CPP_wrapper bridge;
///     bridge.InitSorvelWave();
///     char text[15];
///     std::int32_t length = bridge.Decode(samples, 19200, text, "acme");   // for every 100 ms
///
/// The object is empty. The receiver belongs to the process and is shared by all objects: the one
/// that `InitSorvelWave` made last.
class CPP_wrapper {
public:
    /// Makes a receiver and has every object use it from now on. It is never freed, and a process
    /// has room for four modem instances: from the fifth on `Decode` answers -1, after one line on
    /// the modem's log stream.
    ///
    /// Thread: not while another thread makes or frees a modem instance. Allocates some 10 MiB.
    void InitSorvelWave();

    /// Hands over captured samples and takes the next text that begins with `prefix`.
    ///
    /// Hand over blocks of 9600 samples (100 ms). Others work too, but after some the modem drops
    /// part of the sound: see ggwave_decode.
    ///
    /// @param waveform       16-bit mono samples at 96 kHz; may be null if the size is 0
    /// @param waveformSize   bytes, an even number
    /// @param payloadBuffer  room for at least 15 characters; receives the text, not terminated
    /// @param prefix         compared byte for byte, up to a NUL if it has one. Received texts are
    ///                       lower case, so give it so. Empty: every text, and "ERROR" for a damaged
    ///                       one
    /// @return characters written; 0: nothing yet; -1: a text with another beginning, or no receiver
    ///
    /// Thread: one call at a time in the process, as all objects share the receiver. Neither
    /// allocates nor locks while nothing is received.
    std::int32_t Decode(const void* waveform, std::int32_t waveformSize, void* payloadBuffer,
                        const std::string& prefix);
};
