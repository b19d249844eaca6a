// What `sorvel --help` tells, which the manual and the completions must not differ from.
#pragma once

#include "tests/tools/run_sorvel.hpp"

#include <map>
#include <regex>
#include <set>
#include <string>

using Names = std::set<std::string>;

struct CommandHelp {
    Names longOptions;                   ///< "--output"
    Names shortOptions;                  ///< "-o"
    std::map<std::string, Names> values; ///< of options that take one of a few: "--receiver"
};

inline Names allMatches(const std::string& text, const std::regex& expression, std::size_t group = 1) {
    Names found;
    for (std::sregex_iterator match(text.begin(), text.end(), expression); match != std::sregex_iterator();
         ++match)
        found.insert((*match)[group].str());
    return found;
}

class SorvelHelp : public Sorvel {
protected:
    SorvelHelp() {
        static const std::regex kOption(R"(^ +(?:(-\w),)?(--[a-z-]+)(?: [A-Z]+(?::\{([^}]*)\})?)?.*)");
        const std::string all = shell("sorvel --help").out;
        const std::size_t list = all.find("\nSubcommands:\n");
        const std::string commands = all.substr(list, all.find("\n\n", list) - list);
        for (const std::string& name : allMatches(commands, std::regex(R"(\n  (\w+) )"))) m_help[name];
        m_help[""];
        for (auto& [name, help] : m_help) {
            std::istringstream lines(shell("sorvel " + name + " --help").out);
            std::smatch match;
            for (std::string line; std::getline(lines, line);) {
                if (!std::regex_match(line, match, kOption)) continue;
                help.longOptions.insert(match[2]);
                if (match[1].matched) help.shortOptions.insert(match[1]);
                if (match[3].matched)
                    help.values[match[2]] = allMatches(match[3].str(), std::regex("([^,]+)"));
            }
        }
    }

    /// By the subcommand's name; "" is the command itself.
    const std::map<std::string, CommandHelp>& help() const { return m_help; }
    Names commands() const {
        Names names;
        for (const auto& [name, help] : m_help)
            if (!name.empty()) names.insert(name);
        return names;
    }

private:
    std::map<std::string, CommandHelp> m_help;
};
