#include "platform/audio/cubeb_devices.hpp"
#include "platform/audio/cubeb_library.hpp"
#include "tests/live/run_program.hpp"
#include "tests/support/sound_server.hpp"

#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

using namespace sorvel;
using testing::HasSubstr;
using testing::MatchesRegex;
using Kind = SoundServer::Kind;

namespace {

class AnyServerPlays : public testing::TestWithParam<Kind> {};

/// Starts what plays for hours and waits until some of it has sounded.
const std::string kPlayForHours =
    "env --default-signal=INT '" SORVEL_PROGRAM "' send acme_1234 --play --repeat 9999 & p=$!\n"
    "until pactl list short sink-inputs | grep -q .; do sleep 0.05; done; sleep 0.5\n";

std::string pids(const SoundServer& server) {
    std::string all;
    for (const pid_t process : server.processes()) all += " " + std::to_string(process);
    return all;
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Kinds, AnyServerPlays, testing::Values(Kind::PulseAudio, Kind::PipeWire),
                         [](const auto& kind) {
                             return kind.param == Kind::PipeWire ? "PipeWire" : "PulseAudio";
                         });

TEST_P(AnyServerPlays, IsHeardAtEveryRateOnTheDefaultOutputAndOnANamedOne) {
    const SoundServer server(GetParam(), 44100);
    server.addSink("other", 48000);
    const Ran both = ran("sorvel listen --once --timeout 30 --device air.monitor >$HOME/air 2>&1 & p=$!\n"
                         "sorvel listen --once --timeout 30 --device other.monitor >$HOME/other 2>&1 & q=$!\n"
                         "sorvel send acme_air --play && sorvel send acme_other --play --device OTHER\n"
                         "echo $?; wait $p $q; cat $HOME/air $HOME/other");
    EXPECT_EQ(both.output.substr(0, 2), "0\n");
    EXPECT_THAT(both.output, HasSubstr("\nacme_air\n"));
    EXPECT_THAT(both.output, HasSubstr("\nacme_other\n"));
    EXPECT_THAT(both.output, testing::Not(HasSubstr("sorvel: ")));
}

TEST_P(AnyServerPlays, IsHeardByTheCommandWithTheDeepReceiver) {
    const SoundServer server(GetParam(), 48000);
    const Ran heard = ran("sorvel listen --receiver deep --prefix acme --once --timeout 30 --json & l=$!\n"
                          "sorvel send acme_1 --repeat 2 --gap 0.5 --play; wait $l");
    EXPECT_EQ(heard.status, 0) << heard.output;
    EXPECT_THAT(heard.output, HasSubstr("\"text\":\"acme_1\""));
    EXPECT_THAT(heard.output, HasSubstr("\"snr_db\":"));
}

TEST_P(AnyServerPlays, EndsByTheSignalThatComesAlsoWhileTheServerHangs) {
    SoundServer server(GetParam(), 48000);
    for (const auto& [signal, status] : {
             std::pair{"INT",  130},
             std::pair{"TERM", 143},
             std::pair{"HUP",  129}
    }) {
        const Ran ended = ran(kPlayForHours + "kill -" + signal + " $p; wait $p");
        EXPECT_EQ(ended.status, status) << ended.output;
        EXPECT_THAT(ended.output, testing::Not(HasSubstr("sorvel")));
    }
    const Ran ended =
        ran(kPlayForHours + "kill -STOP" + pids(server) + "; sleep 0.3; kill -TERM $p; wait $p");
    server.thaw();
    EXPECT_EQ(ended.status, 143) << ended.output;
}

TEST_P(AnyServerPlays, SaysInOneLineThatTheServerDiedOrHangs) {
    SoundServer server(GetParam(), 48000);
    const Ran hung = ran(kPlayForHours + "kill -STOP" + pids(server) + "; wait $p");
    server.thaw();
    EXPECT_EQ(hung.status, 2);
    EXPECT_THAT(hung.output, MatchesRegex("sorvel: the output \"air\" takes no sound: [^\n]*\n"));
    const Ran died = ran(kPlayForHours + "kill -KILL" + pids(server) + "; wait $p");
    EXPECT_EQ(died.status, 2);
    EXPECT_THAT(died.output, MatchesRegex("sorvel: the output \"air\" is gone: [^\n]*\n"));
    const Ran none = ran("sorvel send acme --play");
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.output, MatchesRegex("sorvel: no sound output found: [^\n]*\n"));
}

