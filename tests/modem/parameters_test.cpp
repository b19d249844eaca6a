#include "modem/ggwave.h"
#include "tests/support/literal_transmitter.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/transmissions.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

/// Restores the process-wide tables, which every later test reads.
struct Protocols : testing::Test {
    ~Protocols() override {
        GGWave::Protocols::rx() = GGWave::Protocols::kDefault();
        GGWave::Protocols::tx() = GGWave::Protocols::kDefault();
    }
};

TEST_F(Protocols, HoldOneBuiltInRowThatOnlyNamedOnesJoin) {
    GGWave::Protocols table = GGWave::Protocols::kDefault();
    for (std::size_t id = 0; id < table.size(); ++id) EXPECT_EQ(table[id].enabled, id == 12) << id;
    EXPECT_STREQ(table[12].name, "[s] dt custom");
    EXPECT_EQ(sizeof(GGWave::Protocol), 16U);

    table.enableAll();
    EXPECT_FALSE(table[3].enabled);
    table.only(3);
    EXPECT_TRUE(table[3].enabled && !table[12].enabled);
    table.only(22); // outside: nothing is enabled, nothing overwritten
    for (const auto& row : table) EXPECT_FALSE(row.enabled);
}

TEST_F(Protocols, AnswerTheQueriesThatSizeTheMemory) {
    const GGWave modem(fixedLength());
    GGWave::Protocols table = GGWave::Protocols::kDefault();
    EXPECT_FLOAT_EQ(modem.bitFreq(table[12], 0), 18000.0F);
    EXPECT_FLOAT_EQ(modem.bitFreq(table[12], 15), 19406.25F);
    table[4] = {
        .name = "mono", .freqStart = 30, .framesPerTx = 20, .bytesPerTx = 3, .extra = 2, .enabled = true};
    table[5] = {
        .name = "none", .freqStart = 2, .framesPerTx = 0, .bytesPerTx = 0, .extra = 0, .enabled = true};
    EXPECT_EQ(modem.minFreqStart(table), 2);
    EXPECT_EQ(modem.minBytesPerTx(table), 0);
    EXPECT_EQ(modem.maxBytesPerTx(table), 3);
    EXPECT_EQ(modem.maxFramesPerTx(table, false), 40);
    EXPECT_EQ(modem.maxFramesPerTx(table, true), 9);
    EXPECT_EQ(modem.maxTonesPerTx(table), 3);
    table.disableAll();
    EXPECT_EQ(modem.minFreqStart(table), 1024);
    EXPECT_EQ(modem.maxBytesPerTx(table), 1);
    EXPECT_EQ(modem.maxFramesPerTx(table, false), 0);
}

TEST_F(Protocols, ReachOnlyInstancesMadeAfterwards) {
    GGWave before(fixedLength());
    ggwave_rxToggleProtocol(12, 0);
    ggwave_txProtocolSetFreqStart(12, 40000); // 16 bits, signed
    GGWave after(fixedLength());
    EXPECT_TRUE(before.rxProtocols()[12].enabled);
    EXPECT_FALSE(after.rxProtocols()[12].enabled);
    EXPECT_EQ(before.txProtocols()[12].freqStart, 384);
    EXPECT_EQ(after.txProtocols()[12].freqStart, 40000 - 65536);
    ggwave_rxToggleProtocol(-1, 1);
    ggwave_txProtocolSetFreqStart(22, 1);
}

TEST(Preparation, StartsWithNothingPending) {
    GGWave modem(fixedLength());
    ggvector<short> amplitude;
    ggvector<std::uint8_t> data;
    EXPECT_GT(modem.heapSize(), 0);
    EXPECT_EQ(modem.rxDataLength(), 0);
    EXPECT_EQ(modem.rxTakeData(data), 0);
    EXPECT_FALSE(modem.txTakeAmplitudeI16(amplitude));
    EXPECT_EQ(modem.txTones().size(), 0);
    EXPECT_FALSE(modem.txHasData());
    EXPECT_EQ(modem.rxProtocolId(), 22);
    EXPECT_EQ(modem.rxSamplesNeeded(), 1024);
    EXPECT_EQ(modem.encode(), 0U);
}

struct Refusal {
    const char* line;
    void (*spoil)(ggwave_Parameters&);
};

class RefusedParameters : public testing::TestWithParam<Refusal> {};

