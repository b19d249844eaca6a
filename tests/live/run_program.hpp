// The built program in the environment that a SoundServer has set.
#pragma once

#include <array>
#include <cstdio>
#include <string>
#include <sys/wait.h>

struct Ran {
    int status = -1;    ///< of the shell: 128 and the signal that ended the last command
    std::string output; ///< of both kinds
};

/// Runs a shell command, in which "sorvel" is the program.
inline Ran ran(const std::string& command) {
    std::FILE* const pipe =
        ::popen(("exec 2>&1; sorvel() { '" SORVEL_PROGRAM "' \"$@\"; }\n" + command).c_str(), "r");
    Ran result;
    if (pipe == nullptr) return result;
    std::array<char, 4096> piece{};
    while (const std::size_t n = std::fread(piece.data(), 1, piece.size(), pipe))
        result.output.append(piece.data(), n);
    const int status = ::pclose(pipe);
    if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
    return result;
}
