// The built program, used as a user would: through a shell.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace fs = std::filesystem;

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

class Sorvel : public testing::Test {
protected:
    Sorvel() : m_folder((fs::temp_directory_path() / "sorvel-test-XXXXXX").string()) {
        if (mkdtemp(m_folder.data()) == nullptr) throw std::runtime_error("no temporary folder");
    }
    ~Sorvel() override { fs::remove_all(m_folder); }

    /// Runs a shell command in the test's own folder, in which "sorvel" is the program,
    /// and "$SORVEL" its file.
    Outcome shell(const std::string& command) const {
        const std::string line = "cd '" + m_folder +
                                 "' && export XDG_CONFIG_HOME=\"$PWD/.config\" SORVEL='" SORVEL_PROGRAM
                                 "' && sorvel() { \"$SORVEL\" \"$@\"; } && { " +
                                 command + "\n} >.out 2>.err </dev/null";
        const int status = std::system(("exec bash -c '" + quoted(line) + "'").c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, content(".out"), content(".err")};
    }
    void sox(const std::string& arguments) const {
        const Outcome outcome = shell("sox -R -V1 " + arguments);
        ASSERT_EQ(outcome.status, 0) << "sox " << arguments << ": " << outcome.err;
    }
    void write(const std::string& name, const std::string& bytes) const {
        std::ofstream(m_folder + "/" + name, std::ios::binary) << bytes;
    }
    std::string content(const std::string& name) const {
        std::ostringstream text;
        text << std::ifstream(m_folder + "/" + name, std::ios::binary).rdbuf();
        return text.str();
    }
    /// All, hidden ones too, but for what `shell` itself makes.
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(m_folder)) {
            const std::string name = entry.path().filename();
            if (name != ".out" && name != ".err" && name != ".config") names.push_back(name);
        }
        return names;
    }
    const std::string& folder() const { return m_folder; }

private:
    static std::string quoted(const std::string& text) {
        std::string result;
        for (const char c : text) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
        return result;
    }
    std::string m_folder;
};
