#include "tests/tools/command_help.hpp"

namespace {

using testing::ContainsRegex;
using testing::IsSubsetOf;

class Manual : public SorvelHelp {
protected:
    static std::string page(const std::string& command) {
        const std::string name = command.empty() ? "sorvel" : "sorvel-" + command;
        std::ostringstream text;
        text << std::ifstream(SORVEL_MANUAL "/" + name + ".1.scd").rdbuf();
        return text.str();
    }
    /// From its heading to the next.
    static std::string section(const std::string& page, const std::string& heading) {
        const std::size_t begin = page.find("\n# " + heading + "\n");
        return begin == std::string::npos ? "" : page.substr(begin, page.find("\n# ", begin + 1) - begin);
    }
};

TEST_F(Manual, HasAPageForEachCommandThatDescribesItsOptionsAndNoOthers) {
    static const std::regex kDescribed(R"(\n\*(?:-\w\*, \*)?(--[a-z-]+)\*)");
    static const std::regex kDescribedShort(R"(\n\*(-\w)\*, )");
    static const std::regex kMentioned(R"((--[a-z][a-z-]*))");
    Names any;
    for (const auto& [command, help] : help()) any.insert(help.longOptions.begin(), help.longOptions.end());
    ASSERT_GT(any.size(), 30U);
    for (const auto& [command, help] : help()) {
        SCOPED_TRACE("sorvel " + command);
        const std::string options = section(page(command), "OPTIONS");
        EXPECT_EQ(allMatches(options, kDescribed), help.longOptions);
        EXPECT_EQ(allMatches(options, kDescribedShort), help.shortOptions);
        EXPECT_THAT(allMatches(page(command), kMentioned), IsSubsetOf(any)); // in examples, say
        for (const auto& [option, values] : help.values)
            for (const std::string& value : values)
                EXPECT_THAT(options, ContainsRegex("\\*" + option + "\\*[^#]*[* ]" + value + "\\b"));
    }
    EXPECT_EQ(allMatches(section(page(""), "COMMANDS"), std::regex(R"(\n\*sorvel-(\w+)\*\(1\))")),
              commands());
}

} // namespace
