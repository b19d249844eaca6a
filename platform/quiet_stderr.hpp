/// Keeps sound libraries off the user's terminal: on Linux their start-up writes some hundred lines about
/// devices that are not there, and the end of a stream three more.
#pragma once

namespace sorvel {

/// While one of these lives, what is written to descriptor 2 is dropped, by every thread of the process. So
/// keep it around the calls that chatter, and nothing else. They may overlap.
class QuietStandardError {
public:
    QuietStandardError() noexcept;
    ~QuietStandardError();
    QuietStandardError(const QuietStandardError&) = delete;
    QuietStandardError& operator=(const QuietStandardError&) = delete;
};

/// From now on drops the lines about its own source that PortAudio writes to the C stream `stderr`, told by
/// how they begin; the rest passes unchanged. This puts another stream in the place of `stderr`, so it is for
/// programs rather than for libraries: call it in main, before there are threads. No effect where the C
/// library does not allow it.
void hushPortAudio() noexcept;

} // namespace sorvel