TEST(LivePlayback, ShowsItsProgressOnATerminalAndWarnsOfARateThatCannotCarryTheBand) {
    const SoundServer server(Kind::PulseAudio, 32000);
    const Ran shown =
        ran("script -qec \"'" SORVEL_PROGRAM "' send acme_1 --repeat 2 --gap 0.2 --play\" /dev/null");
    EXPECT_EQ(shown.status, 0);
    EXPECT_THAT(shown.output, HasSubstr("sorvel: air: 32000 Hz cannot carry"));
    EXPECT_THAT(shown.output, HasSubstr("set the output to 48000 Hz"));
    EXPECT_THAT(shown.output, HasSubstr("playing 1 of 2 on air: 0 of 7 s"));
    EXPECT_THAT(shown.output, HasSubstr("playing 2 of 2 on air: 6 of 7 s"));
    EXPECT_TRUE(shown.output.ends_with("\r\033[K")) << "nothing of it is left";
    const Ran wrong = ran("sorvel send acme --play --device USB");
    EXPECT_EQ(wrong.status, 2);
    EXPECT_THAT(wrong.output, MatchesRegex("sorvel: no output is called \"USB\": [^\n]*\n"));
}

// A file stands in for a loudspeaker, and takes sound faster than anybody could play it.
TEST(LivePlayback, WithoutAServerItFillsBothChannelsOfTheDevice) {
    const SoundServer notRunning;
    const TemporaryFolder folder;
    folder.write("asound.conf", "pcm.nowhere { type null }\n"
                                "pcm.!default { type plug slave.pcm { type file file " +
                                    folder.path().string() + "/played format raw slave.pcm nowhere } }\n");
    ::setenv("ALSA_CONFIG_PATH", (folder.path() / "asound.conf").c_str(), 1);
    const std::vector<OutputDevice> devices = outputDevices();
    ASSERT_EQ(devices.size(), 1U);
    EXPECT_TRUE(devices[0].isDefault);
    EXPECT_EQ(devices[0].playbackRate_hz, 48000);
    const Ran sent = ran("sorvel send acme_1 --play");
    EXPECT_EQ(sent.status, 0) << sent.output;
    const std::string played = folder.read("played");
    std::vector<float> samples(played.size() / sizeof(float));
    std::memcpy(samples.data(), played.data(), samples.size() * sizeof(float));
    std::size_t sounding = 0, different = 0;
    for (std::size_t at = 0; at + 1 < samples.size(); at += 2) {
        if (samples[at] != 0.0F) ++sounding;
        if (samples[at] != samples[at + 1]) ++different;
    }
    EXPECT_GT(sounding, 140'000U); // of 3.26 s at 48 kHz
    EXPECT_EQ(different, 0U);
}

TEST(AlsaOutputs, AreTheLinesOfTheTableThatPlay) {
    std::istringstream table("00-00: ALC257 Analog : ALC257 Analog : playback 1 : capture 1\n"
                             "00-03: HDMI 0 : HDMI 0 : playback 1\n"
                             "02-01: USB Audio : USB Audio #1 : capture 1\n");
    const auto outputs = alsaDevices(table, "playback");
    ASSERT_EQ(outputs.size(), 2U);
    EXPECT_EQ(outputs[1].name + " " + outputs[1].description, "plughw:0,3 HDMI 0");
}
