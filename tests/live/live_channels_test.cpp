#include "tests/live/run_program.hpp"
#include "tests/support/sound_server.hpp"
#include "tests/support/transmissions.hpp"
#include "tools/transmission.hpp"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <future>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

using nlohmann::json;
using Kind = SoundServer::Kind;

namespace {

class AnyServerHasChannels : public testing::TestWithParam<Kind> {};

/// On the left noise alone, 15 dB over the tones within their band, which so also hides them in the sum;
/// on the right the text, and again for a machine that loses the first.
std::vector<float> noiseBeside(const std::string& text) {
    constexpr float kNoise = 0.11F;
    const Samples sent = silence(12000) + sorvel::transmission(text, 2) + silence(24000);
    const Samples hidden = noise(2 * sent.size(), kNoise, 5);
    std::vector<float> both;
    both.reserve(2 * hidden.size());
    for (std::size_t i = 0; i < hidden.size(); ++i) {
        both.push_back(hidden[i]);
        both.push_back(0.5F * sent[i % sent.size()]);
    }
    return both;
}

/// Seconds since 1970 of "2026-11-25T09:41:07.123+05:30"; none is 0.
double seconds(const std::string& at) {
    std::tm day{};
    double second = 0.0;
    int hours = 0, minutes = 0;
    if (std::sscanf(at.c_str(), "%d-%d-%dT%d:%d:%lf+%d:%d", &day.tm_year, &day.tm_mon, &day.tm_mday,
                    &day.tm_hour, &day.tm_min, &second, &hours, &minutes) != 8)
        return 0.0;
    day.tm_year -= 1900;
    day.tm_mon -= 1;
    return static_cast<double>(::timegm(&day)) + second - 3600.0 * hours - 60.0 * minutes;
}

double now() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Kinds, AnyServerHasChannels, testing::Values(Kind::PulseAudio, Kind::PipeWire),
                         [](const auto& kind) {
                             return kind.param == Kind::PipeWire ? "PipeWire" : "PulseAudio";
                         });

TEST_P(AnyServerHasChannels, OfWhichTheBetterIsHeardAndToldWithTheTimeOfDay) {
    const SoundServer server(GetParam(), 48000);
    server.addSink("pair", 48000, 2);
    const double before = now();
    std::future<Ran> listening = std::async(std::launch::async, [] {
        return ran(
            "export TZ=IST-05:30\n"
            "sorvel listen --device pair.monitor --channel 1 --timeout 60 >$HOME/left 2>$HOME/errors & l=$!\n"
            "sorvel listen --device pair.monitor --once --timeout 30 --json 2>$HOME/errors; s=$?\n"
            "{ kill -TERM $l; wait $l; } 2>/dev/null; cat $HOME/left; exit $s");
    });
    ran("for i in $(seq 400); do [ $(pactl list short source-outputs | wc -l) -ge 2 ] && break; sleep 0.05; "
        "done");
    const SoundServer::Player player(server, noiseBeside("acme_1"), 48000, "pair", 2);
    const Ran heard = listening.get();
    const double after = now();
    ASSERT_EQ(heard.status, 0) << heard.output;
    const json told = json::parse(heard.output, nullptr, false);
    ASSERT_TRUE(told.is_object()) << "more than one line: " << heard.output;
    EXPECT_EQ(told["text"], "acme_1");
    EXPECT_EQ(told["file"], "pair.monitor");
    const std::string at = told["at"];
    EXPECT_TRUE(at.ends_with("+05:30")) << at;
    EXPECT_GT(seconds(at), before) << at;
    EXPECT_LT(seconds(at), after) << at;
}
