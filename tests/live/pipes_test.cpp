// The README's lines for other audio programs, each run as it stands there.

#include "tests/live/run_program.hpp"
#include "tests/support/sound_server.hpp"
#include "tests/support/temporary_folder.hpp"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using testing::HasSubstr;

/// Those of its section "Pipes" that do, or do not, hear; without what explains them.
std::vector<std::string> pipes(bool hear) {
    std::ifstream readme(SORVEL_README);
    std::vector<std::string> lines;
    bool isInside = false;
    for (std::string line; std::getline(readme, line);) {
        if (line.starts_with("## ")) isInside = line == "## Pipes";
        const bool hears = line.find("| sorvel listen -") != std::string::npos;
        if (isInside && line.starts_with("    ") && hears == hear)
            lines.push_back(line.substr(4, line.find("  #") - 4));
    }
    return lines;
}

class Pipes : public testing::Test {
protected:
    Pipes() { write("asound.conf", "pcm.!default { type pulse }\n"); } // as desktops have it

    /// Runs a shell command in the folder of the test; "sorvel" is the program for shells within it, too.
    Ran inFolder(const std::string& command) const {
        const std::string programs = std::filesystem::path(SORVEL_PROGRAM).parent_path();
        return ran("cd '" + m_folder.path().string() +
                   "' && export ALSA_CONFIG_PATH=$PWD/asound.conf PATH='" + programs + "':$PATH\n" + command);
    }
    void write(const std::string& file, const std::string& content) const { m_folder.write(file, content); }
    std::string content(const std::string& file) const { return m_folder.read(file); }

private:
    const SoundServer m_server{SoundServer::Kind::PipeWire, 48000};
    const TemporaryFolder m_folder;
};

} // namespace

TEST_F(Pipes, OfTheReadmeHearWhatIsPlayedOnPipeWire) {
    const std::string make =
        "sorvel send acme_1234 -o talk.wav && ffmpeg -v error -i talk.wav -c:a flac talk.mkv";
    ASSERT_EQ(inFolder(make).output, "");
    const std::vector<std::string> lines = pipes(true);
    ASSERT_GE(lines.size(), 5U);
    // All at once, each ended by what it hears; the sender plays until then.
    std::string command = "env sorvel send acme_1234 --play --repeat 8 --gap 0.3 & sender=$!\n";
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string number = std::to_string(i);
        write("line" + number, lines[i]);
        command += "timeout 30 sh line" + number + " >heard" + number + " & hearing=\"$hearing $!\"\n";
    }
    const Ran all = inFolder(command + "wait $hearing; kill $sender");
    for (std::size_t i = 0; i < lines.size(); ++i)
        EXPECT_EQ(content("heard" + std::to_string(i)), "acme_1234\n") << lines[i] << "\n" << all.output;
}

TEST_F(Pipes, OfTheReadmeArePlayedAndHeardOnPipeWire) {
    const std::vector<std::string> lines = pipes(false);
    ASSERT_GE(lines.size(), 2U);
    for (const std::string& line : lines) {
        const std::string play =
            "while kill -0 $! && ! grep -q started heard; do sleep 0.1; done\n" + line + "\nwait; cat heard";
        const Ran heard = inFolder("sorvel listen --once --timeout 15 >heard 2>&1 &\n" + play);
        EXPECT_THAT(heard.output, HasSubstr("acme_1234\n")) << line;
    }
}
