#include "platform/files/audio_file.hpp"
#include "telemetry/Event.hpp"
#include "telemetry/EventHub.hpp"
#include "tests/support/fake_platform.hpp"
#include "tests/tools/run_sorvel.hpp"
#include "tools/file_listening.hpp"
#include "tools/heard_line.hpp"
#include "tools/level_line.hpp"

#include <chrono>
#include <ctime>

namespace {

using testing::HasSubstr;

class ManyFiles : public Sorvel {
protected:
    /// `count` recordings, of which each sixth is silent, damaged, missing, of another rate, or a pipe's.
    void record(int count) {
        for (int i = 0; i < count; ++i) {
            const std::string n = std::to_string(i);
            ASSERT_EQ(shell("sorvel send text_" + n + " --repeat 2 --gap 0 --rate " +
                            (i % 6 == 3 ? "44100" : "48000") + " -o " + n + ".wav")
                          .status,
                      0);
            if (i % 6 == 1) sox("-n -r 48000 " + n + ".wav trim 0 3");
            if (i % 6 == 2) {
                sox(n + ".wav " + n + ".flac");
                const std::string flac = content(n + ".flac");
                write(n + ".wav", flac.substr(0, flac.size() * 3 / 4));
            }
            if (i % 6 == 4) fs::remove(folder() + "/" + n + ".wav");
            files += i % 6 == 5 ? " -" : " " + n + ".wav";
        }
    }
    std::string files;
};

TEST_F(ManyFiles, HeardAtOnceGiveWhatTheyGiveOneByOne) {
    record(14);
    ASSERT_EQ(shell("sorvel send --message m --repeat 3 -o m.wav && cp m.wav n.wav").status, 0);
    for (const std::string& arguments : std::vector<std::string>{
             files, files + " --json --all", files + " --json --receiver deep", files + " --prefix text_1",
             files + " --once --prefix text_8", files + " --timeout 4", " m.wav n.wav --messages --json"}) {
        const std::string command = "sorvel listen" + arguments + " <5.wav --jobs ";
        const Outcome one = shell(command + "1"), many = shell(command + "3");
        EXPECT_NE(one.out, "") << arguments;
        EXPECT_EQ(many.out, one.out) << arguments;
        EXPECT_EQ(many.err, one.err) << arguments;
        EXPECT_EQ(many.status, one.status) << arguments;
    }
}

// A stream says at once what it hears, while files behind it are heard already; of a file that is
// under way as the signal comes, what was read.
TEST_F(ManyFiles, EndBySignalOrWhenTheirReaderIsGoneAsOneDoes) {
    ASSERT_EQ(shell("sorvel send acme -o a.wav && sox -R -V1 a.wav b.raw pad 0 5 && mkfifo p").status, 0);
    const Outcome signalled = shell("exec 9<>p; (trap '' INT; exec \"$SORVEL\" listen b.raw p b.raw b.raw "
                                    "--jobs 3 --raw --rate 48000) & s=$!\n"
                                    "cat b.raw >&9\n"
                                    "kill -TERM $s; wait $s; echo $?");
    EXPECT_EQ(signalled.out, "acme\nacme\n143\n");
    EXPECT_EQ(signalled.err, "");
    ASSERT_EQ(shell("sorvel send acme --repeat 600 -o long.wav").status, 0);
    const Outcome under =
        shell("(\"$SORVEL\" listen long.wav a.wav long.wav a.wav --jobs 2) >o & s=$!\n"
              "until [ -s o ]; do sleep 0.01; done; kill -TERM $s; wait $s; echo $?; uniq o");
    EXPECT_EQ(under.out, "143\nacme\n");
    const Outcome gone =
        shell("sorvel listen a.wav a.wav a.wav a.wav --jobs 2 | true; echo ${PIPESTATUS[0]}");
    EXPECT_EQ(gone.out + gone.err, "0\n");
}

// In opposite phase the channels' sum is silence; a noise as strong as the tones hides them in it.
TEST_F(ManyFiles, OfSeveralChannelsAreHeardInTheBestOrTheOneAskedFor) {
    ASSERT_EQ(shell("sorvel send acme_1 -o t.wav").status, 0);
    sox("t.wav a.wav pad 1 2");
    sox("-n -r 48000 n.wav synth 6.464 whitenoise gain -12");
    sox("-M a.wav -v -1 a.wav opposite.wav");
    sox("a.wav right.wav remix 0 1");
    sox("-M n.wav -v 0.3 a.wav noisy.wav");
    sox("-M n.wav n.wav n.wav n.wav n.wav n.wav -v 0.3 a.wav n.wav seventh.wav");
    ASSERT_EQ(shell("sorvel send --message hi -o t.wav").status, 0);
    sox("-M t.wav -v -1 t.wav message.wav");
    for (const auto& [file, heardIn] : {
             std::pair{"opposite", "1"},
             std::pair{"right",    "2"},
             std::pair{"noisy",    "2"},
             std::pair{"seventh",  "7"}
    }) {
        const std::string name = file, channels = name == "seventh" ? "8" : "2";
        sox(name + ".wav -b 16 -e signed-integer " + name + ".raw");
        for (const std::string receiver : {" --receiver classic", " --receiver deep"}) {
            const std::string listen = "sorvel listen --prefix acme" + receiver;
            const std::string raw = " - --raw --rate 48000 --channels " + channels;
            EXPECT_EQ(shell(listen + " " + name + ".wav").out, "acme_1\n") << file << receiver;
            EXPECT_EQ(shell("cat " + name + ".raw |" + listen + raw).out, "acme_1\n") << file << receiver;
            EXPECT_EQ(shell(listen + " " + name + ".wav --channel " + heardIn).out, "acme_1\n") << file;
        }
    }
    EXPECT_EQ(shell("sorvel listen message.wav --messages").out, "hi\n");
    EXPECT_EQ(shell("sorvel listen right.wav --channel 1").status, 1);
    const Outcome fewer = shell("sorvel listen right.wav seventh.wav --channel 7");
    EXPECT_EQ(fewer.out, "acme_1\n");
    EXPECT_EQ(fewer.status, 2);
    EXPECT_THAT(fewer.err, testing::StartsWith("sorvel: right.wav has 2 channels, no channel 7;"));
}

TEST_F(ManyFiles, SendTheirEventsInTheOrderOfTheFiles) {
    using namespace sorvel;
    EventHub::turnOn();
    EventHub::setTokenHost("token.test");
    EventHub::setEventHost("hub.test");
    ListenOptions options;
    options.prefix = "text";
    std::vector<std::string> expected;
    for (int i = 0; i < 9; ++i) {
        const std::string text = "text_" + std::to_string(i), repeats = std::to_string(9 - i);
        ASSERT_EQ(shell("sorvel send " + text + " --repeat " + repeats + " -o " + text + ".wav").status, 0);
        options.files.push_back(folder() + "/" + text + ".wav");
        expected.emplace_back("On");
        expected.insert(expected.end(), 9U - static_cast<unsigned>(i), text);
        expected.emplace_back("Off");
    }
    for (const int jobs : {1, 3}) {
        options.jobs = jobs;
        fake::Platform fake;
        testing::internal::CaptureStdout();
        EXPECT_EQ(FileListening(options, fake.platform).run(), kDone);
        EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::StartsWith("text_0\ntext_0\n"));
        std::vector<std::string> told;
        for (const HttpRequest& request : fake.http->take()) {
            if (request.method != "POST") continue;
            const auto event = Event::decode(request.body, fake.platform).event;
            ASSERT_TRUE(event);
            const std::string data = event->Data.value_or(""), type = event->EventType.value_or("");
            const std::size_t text = data.find("text_");
            if (type == "Decoded")
                told.push_back(data.substr(text, 6));
            else if (type != "Initialisation")
                told.push_back(type);
        }
        EXPECT_EQ(told, expected) << jobs;
    }
}

