#include "tests/support/literal_transmitter.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/transmissions.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

using testing::HasSubstr;

namespace {

constexpr int kFrame = 1024;

ggwave_Parameters sending(int payloadLength, int mode = GGWAVE_OPERATING_MODE_TX) {
    ggwave_Parameters parameters = fixedLength(payloadLength);
    parameters.operatingMode = mode;
    return parameters;
}

struct TxTables : testing::Test {
    ~TxTables() override { GGWave::Protocols::tx() = GGWave::Protocols::kDefault(); }
    static void only(GGWave::Protocol row, int id = 7) {
        row.enabled = true;
        GGWave::Protocols::tx().disableAll();
        GGWave::Protocols::tx()[static_cast<std::size_t>(id)] = row;
    }
};
using Transmitter = TxTables;

TEST_F(Transmitter, MakesTheClosedFormOfAnyProtocolAndLength) {
    std::mt19937 generator(31);
    const auto pick = [&generator](int least, int most) {
        return least + static_cast<int>(generator() % static_cast<unsigned>(most - least + 1));
    };
    for (int trial = 0; trial < 60; ++trial) {
        // The longest fixed length shows every byte of the spreading; messages show markers and
        // their length.
        ggwave_Parameters parameters = sending(trial % 3 == 0 ? -1 : trial == 1 ? 64 : pick(1, 40));
        if (trial % 2 == 1) parameters.operatingMode |= GGWAVE_OPERATING_MODE_USE_DSS;
        parameters.samplesPerFrame = 128 << trial % 4;
        const bool isMono = parameters.payloadLength > 0 && trial % 5 == 0;
        const GGWave::Protocol row{.name = "any",
                                   .freqStart = static_cast<std::int16_t>(pick(1, 50)),
                                   .framesPerTx = static_cast<std::int8_t>(pick(1, 9)),
                                   .bytesPerTx = static_cast<std::int8_t>(pick(1, 3)),
                                   .extra = static_cast<std::int8_t>(isMono ? 2 : 1),
                                   .enabled = true};
        only(row);
        std::string payload(static_cast<std::size_t>(pick(1, std::max(20, parameters.payloadLength))), '\0');
        for (char& c : payload) c = trial == 1 ? '\0' : static_cast<char>(generator());
        if (parameters.payloadLength > 0)
            payload.resize(std::min(payload.size(), static_cast<std::size_t>(parameters.payloadLength)));
        SCOPED_TRACE(testing::Message() << "trial " << trial);
        LogCapture log; // the tone list has no room for some rows of mono-tones
        GGWave modem(parameters);
        const Samples sound = transmission(modem, payload, 80, 7);
        const LiteralTransmission expected(parameters, row, payload, 80);
        ASSERT_EQ(sound.size(), expected.samples.size());
        for (std::size_t i = 0; i < sound.size(); ++i)
            ASSERT_NEAR(static_cast<double>(sound[i]), expected.samples[i], 2e-6) << i; // of full scale
        const auto tones = modem.txTones();
        if (parameters.payloadLength < 1 || isMono) continue;
        EXPECT_EQ(std::vector<int>(tones.begin(), tones.end()), expected.tones);
    }
}

TEST_F(Transmitter, GivesTheSameSamplesInEveryFormat) {
    const Samples exact = transmission("hello", fixedLength(), 90);
    for (const int format : {1, 2, 3, 4}) {
        ggwave_Parameters parameters = sending(13);
        parameters.sampleFormatOut = format;
        GGWave modem(parameters);
        ASSERT_TRUE(modem.init("hello", 12, 90));
        ASSERT_EQ(modem.encode(), exact.size() * static_cast<std::size_t>(modem.sampleSizeOut()));
        const auto* raw = static_cast<const std::uint8_t*>(modem.txWaveform());
        for (std::size_t i = 0; i < exact.size(); ++i) { // truncated towards zero, unsigned from -1
            const float x = exact[i];
            std::int16_t wide = 0;
            std::memcpy(&wide, raw + (format > 2 ? 2 * i : 0), 2);
            const int value = format == 1   ? raw[i]
                              : format == 2 ? static_cast<std::int8_t>(raw[i])
                              : format == 3 ? static_cast<std::uint16_t>(wide)
                                            : wide;
            const float expected = format == 1   ? (x + 1) * 128
                                   : format == 2 ? x * 128
                                   : format == 3 ? (x + 1) * 32768
                                                 : x * 32768;
            ASSERT_EQ(value, static_cast<int>(expected)) << format << " " << i;
        }
        ggvector<short> amplitude;
        ASSERT_TRUE(modem.txTakeAmplitudeI16(amplitude));
        EXPECT_EQ(amplitude.size(), static_cast<int>(exact.size()));
        EXPECT_FALSE(modem.txTakeAmplitudeI16(amplitude));
    }
}

TEST_F(Transmitter, ResamplesTheWholeWaveformWithinItsPrediction) {
    const Samples exact = transmission("hello");
    for (const float rate : {44100.0F, 96000.0F, 50000.0F, 24000.0F}) {
        ggwave_Parameters parameters = sending(13);
        parameters.sampleRateOut = rate;
        GGWave modem(parameters);
        ASSERT_TRUE(modem.init("hello", 12, 50));
        const auto predicted = modem.encodeSize_samples();
        const Samples sound = transmission(modem, "hello");
        const double expected = 153.0 * kFrame * static_cast<double>(rate) / 48000.0;
        EXPECT_LE(sound.size(), predicted);
        EXPECT_NEAR(static_cast<double>(sound.size()), expected, 2.0) << rate;
        if (rate != 96000.0F) continue;
        // At twice the rate every other sample is one of the original, 136 input samples late.
        for (std::size_t i = 0; i + 136 < exact.size(); ++i)
            ASSERT_NEAR(sound[2 * (i + 136)], exact[i], 2e-5) << i;
    }
}

TEST_F(Transmitter, RefusesMonoTonesBetweenMarkers) {
    only({.name = "mt", .freqStart = 384, .framesPerTx = 6, .bytesPerTx = 1, .extra = 2});
    LogCapture log;
    GGWave variable(sending(-1));
    EXPECT_FALSE(variable.init("abc", 7, 50));
    EXPECT_EQ(log.take(), "Mono-tone protocols with variable length are not supported\n");
    GGWave modem(sending(3)); // the tone list is planned for one tone a byte; the waveform does not need it
    EXPECT_EQ(transmission(modem, "\x4B\x5C\x6D", 50, 7).size(), 5U * 2 * 6 * kFrame);
    EXPECT_THAT(log.take(), HasSubstr("tone list"));
}

TEST_F(Transmitter, StartsEveryTransmissionAfresh) {
    for (const float rate : {48000.0F, 44100.0F}) {
        ggwave_Parameters parameters = sending(13);
        parameters.sampleRateOut = rate;
        GGWave modem(parameters);
        transmission(modem, "longer before", 100); // the loudest there is
        EXPECT_EQ(transmission(modem, "ab"), transmission("ab", parameters)) << rate;
        for (const float x : transmission(modem, "ab", 0)) ASSERT_EQ(x, 0.0F);
    }
}

TEST_F(Transmitter, AnnouncesNothingForWhatItWillRefuse) {
    // At 51.2 kHz the longest message still fits, at 56 kHz it does not: 1823 of 2048 frames at 48 kHz.
    LogCapture log;
    const std::string longest(140, 'x');
    for (const float rate : {24000.0F, 51200.0F, 53000.0F, 56000.0F, 96000.0F, 96e6F, 1e9F}) {
        ggwave_Parameters parameters = sending(-1);
        parameters.sampleRateOut = rate;
        GGWave modem(parameters);
        ASSERT_TRUE(modem.init(longest.c_str(), 12, 50));
        const auto samples = modem.encodeSize_samples(), bytes = modem.encodeSize_bytes();
        const auto made = modem.encode();
        EXPECT_EQ(samples > 0, made > 0) << rate;
        EXPECT_EQ(made > 0, rate < 54000.0F) << rate;
        EXPECT_EQ(bytes, 4 * samples) << rate;
        EXPECT_LE(made, bytes) << rate;
    }
}

TEST_F(Transmitter, MakesTonesOnlyWhenThatIsAsked) {
    GGWave modem(sending(13, GGWAVE_OPERATING_MODE_TX | GGWAVE_OPERATING_MODE_TX_ONLY_TONES));
    ASSERT_TRUE(modem.init("hello", 12, 50));
    EXPECT_EQ(modem.encodeSize_samples(), 0U);
    EXPECT_EQ(modem.encode(), 1U);
    EXPECT_EQ(modem.txTones().size(), 51);
    EXPECT_EQ(modem.txWaveform(), nullptr);
    EXPECT_FALSE(modem.txHasData());
}

TEST_F(Transmitter, DescribesWhatItRefusesAndDropsWhatWasQueued) {
    LogCapture log;
    GGWave modem(sending(13));
    const auto refused = [&](int id, int volume, const char* line) {
        EXPECT_TRUE(modem.init("queued", 12, 50));
        EXPECT_FALSE(modem.init("hello", id, volume));
        EXPECT_EQ(log.take(), line);
    };
    refused(12, 101, "Invalid volume: 101\n");
    refused(12, -1, "Invalid volume: -1\n");
    refused(22, 50, "Invalid protocol ID: 22\n");
    refused(-1, 50, "Invalid protocol ID: -1\n");
    refused(3, 50, "Protocol 3 is not enabled - make sure to enable it before creating the instance\n");
    EXPECT_EQ(modem.encode(), 0U);
    EXPECT_FALSE(modem.init(-1, "x", 12, 50));
    EXPECT_EQ(log.take(), "Negative data size: -1\n");
    EXPECT_FALSE(modem.init(std::string(150, 'x').c_str(), 12, 101));
    EXPECT_EQ(log.take(), "Truncating data from 150 to 13 bytes\nInvalid volume: 101\n");

    GGWave receiver(sending(13, GGWAVE_OPERATING_MODE_RX));
    EXPECT_TRUE(receiver.init("hello", 12, 50));
    EXPECT_EQ(receiver.encode(), 0U);
    const std::string disabled = "Tx is disabled - cannot transmit data with this GGWave instance\n";
    EXPECT_EQ(log.take(), disabled + disabled);

    for (const float rate :
         {0.0F, -48000.0F, std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::infinity(),
          std::numeric_limits<float>::quiet_NaN()}) {
        ggwave_Parameters parameters = sending(13);
        parameters.sampleRate = parameters.sampleRateOut = rate;
        GGWave rateless(parameters);
        EXPECT_TRUE(rateless.init("x", 12, 50));
        EXPECT_EQ(rateless.encode(), 0U) << rate;
        EXPECT_THAT(log.take(), HasSubstr("must be above 0 Hz and finite to transmit")) << rate;
    }

    GGWave longest(sending(184)); // 184 + 72 bytes fill no code word of 255
    EXPECT_TRUE(longest.init("x", 12, 50));
    EXPECT_EQ(longest.encodeSize_samples(), 0U);
    EXPECT_EQ(longest.encode(), 0U);
    EXPECT_THAT(log.take(), HasSubstr("255 bytes of a code word"));
}

} // namespace
