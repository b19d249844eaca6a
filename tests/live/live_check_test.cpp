#include "tests/live/run_program.hpp"
#include "tests/support/sound_server.hpp"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <numbers>

using nlohmann::json;
using testing::HasSubstr;
using testing::MatchesRegex;
using Kind = SoundServer::Kind;

namespace {

class AnyServerIsChecked : public testing::TestWithParam<Kind> {};

std::vector<float> whistle(double frequency_hz, double seconds) {
    std::vector<float> samples(static_cast<std::size_t>(48000 * seconds));
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<float>(
            0.05 * std::sin(2.0 * std::numbers::pi * frequency_hz * static_cast<double>(i) / 48000.0));
    return samples;
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Kinds, AnyServerIsChecked, testing::Values(Kind::PulseAudio, Kind::PipeWire),
                         [](const auto& kind) {
                             return kind.param == Kind::PipeWire ? "PipeWire" : "PulseAudio";
                         });

TEST_P(AnyServerIsChecked, AndIsGoodWhereWhatIsPlayedComesBack) {
    const SoundServer server(GetParam(), 48000);
    const Ran good = ran("sorvel check --json");
    EXPECT_EQ(good.status, 0) << good.output;
    const json told = json::parse(good.output);
    EXPECT_EQ(told["verdict"], "good");
    EXPECT_EQ(told["input"]["name"], "air.monitor");
    EXPECT_EQ(told["output"]["name"], "air");
    EXPECT_EQ(told["output"]["rate"], 48000);
    EXPECT_EQ(told["texts_heard"], 3);
    EXPECT_EQ(told["whistles"].size(), 0U);
    ASSERT_EQ(told["tones"].size(), 32U);
    EXPECT_EQ(told["tones"][0]["frequency"], 18000.0);
    for (const json& tone : told["response"]) // a quarter of full scale
        EXPECT_NEAR(tone["level_dbfs"].get<double>(), -12.0, 3.0) << tone;
}

TEST_P(AnyServerIsChecked, AndCannotCarryTheBandAt32000Hz) {
    const SoundServer server(GetParam(), 32000);
    for (const std::string options : {"", " --listen-only"}) {
        const Ran low = ran("sorvel check" + options);
        EXPECT_EQ(low.status, 1);
        EXPECT_THAT(low.output, HasSubstr("verdict   cannot carry the band\n"));
        EXPECT_THAT(low.output,
                    HasSubstr("air.monitor: 32000 Hz cannot carry 18 to 19.5 kHz: set the input"));
    }
}

TEST_P(AnyServerIsChecked, AndAWhistleIsNamed) {
    const SoundServer server(GetParam(), 48000);
    for (const auto& [options, frequency_hz, level] : {
             std::tuple{" --listen-only", 18900.0, "disturbed"},
             std::tuple{"",               19210.0, "disturbed"}
    }) {
        const auto player = server.play(whistle(frequency_hz, 40.0), 48000);
        ran("until pactl list short sink-inputs | grep -q .; do sleep 0.05; done; sleep 0.5");
        const Ran disturbed = ran(std::string("sorvel check --json") + options);
        EXPECT_EQ(disturbed.status, 1);
        const json told = json::parse(disturbed.output);
        EXPECT_EQ(told["verdict"], level);
        ASSERT_EQ(told["whistles"].size(), 1U) << disturbed.output;
        EXPECT_NEAR(told["whistles"][0]["frequency"].get<double>(), frequency_hz, 20.0);
        EXPECT_THAT(disturbed.output, HasSubstr("a whistle at " + std::to_string(std::lround(frequency_hz))));
    }
}

TEST(LiveCheck, SaysInOneLineWhatCannotBeUsedAndEndsByASignal) {
    SoundServer server(Kind::PulseAudio, 48000);
    for (const auto& [options, hint] : {
             std::pair{"--device USB",                      "no input is called \"USB\""            },
             std::pair{"--output-device USB",               "no output is called \"USB\""           },
             std::pair{"--listen-only --output-device air", "--listen-only excludes --output-device"},
             std::pair{"--device ''",                       "the name of the input is empty"        },
             std::pair{"--volume 0",                        "--volume"                              }
    }) {
        const Ran wrong = ran(std::string("sorvel check ") + options);
        EXPECT_EQ(wrong.status, 2) << options;
        EXPECT_THAT(wrong.output, MatchesRegex("sorvel: [^\n]*\n"));
        EXPECT_THAT(wrong.output, HasSubstr(hint));
    }
    const std::string starting = "'" SORVEL_PROGRAM "' check & p=$!\n"
                                 "until pactl list short sink-inputs | grep -q .; do sleep 0.05; done\n"
                                 "sleep 0.5; ";
    EXPECT_EQ(ran(starting + "kill -TERM $p; wait $p").status, 143);
    std::string pids;
    for (const pid_t process : server.processes()) pids += " " + std::to_string(process);
    const Ran died = ran(starting + "kill -KILL" + pids + "; wait $p");
    EXPECT_EQ(died.status, 2);
    // A slow machine may not have opened the input by then.
    EXPECT_THAT(died.output,
                MatchesRegex("sorvel: (the (in|out)put \"air[^\"]*\" is gone|no sound input found): "
                             "[^\n]*\n"));
    EXPECT_THAT(ran("sorvel check --listen-only").output, HasSubstr("no sound input found"));
}
