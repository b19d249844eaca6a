// Each shell is asked what it would offer.

#include "tests/tools/command_help.hpp"

#include <functional>
#include <utility>

namespace {

using testing::IsEmpty;

const std::string kFolder = SORVEL_COMPLETIONS "/";

/// What is offered at the end of a line that begins with "sorvel ".
using Ask = std::function<Names(const std::string& line)>;

class Completions : public SorvelHelp {
protected:
    Names lines(const std::string& command) const {
        const Outcome outcome = shell(command);
        EXPECT_EQ(outcome.err, "") << command;
        return allMatches(outcome.out, std::regex("([^\n]+)"));
    }
    void expectAsInHelp(const Ask& offered) const {
        EXPECT_EQ(offered("sorvel "), commands());
        for (const auto& [command, help] : help()) {
            const std::string line = command.empty() ? "sorvel " : "sorvel " + command + " ";
            EXPECT_EQ(offered(line + "--"), help.longOptions) << line;
            for (const auto& [option, values] : help.values)
                EXPECT_EQ(offered(line + option + " "), values) << line << option;
        }
    }
    /// A command of this name that the shells find, with two devices.
    void placeDevices() const {
        write("sorvel", R"(#!/bin/sh
echo '{"name":"USB mic","description":"x","direction":"input"}'
echo '{"name":"speaker","description":"x","direction":"output"}'
)");
        ASSERT_EQ(shell("mkdir bin && mv sorvel bin && chmod +x bin/sorvel").status, 0);
    }
};

/// A word that is at hand but empty is the last one.
std::string wordsOf(const std::string& line) { return line.ends_with(' ') ? line + "''" : line; }

TEST_F(Completions, OfBashAreWhatTheHelpTells) {
    const Ask offered = [this](const std::string& line) {
        return lines("PATH=$PWD/bin:$PATH; source '" + kFolder + "sorvel.bash'; COMP_WORDS=(" +
                     wordsOf(line) +
                     "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _sorvel; printf '%s\\n' \"${COMPREPLY[@]}\"");
    };
    expectAsInHelp(offered);

    write("a song.wav", "");
    write("hall.flac", "");
    placeDevices();
    using Offer = std::pair<const char*, Names>;
    for (const auto& [line, expected] : {
             Offer{"sorvel lis",                    {"listen"}                 },
             Offer{"sorvel listen --rec",           {"--receiver"}             },
             Offer{"sorvel listen --receiver = d",  {"deep"}                   }, // as bash splits it
             Offer{"sorvel send --rate =",          {"44100", "48000", "96000"}},
             Offer{"sorvel listen --prefix a h",    {"hall.flac"}              },
             Offer{"sorvel inspect a",              {"a song.wav"}             },
             Offer{"sorvel send -o h",              {"hall.flac"}              },
             Offer{"sorvel send ",                  {}                         },
             Offer{"sorvel listen --prefix ",       {}                         },
             Offer{"sorvel listen --device ",       {"USB\\ mic"}              },
             Offer{"sorvel check --output-device ", {"speaker"}                },
    }) {
        EXPECT_EQ(offered(line), expected) << line;
    }
}

TEST_F(Completions, OfFishAreWhatTheHelpTells) {
    const Ask offered = [this](const std::string& line) {
        Names names;
        for (const std::string& found : lines("HOME=$PWD PATH=$PWD/bin:$PATH fish --no-config -c \"source '" +
                                              kFolder + "sorvel.fish'; complete -C '" + line + "'\""))
            names.insert(found.substr(0, found.find('\t'))); // its description
        return names;
    };
    expectAsInHelp(offered);

    write("hall.flac", "");
    placeDevices();
    EXPECT_EQ(offered("sorvel listen --prefix a h"), Names{"hall.flac"});
    EXPECT_EQ(offered("sorvel send x -o h"), Names{"hall.flac"});
    EXPECT_THAT(offered("sorvel send "), IsEmpty());
    EXPECT_EQ(offered("sorvel listen --device "), Names{"USB mic"});
    EXPECT_EQ(offered("sorvel send --play --device "), Names{"speaker"});
}

/// What the functions say to zsh's own, which are left out: they want a terminal.
TEST_F(Completions, OfZshAreWhatTheHelpTells) {
    write("ask.zsh", R"(command=$1
_arguments() { if [[ $1 == -C && -n $command ]]; then state=behind line=($command); else print -rl -- "$@"; fi }
_describe() { print -rl -- ${${(P)2}%%:*} }
source $2
[[ -n $command ]] || _sorvel_commands
)");
    static const std::regex kSpecification(R"((?:\([^)]*\))?(--[a-z-]+)=?\[.*?(?::\(([^)]*)\))?)");
    const Ask offered = [&](const std::string& line) {
        std::istringstream words(line);
        std::string word, command, option;
        words >> word >> command >> option;
        if (command == "--") std::swap(command, option);
        Names names;
        std::smatch match;
        for (const std::string& each : lines("zsh -f ask.zsh '" + command + "' '" + kFolder + "_sorvel'")) {
            const bool isOption = std::regex_match(each, match, kSpecification);
            if (isOption && option == "--") names.insert(match[1]);
            if (isOption && option == match[1]) names = allMatches(match[2], std::regex("([^ ]+)"));
            if (command.empty() && option.empty() && std::regex_match(each, std::regex("[a-z]+")))
                names.insert(each);
        }
        return names;
    };
    expectAsInHelp(offered);
}

} // namespace