TEST_P(RefusedParameters, AreDescribedAndLeaveAnInstanceThatFailsSafely) {
    LogCapture log;
    ggwave_Parameters parameters = fixedLength();
    GetParam().spoil(parameters);
    GGWave modem(fixedLength()); // one that worked before: no view may dangle
    transmission(modem, "hello");
    EXPECT_FALSE(modem.prepare(parameters));
    EXPECT_THAT(log.take(), HasSubstr(GetParam().line));
    EXPECT_EQ(modem.heapSize(), 0);
    EXPECT_EQ(modem.txTones().size() + modem.rxSpectrum().size() + modem.rxData().size(), 0);
    EXPECT_FALSE(modem.init("hello", 12, 50));
    const std::array<float, 2048> samples{};
    EXPECT_FALSE(modem.decode(samples.data(), sizeof samples));
    EXPECT_EQ(modem.encode(), 0U);
    EXPECT_TRUE(modem.prepare(fixedLength()));
}

constexpr float kNan = std::numeric_limits<float>::quiet_NaN(), kInf = std::numeric_limits<float>::infinity();

INSTANTIATE_TEST_SUITE_P(
    , RefusedParameters,
    testing::Values(
        Refusal{"Invalid or unsupported capture sample format: 6\n", [](auto& p) { p.sampleFormatInp = 6; }},
        Refusal{"Invalid or unsupported playback sample format: 0\n", [](auto& p) { p.sampleFormatOut = 0; }},
        Refusal{"Invalid samples per frame: 1025, max: 1024\n", [](auto& p) { p.samplesPerFrame = 1025; }},
        Refusal{"Invalid samples per frame: 0, max: 1024\n", [](auto& p) { p.samplesPerFrame = 0; }},
        Refusal{"Invalid samples per frame: -2147483648, max", [](auto& p) { p.samplesPerFrame = INT_MIN; }},
        Refusal{"Error: capture sample rate (999 Hz) must be >= 1000 Hz\n",
                [](auto& p) { p.sampleRateInp = 999; }},
        Refusal{"Error: capture sample rate (96001 Hz) must be <= 96000 Hz\n",
                [](auto& p) { p.sampleRateInp = 96001; }},
        Refusal{"must be >= 1000 Hz\n", [](auto& p) { p.sampleRateInp = kNan; }},
        Refusal{"must be <= 96000 Hz\n", [](auto& p) { p.sampleRateInp = kInf; }},
        Refusal{"Invalid payload length: 65, max: 64\n", [](auto& p) { p.payloadLength = 65; }},
        Refusal{"Error: total length 280 (payload 200 + ECC 80 bytes) is too large ( > 256)\n",
                [](auto& p) { p.payloadLength = 200; }},
        Refusal{"Error: total length", [](auto& p) { p.payloadLength = INT_MAX; }}));

TEST(Preparation, AcceptsTheLimits) {
    LogCapture log;
    for (const float rate : {1000.0F, 96000.0F}) {
        ggwave_Parameters parameters = fixedLength(64);
        parameters.sampleRateInp = rate;
        EXPECT_GT(GGWave(parameters).heapSize(), 0);
    }
    ggwave_Parameters parameters = fixedLength(182);
    parameters.operatingMode = GGWAVE_OPERATING_MODE_TX;
    EXPECT_GT(GGWave(parameters).heapSize(), 0);
    GGWave judged(fixedLength());
    EXPECT_TRUE(judged.prepare(fixedLength(), false)); // which leaves no block, and is no failure
    EXPECT_EQ(log.take(), "");
    const float sample = 0;
    EXPECT_FALSE(judged.decode(&sample, sizeof sample));
    EXPECT_THAT(log.take(), AllOf(HasSubstr("no working memory"), Not(HasSubstr("failed"))));
}

TEST(Preparation, MeasuresWhatItPlaces) {
    // The listener's instance, counted by hand: see the plan in modem/README.md.
    ggwave_Parameters parameters = fixedLength();
    parameters.sampleRateInp = 96000;
    parameters.sampleFormatInp = GGWAVE_SAMPLE_FORMAT_I16;
    parameters.operatingMode = GGWAVE_OPERATING_MODE_RX;
    const int expected = 24 + 8192 + 104 + 2048 + 4096 + 4608 + 32768 + 16384 + 16 + 153 * 1024 + 40 + 32 +
                         160 + 4 * (2048 + 192 + 64 + 4096);
    EXPECT_EQ(GGWave(parameters).heapSize(), expected);
}

