#include "telemetry/Event.hpp"
#include "telemetry/EventHub.hpp"
#include "tests/support/fake_platform.hpp"
#include "tools/text_receiver.hpp"

#include <gtest/gtest.h>

namespace {

using namespace sorvel;

TEST(TextReceiver, DropsRepeatsByTheRecordingsTimeAndReportsThemByTheClocks) {
    EventHub::turnOn();
    EventHub::setTokenHost("token.test");
    EventHub::setEventHost("hub.test");
    fake::Platform fake;
    std::vector<double> times_s;
    TextReceiver receiver("acme", Repeats::Drop, fake.platform,
                          [&](const Heard& heard) { times_s.push_back(heard.time_s); });
    fake.decoder->hears("acme"); // in every block
    for (int count = 0; count < 2; ++count) {
        Recording recording(receiver, 96000);
        recording.take(std::vector<float>(10 * 96000));
        recording.finish();
    }
    // One each second and a block, while the platform's clock stands still.
    ASSERT_GE(times_s.size(), 2 * 9U);
    EXPECT_LE(times_s.size(), 2 * 14U);
    EXPECT_NEAR(times_s[1] - times_s[0], 1.1, 0.11);
    int restarts = 0;
    for (std::size_t at = 1; at < times_s.size(); ++at) restarts += times_s[at] < times_s[at - 1] ? 1 : 0;
    EXPECT_EQ(restarts, 1);
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

} // namespace
