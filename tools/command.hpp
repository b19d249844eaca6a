/// What the subcommands of `sorvel` share: how they are called, how they end, and how they speak.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
class Option;
class Validator;
} // namespace CLI

namespace sorvel {

enum class StoredFormat : std::uint8_t;

enum ExitCode : std::uint8_t {
    kDone = 0,         // for a listening command: something was heard
    kNothingHeard = 1, // no error
    kFailed = 2        // usage, input or output
};

/// A subcommand as main sees it: `app` has parsed the options that `run` works by.
struct Command {
    CLI::App* app;
    std::function<int()>
        run; ///< answers an ExitCode, or throws an exception whose text is one line for the user
};

Command addSend(CLI::App& sorvel);
Command addListen(CLI::App& sorvel);
Command addCheck(CLI::App& sorvel);
Command addInspect(CLI::App& sorvel);
Command addDemo(CLI::App& sorvel);
Command addDevices(CLI::App& sorvel);
Command addHash(CLI::App& sorvel);

/// The demonstration with its defaults.
int runDemo();

/// A mistake in how the command was called; one line.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A --format option that takes the names of `formats`. What `help` says is followed by these names.
CLI::Option* addFormat(CLI::App& app, StoredFormat& format, const std::vector<StoredFormat>& formats,
                       const std::string& help);

/// A number of seconds, 0 to `most`: of what reads as a number, not the one that is none.
CLI::Validator seconds(double most);
/// A value that is not empty, which mostly is a shell's variable that was not set.
CLI::Validator given(const std::string& what);

/// What no received text can begin with would be waited for in vain.
/// @throws UsageError, which names what is wrong with it
void checkPrefix(const std::string& prefix);

/// Writes a line to standard output at once, so that it does not wait in a pipe for the next one.
/// @throws OutputClosed when its reader is gone, std::runtime_error when it cannot be written
void printLine(std::string_view line);

/// "sorvel: " and the text on standard error. What could break the line or drive a terminal shows
/// as '?'.
void printError(std::string_view text);

/// A line on standard error that is written over again and again, when that is a terminal; else nothing.
/// It is cut where the terminal's ends, beyond which it could not be written over.
class StatusLine {
public:
    StatusLine();
    ~StatusLine();
    StatusLine(const StatusLine&) = delete;
    StatusLine& operator=(const StatusLine&) = delete;

    /// Shows `text`, but no more than ten times a second.
    void show(const std::function<std::string()>& text);
    void clear();
    std::size_t columns() const; ///< of the terminal now; 80 where it does not say

private:
    struct State;
    std::unique_ptr<State> m_state; // null: no terminal
};

} // namespace sorvel
