#include "payload/encoding.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/transmissions.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;

namespace {

/// Four slots, all empty again afterwards.
struct Instances : testing::Test {
    ~Instances() override {
        GGWave::setLogFile(nullptr);
        for (int id = 0; id < 4; ++id) ggwave_free(id);
        GGWave::setLogFile(stderr);
    }
};

TEST_F(Instances, AreFourAndReuseTheLowestFreeId) {
    LogCapture log;
    for (int id = 0; id < 4; ++id) EXPECT_EQ(ggwave_init(fixedLength()), id);
    EXPECT_EQ(ggwave_init(fixedLength()), -1);
    EXPECT_EQ(log.take(), "Failed to create GGWave instance - reached maximum number of instances (4)\n");
    ggwave_free(1);
    ggwave_free(1);
    EXPECT_EQ(log.take(), "Failed to free GGWave instance - invalid GGWave instance id 1\n");
    EXPECT_EQ(ggwave_init(fixedLength()), 1);
    ggwave_free(-1);
    ggwave_free(4);
    EXPECT_THAT(log.take(),
                HasSubstr("id -1\nFailed to free GGWave instance - invalid GGWave instance id 4\n"));
}

TEST_F(Instances, ThatDoNotExistAreRefusedByEveryCall) {
    LogCapture log;
    char buffer[256];
    for (const int id : {-1, 0, 4, 1 << 30}) {
        EXPECT_EQ(ggwave_encode(id, "x", 1, 12, 50, buffer, 1), -1);
        EXPECT_EQ(ggwave_decode(id, buffer, 2, buffer, ""), -1);
        EXPECT_EQ(ggwave_ndecode(id, buffer, 2, buffer, 256), -1);
        const std::string line = "Invalid GGWave instance " + std::to_string(id) + "\n";
        EXPECT_EQ(log.take(), line + line + line);
    }
    ggwave_setLogFile(nullptr);
    ggwave_free(9);
    EXPECT_EQ(log.take(), "");
}

TEST_F(Instances, HandOutDefaultsByValue) {
    ggwave_Parameters parameters = ggwave_getDefaultParameters();
    EXPECT_EQ(parameters.payloadLength, -1);
    EXPECT_EQ(parameters.soundMarkerThreshold, 3.0F);
    EXPECT_EQ(parameters.operatingMode, 6);
    parameters.payloadLength = 5;
    EXPECT_EQ(ggwave_getDefaultParameters().payloadLength, -1);
}

TEST_F(Instances, EncodeWhatAQueryAnnounces) {
    LogCapture log;
    const int id = ggwave_init(fixedLength());
    const int bytes = ggwave_encode(id, "hello", 5, 12, 50, nullptr, 1);
    EXPECT_EQ(bytes, 153 * 1024 * 4);
    EXPECT_EQ(ggwave_encode(id, "hello", 5, 12, 50, nullptr, 2), 153 * 1024);
    char buffer[16];
    EXPECT_EQ(ggwave_decode(id, buffer, 16, buffer, ""), -1); // the query left it queued
    EXPECT_EQ(log.take(), "Cannot decode while transmitting\nFailed to decode data - GGWave instance 0\n");
    Samples waveform(153 * 1024);
    EXPECT_EQ(ggwave_encode(id, "hello", 5, 12, 50, waveform.data(), 0), bytes);
    EXPECT_EQ(waveform, transmission("hello"));
    EXPECT_EQ(ggwave_encode(id, "hello", 5, 12, 101, waveform.data(), 0), -1);
    EXPECT_THAT(log.take(), HasSubstr("Failed to initialize Tx transmission for GGWave instance 0\n"));
    EXPECT_EQ(ggwave_encode(id, "", 0, 12, 50, waveform.data(), 0), -1);
    EXPECT_EQ(log.take(), "Failed to encode data - GGWave instance 0\n");
    EXPECT_EQ(ggwave_encode(id, "hello", 5, 12, 50, nullptr, 0), -1);
}

/// Makes instance 0 hear `packed` and hands its sound to a decode call.
template <class Decode>
int heard(const std::string& packed, Decode decode) {
    ggwave_Parameters parameters = fixedLength(static_cast<int>(packed.size()));
    const int id = ggwave_init(parameters);
    const Samples sound = transmission(packed, parameters);
    const int result = decode(id, sound.data(), static_cast<int>(sound.size() * sizeof(float)));
    std::array<char, 256> rest{};
    EXPECT_EQ(ggwave_ndecode(id, nullptr, 0, rest.data(), 256), 0); // taken, whatever the answer was
    ggwave_free(id);
    return result;
}

std::string packed(const std::string& text) {
    std::string payload(13, '\0');
    compressString(text, payload.data());
    return payload;
}

TEST_F(Instances, DecodeTextsThatBeginWithThePrefix) {
    LogCapture log;
    struct Case {
        const char* text;
        const char* prefix;
        int result;
    };
    for (const auto& [text, prefix, result] : {
             Case{"abcd12",          "abc",    6 },
             Case{"abcd12",          "abcd12", 6 },
             Case{"ab",              "abc",    -1},
             Case{"xabc",            "abc",    -1},
             Case{"abc",             "ABC",    -1},
             Case{"fifteen_chars15", "",       15},
             Case{"",                "",       0 }
    }) {
        std::string buffer(256, '?');
        EXPECT_EQ(heard(packed(text),
                        [&](int id, const void* sound, int bytes) {
                            return ggwave_decode(id, sound, bytes, buffer.data(), prefix);
                        }),
                  result)
            << text;
        const auto copied = static_cast<std::size_t>(std::max(0, result));
        EXPECT_EQ(buffer, std::string(text).substr(0, copied) + std::string(256 - copied, '?'));
    }
}

TEST_F(Instances, TellAPayloadWithoutATextByTheWordError) {
    std::string payload = packed("acme"), buffer(256, '?');
    payload[0] ^= 1;
    for (const auto& [bytes, prefix, result] : {
             std::tuple{payload, "", 5},
             std::tuple{payload, "acme", -1},
             std::tuple{std::string("\x01\x02\x03", 3), "", 5}
    }) { // shorter than a text
        EXPECT_EQ(heard(bytes,
                        [&, p = prefix](int id, const void* sound, int size) {
                            return ggwave_decode(id, sound, size, buffer.data(), p);
                        }),
                  result);
    }
    EXPECT_EQ(buffer.substr(0, 6), "ERROR?");
}

TEST_F(Instances, DecodeRawBytesIntoABufferOfTheirSize) {
    for (const auto& [room, result] : {
             std::pair{256, 13},
             std::pair{13,  13},
             std::pair{4,   -2},
             std::pair{-1,  -2}
    }) {
        std::string buffer(256, '?');
        const std::string payload("\0raw\xFF payload", 13);
        EXPECT_EQ(heard(payload,
                        [&, n = room](int id, const void* sound, int bytes) {
                            return ggwave_ndecode(id, sound, bytes, buffer.data(), n);
                        }),
                  result);
        EXPECT_EQ(buffer.substr(0, 13), result == 13 ? payload : std::string(13, '?'));
    }
    // Nowhere to put it: one line, and it is gone as in every other case.
    LogCapture log;
    char buffer[16];
    const std::string text = packed("acme");
    EXPECT_EQ(heard(text, [](int id, auto* s, int n) { return ggwave_ndecode(id, s, n, nullptr, 256); }), -1);
    EXPECT_EQ(heard(text, [](int id, auto* s, int n) { return ggwave_decode(id, s, n, nullptr, ""); }), -1);
    EXPECT_EQ(heard(text, [&](int id, auto* s, int n) { return ggwave_decode(id, s, n, buffer, nullptr); }),
              -1);
    EXPECT_EQ(log.take(), "Error: no payload buffer given for 13 received bytes\n"
                          "Error: no payload buffer given for the received text\n"
                          "Error: no prefix given for the received text\n");
    const int id = ggwave_init(fixedLength());
    char none = 0;
    EXPECT_EQ(ggwave_ndecode(id, nullptr, 0, &none, -1), -2);
    EXPECT_EQ(ggwave_ndecode(id, &none, -5, &none, 1), -1);
}

} // namespace