TEST(LevelLine, FitsAnyTerminalAndShowsTheLevelInEach) {
    using namespace sorvel;
    for (std::size_t columns = 0; columns < 120; ++columns) {
        const LevelShown shown{.level_dbfs = -120.0, .heard = 12345, .lost = 17};
        EXPECT_LT(levelLine(shown, columns).size(), std::max<std::size_t>(columns, 1)) << columns;
    }
    EXPECT_EQ(levelLine({.level_dbfs = -48.0, .heard = 3}, 60),
              "[############............] -48 dBFS at 18-19.5 kHz, 3 heard");
    EXPECT_EQ(levelLine({.level_dbfs = 0.0, .heard = 3}, 24), "[##############] 0 dBFS");
}

TEST(HeardLine, TellsTheTimeOfDayWithItsOffset) {
    const auto at = std::chrono::system_clock::time_point(std::chrono::milliseconds(1795622400007));
    for (const auto& [zone, told] : {
             std::pair{"UTC",       "+00:00"},
             std::pair{"IST-05:30", "+05:30"}
    }) {
        ::setenv("TZ", zone, 1);
        ::tzset();
        const std::string line = sorvel::jsonLine(sorvel::Heard{"a", 1.5}, "mic", at);
        EXPECT_THAT(line, testing::MatchesRegex(".*\"at\":\"2026-11-2[0-9]T[0-9:]+\\.007\\" +
                                                std::string(told) + "\".*"));
    }
    ::unsetenv("TZ");
}

} // namespace
