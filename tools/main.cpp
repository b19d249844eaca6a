#include "platform/files/audio_file.hpp"
#include "tools/command.hpp"
#include "tools/interruption.hpp"

#include <CLI/CLI.hpp>
#include <array>
#include <csignal>
#include <exception>
#include <sstream>
#include <string>

namespace {

constexpr const char* kFooter = "Examples:\n"
                                "  sorvel send \"acme_1234\" -o hello.wav\n"
                                "  sorvel listen hello.wav --prefix acme\n"
                                "  sorvel demo\n"
                                "'sorvel send --help' and so on tell more.";

/// One line in place of the parser's two; help and version are no errors.
int answer(const CLI::App& app, const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
        std::ostringstream text;
        app.exit(error, text, text);
        std::string lines = text.str();
        while (lines.ends_with('\n')) lines.pop_back();
        sorvel::printLine(lines);
        return sorvel::kDone;
    }
    const auto used = app.get_subcommands();
    const std::string name = used.empty() ? "sorvel" : "sorvel " + used.front()->get_name();
    sorvel::printError(std::string(error.what()) + " (see " + name + " --help)");
    return sorvel::kFailed;
}

int run(int argc, char** argv) {
    CLI::App app("Short texts over near-ultrasonic sound, 18 to 19.5 kHz.", "sorvel");
    app.footer(kFooter);
    app.set_version_flag("--version", "sorvel " SORVEL_VERSION, "Print the version and exit");
    app.require_subcommand(0, 1);
    app.get_formatter()->column_width(28);
    const std::array commands{sorvel::addSend(app),    sorvel::addListen(app), sorvel::addCheck(app),
                              sorvel::addInspect(app), sorvel::addDemo(app),   sorvel::addDevices(app),
                              sorvel::addHash(app)};
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return answer(app, error);
    }
    for (const sorvel::Command& command : commands)
        if (command.app->parsed()) return command.run();
    sorvel::printError(
        "say what to do: send, listen, check, inspect, devices, demo or hash (see sorvel --help)");
    return sorvel::kFailed;
}

} // namespace

int main(int argc, char** argv) {
    // A closed pipe then is an error of the write that meets it, whoever started this process.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN); // likewise a limit on the size of files
    try {
        return run(argc, argv);
    } catch (const sorvel::OutputClosed&) {
        return sorvel::kDone;
    } catch (const sorvel::Interrupted&) {
        sorvel::endBySignal();
    } catch (const std::exception& error) {
        sorvel::printError(error.what());
    }
    return sorvel::kFailed;
}