/// Whatever the record and the tables say, no call may overrun, hang or end the process (sanitizers are
/// the judge), and what is sent is the closed form.
TEST_F(Protocols, AnyParametersAndRowsAreSafe) {
    LogCapture log;
    std::mt19937 generator(20);
    const auto pick = [&generator](auto... values) {
        const std::array all{values...};
        return all[generator() % all.size()];
    };
    const Bytes sound = stored(noise(30000, 0.3F, 1), GGWAVE_SAMPLE_FORMAT_F32);
    int compared = 0;
    for (int i = 0; i < 400; ++i) {
        const auto id = generator() % 22;
        for (auto* table : {&GGWave::Protocols::rx(), &GGWave::Protocols::tx()}) {
            *table = GGWave::Protocols::kDefault();
            (*table)[id] = {.name = pick("a", static_cast<const char*>(nullptr)),
                            .freqStart = static_cast<std::int16_t>(pick(384, 0, 1000, 1024, -5, 32767)),
                            .framesPerTx = static_cast<std::int8_t>(pick(9, 1, 3, 127, 0, -1)),
                            .bytesPerTx = static_cast<std::int8_t>(pick(1, 2, 3, 40, 127, 0, -7)),
                            .extra = static_cast<std::int8_t>(pick(1, 2, 3, 0, -1)),
                            .enabled = true};
        }
        ggwave_Parameters parameters{
            .payloadLength = pick(13, 1, 3, 64, 140, 184, 0, -1),
            .sampleRateInp = pick(48000.0F, 96000.0F, 44100.0F, 1000.0F, 8000.0F),
            .sampleRateOut = pick(48000.0F, 96000.0F, 44100.0F, 1e9F, 0.0F, -1.0F, kNan, kInf, 1e-30F),
            .sampleRate =
                pick(48000.0F, 48000.0F, 44100.0F, 1000.0F, 12000.0F, 3e38F, 1e-40F, 0.0F, kNan, kInf),
            .samplesPerFrame = pick(1024, 512, 64, 32, 2, 1, 1000, 3),
            .soundMarkerThreshold = pick(3.0F, 0.0F, kNan),
            .sampleFormatInp = pick(1, 2, 3, 4, 5),
            .sampleFormatOut = pick(1, 2, 3, 4, 5),
            .operatingMode = pick(6, 2, 4, 6 + 16, 4 + 8, 6 + 8, 0)};
        if (i % 3 == 0) {
            parameters.sampleRateInp = parameters.sampleRateOut = parameters.sampleRate = 48000.0F;
            parameters.sampleFormatOut = GGWAVE_SAMPLE_FORMAT_F32;
        }
        SCOPED_TRACE(testing::Message() << "record " << i);
        const int instance = ggwave_init(parameters);
        ASSERT_GE(instance, 0);
        for (const ggwave_ProtocolId protocol : {static_cast<int>(id), 12}) {
            const int bytes = ggwave_encode(instance, "some payload bytes", 18, protocol, 100, nullptr, 1);
            if (bytes < 0) continue;
            Bytes waveform(static_cast<std::size_t>(bytes));
            const int written =
                ggwave_encode(instance, "some payload bytes", 18, protocol, 100, waveform.data(), 0);
            EXPECT_LE(written, bytes);
            const auto& row = GGWave::Protocols::tx()[static_cast<std::size_t>(protocol)];
            const bool isPlain = parameters.sampleFormatOut == GGWAVE_SAMPLE_FORMAT_F32 &&
                                 parameters.sampleRateInp == parameters.sampleRate &&
                                 parameters.sampleRateOut == parameters.sampleRate && row.freqStart <= 1024;
            if (written < 1 || !isPlain) continue;
            const auto limit =
                static_cast<std::size_t>(parameters.payloadLength > 0 ? parameters.payloadLength : 140);
            const LiteralTransmission expected(parameters, row,
                                               std::string_view("some payload bytes").substr(0, limit), 100);
            ASSERT_EQ(static_cast<std::size_t>(written), sizeof(float) * expected.samples.size());
            // Where 1 / samplesPerFrame is rounded to a float, a tone is off by that much over a frame.
            const double tolerance = 1024 % parameters.samplesPerFrame == 0 ? 2e-6 : 1e-3;
            for (std::size_t k = 0; k < expected.samples.size(); ++k) {
                float sample = 0;
                std::memcpy(&sample, waveform.data() + sizeof sample * k, sizeof sample);
                ASSERT_NEAR(static_cast<double>(sample), expected.samples[k], tolerance) << k;
            }
            ++compared;
        }
        Bytes payload(256);
        for (const int size : {0, 5, 1000, 19200, 40000})
            ggwave_ndecode(instance, sound.data(), size, payload.data(), static_cast<int>(payload.size()));
        ggwave_decode(instance, sound.data(), static_cast<int>(sound.size()), payload.data(), "");
        ggwave_free(instance);
    }
    EXPECT_GT(compared, 3); // of those that send floats without conversion, some within 2048 frames
}

} // namespace
