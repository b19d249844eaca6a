#include "payload/encoding.hpp"
#include "sdk/CPP_wrapper.hpp"
#include "tests/support/allocation_count.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/transmissions.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

/// A text as the listener captures it: 96 kHz, 16 bits, whole blocks of 100 ms.
Bytes captured(const std::string& text) {
    std::string payload(13, '\0');
    compressString(text, payload.data());
    ggwave_Parameters parameters = fixedLength();
    parameters.sampleRateOut = 96000;
    Samples sound = transmission(payload, parameters) + silence(9600);
    sound.resize((sound.size() + 9599) / 9600 * 9600);
    return stored(sound, GGWAVE_SAMPLE_FORMAT_I16);
}

/// The first text that begins with `prefix`.
std::string heard(CPP_wrapper& bridge, const Bytes& sound, const std::string& prefix) {
    std::array<char, 256> text{};
    for (std::size_t at = 0; at < sound.size(); at += 19200) {
        const int length = bridge.Decode(sound.data() + at, 19200, text.data(), prefix);
        if (length > 0) return std::string(text.data(), static_cast<std::size_t>(length));
    }
    return "";
}

struct Bridge : testing::Test {
    ~Bridge() override {
        GGWave::setLogFile(nullptr); // not every slot is taken
        for (int id = 0; id < 4; ++id) ggwave_free(id);
        GGWave::setLogFile(stderr);
    }
};

TEST_F(Bridge, HearsTextsWithItsPrefixAndAllocatesNothing) {
    CPP_wrapper bridge;
    bridge.InitSorvelWave();
    const Bytes sound = captured("acme_1234");
    const std::string prefix = "acme", other = "umbrella";
    std::array<char, 256> text{};
    int longest = 0;
    const AllocationCount count;
    for (std::size_t at = 0; at < sound.size(); at += 19200)
        longest = std::max<int>(longest, bridge.Decode(sound.data() + at, 19200, text.data(), prefix));
    EXPECT_EQ(count.total(), 0U);
    EXPECT_EQ(std::string(text.data()), "acme_1234");
    EXPECT_EQ(longest, 9);
    EXPECT_EQ(heard(bridge, sound, other), "");
    EXPECT_EQ(heard(bridge, sound, "acme_12"), "acme_1234");
}

TEST_F(Bridge, SharesTheInstanceMadeLastUntilNoneIsLeft) {
    LogCapture log;
    CPP_wrapper first, second;
    for (int made = 0; made < 4; ++made) second.InitSorvelWave();
    EXPECT_EQ(heard(first, captured("shared"), "shared"), "shared");
    second.InitSorvelWave(); // the fifth
    EXPECT_THAT(log.take(), testing::HasSubstr("reached maximum number of instances (4)"));
    std::array<char, 256> text{};
    EXPECT_EQ(first.Decode(text.data(), 256, text.data(), "acme"), -1);
    EXPECT_EQ(log.take(), "Invalid GGWave instance -1\n");
}

TEST_F(Bridge, RefusesHalfASampleAndHearsOn) {
    LogCapture log;
    CPP_wrapper bridge;
    bridge.InitSorvelWave();
    log.take();
    const Bytes sound = captured("acme_1234");
    std::array<char, 256> text{};
    EXPECT_LT(bridge.Decode(sound.data(), 19199, text.data(), "acme"), 1);
    EXPECT_THAT(log.take(), testing::HasSubstr("not multiple of sample size"));
    EXPECT_EQ(heard(bridge, sound, "acme"), "acme_1234");
}

} // namespace
