/// Keeps sound libraries off the user's terminal: on Linux their start-up writes some hundred lines
/// about devices that are not there, and the end of a stream three more.
#pragma once

#include <cstdio>

namespace sorvel {

/// While one of these lives, what is written to descriptor 2 is dropped, by every thread of the
/// process. So keep it around the calls that chatter, and nothing else. They may overlap.
class QuietStandardError {
public:
    QuietStandardError() noexcept;
    ~QuietStandardError();
    QuietStandardError(const QuietStandardError&) = delete;
    QuietStandardError& operator=(const QuietStandardError&) = delete;
};

/// While it lives, drops the lines about its own source that PortAudio writes to the C stream
/// `stderr`, told by how they begin; the rest passes unchanged. A thread that has been cancelled
/// ends with such a line: when a device fails before its first sound, PortAudio may print for ever,
/// and not heed it otherwise.
///
/// This puts another stream in the place of `stderr`, so it is for programs more than for
/// libraries: make it first in main. No effect where the C library does not allow it.
class HushedPortAudio {
public:
    HushedPortAudio() noexcept;
    ~HushedPortAudio();
    HushedPortAudio(const HushedPortAudio&) = delete;
    HushedPortAudio& operator=(const HushedPortAudio&) = delete;

private:
    std::FILE* m_before;
};

} // namespace sorvel
