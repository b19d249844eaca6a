#include "payload/SHA256.hpp"
#include "tools/command.hpp"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

namespace sorvel {

Command addHash(CLI::App& sorvel) {
    const auto text = std::make_shared<std::string>();
    CLI::App* const app = sorvel.add_subcommand("hash", "Print the SHA-256 of a text, 64 hexadecimal digits");
    app->footer("Example:\n  sorvel hash abc");
    app->add_option("TEXT", *text, "may be empty: \"\"")->required();
    return {app, [text] {
                printLine(SHA256().hash(*text));
                return kDone;
            }};
}

} // namespace sorvel
