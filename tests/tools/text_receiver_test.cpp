#include "telemetry/Event.hpp"
#include "telemetry/EventHub.hpp"
#include "tests/support/fake_platform.hpp"
#include "tools/text_receiver.hpp"
#include "tools/transmission.hpp"

#include <gtest/gtest.h>
#include <random>

namespace {

using namespace sorvel;

TEST(TextReceiver, DropsRepeatsByTheRecordingsTimeAndReportsThemByTheClocks) {
    EventHub::turnOn();
    EventHub::setTokenHost("token.test");
    EventHub::setEventHost("hub.test");
    fake::Platform fake;
    std::vector<double> times_s;
    TextReplay replay("acme", Repeats::Drop, fake.platform, [&](const Heard& heard) {
        EXPECT_EQ(heard.text, "acme_1");
        times_s.push_back(heard.time_s);
    });
    for (int count = 0; count < 2; ++count) {
        replay.begin();
        for (const double time_s : {3.0, 3.1, 4.0, 4.1, 4.2, 5.0, 9.5}) replay.take({"acme_1", time_s});
        replay.end(10.0);
    }
    // More than a second after one that counted, while the platform's clock stands still; and no text is a
    // repeat of the recording before, whose clock is ahead.
    EXPECT_EQ(times_s, (std::vector{3.0, 4.1, 9.5, 3.0, 4.1, 9.5}));
    std::size_t decoded = 0;
    for (const HttpRequest& request : fake.http->take()) {
        if (request.method != "POST") continue;
        const auto event = Event::decode(request.body, fake.platform).event;
        ASSERT_TRUE(event);
        EXPECT_EQ(event->UTCDateTime, "2025-06-12T09:41:07+00:00");
        if (event->EventType == "Decoded") ++decoded;
    }
    EXPECT_EQ(decoded, times_s.size());
}

std::vector<float> noise(std::size_t samples, std::uint32_t seed) {
    std::vector<float> sound(samples);
    std::minstd_rand random(seed);
    std::normal_distribution<float> level(0.0F, 0.001F);
    for (float& sample : sound) sample = level(random);
    return sound;
}

std::vector<Heard> heardIn(RecordingDecoder& decoder, std::vector<Heard>& heard, double rate_hz,
                           std::span<const float> sound, std::size_t piece) {
    heard.clear();
    Recording recording(decoder, rate_hz);
    for (; !sound.empty(); sound = sound.subspan(std::min(piece, sound.size())))
        recording.take(sound.first(std::min(piece, sound.size())));
    recording.finish();
    return heard;
}

// At 48 kHz a block that is no whole number of frames would deafen the modem for good, at the others some
// lose frames: what pieces a file is read in must not matter, nor must what was heard before.
TEST(RecordingDecoder, HearsAtEveryRateInPiecesOfAnySizeUpToTheLastSample) {
    std::vector<Heard> heard;
    RecordingDecoder decoder("ACME", [&](const Heard& each) { heard.push_back(each); });
    const std::vector<float> sent = transmission("acme_12", 50);
    for (const int rate_hz : {44100, 48000, 96000, 88200, 192000, 50000}) {
        std::vector<float> sound = noise(48000 + sent.size(), 5);
        for (std::size_t i = 0; i < sent.size(); ++i) sound[48000 + i] += 0.1F * sent[i];
        std::vector<float> converted(sound.size() * static_cast<std::size_t>(rate_hz) / 48000);
        RateConverter converter(48000, rate_hz);
        const std::size_t produced = converter.convert(sound, converted).produced;
        converter.flush(std::span(converted).subspan(produced));
        for (const std::size_t piece :
             {std::size_t{1}, std::size_t{1000}, std::size_t{9600}, converted.size()}) {
            SCOPED_TRACE(testing::Message() << rate_hz << " Hz in pieces of " << piece);
            const auto found = heardIn(decoder, heard, rate_hz, converted, piece);
            ASSERT_GE(found.size(), 1U);
            EXPECT_EQ(found.back().text, "acme_12");
            EXPECT_NEAR(found.back().time_s, 1.0 + 3.264, 0.15);
            EXPECT_LE(found.back().time_s, 1e-4 + static_cast<double>(converted.size()) / rate_hz);
        }
    }
    const auto others = noise(480000, 6);
    EXPECT_TRUE(heardIn(decoder, heard, 48000, others, 9600).empty());
    EXPECT_TRUE(heardIn(decoder, heard, 48000, {}, 1).empty());
}

} // namespace
