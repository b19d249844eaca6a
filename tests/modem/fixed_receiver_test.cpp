#include "modem/fixed_receiver.hpp"
#include "tests/support/allocation_count.hpp"
#include "tests/support/literal_fixed_receiver.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/transmissions.hpp"
#include "tools/simulated_air.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numbers>

namespace air = sorvel::air;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr std::size_t kFrame = 1024;
const std::string kPayload("\x15\x15\x13\x95\x55\x80\xFF\0\x7F\x01 \xA5z", 13);
const std::string kOther("\x31\xC0\xDE\x20\x17\x44\0\0\0\x99\x80\x08\x5A", 13);

/// Enough quiet sound for the last window of a transmission to complete.
const Samples kTail = silence(3 * kFrame);

struct Link {
    int format;
    float rate;
};

class RoundTrip : public testing::TestWithParam<Link> {};

TEST_P(RoundTrip, DeliversAtEverySubFrameOffset) {
    const auto [format, rate] = GetParam();
    ggwave_Parameters parameters = fixedLength();
    parameters.sampleRateOut = rate;
    const Samples sound = transmission(kPayload, parameters) + kTail + kTail;
    parameters.sampleRateOut = 48000.0F;
    parameters.sampleRateInp = rate;
    parameters.sampleFormatInp = format;
    const std::size_t blockSamples = rate == 44100.0F ? 4410 : 2048; // whose remainders cost no frames
    for (std::size_t offset = 0; offset < kFrame; offset += 93) {
        const auto heard = received(parameters, silence(offset) + sound, blockSamples);
        EXPECT_THAT(heard, Contains(kPayload)) << offset;
    }
}

INSTANTIATE_TEST_SUITE_P(FormatsAndRates, RoundTrip,
                         testing::Values(Link{1, 48000}, Link{2, 48000}, Link{3, 48000}, Link{4, 48000},
                                         Link{5, 48000}, Link{4, 44100}, Link{5, 44100}, Link{1, 96000},
                                         Link{4, 96000}, Link{5, 96000}),
                         [](const auto& link) {
                             return "Format" + std::to_string(link.param.format) + "At" +
                                    std::to_string(static_cast<int>(link.param.rate));
                         });

/// The listener's own instance: 96 kHz, 16 bits, blocks of 100 ms.
ggwave_Parameters listening() {
    ggwave_Parameters parameters = fixedLength();
    parameters.sampleRateInp = 96000;
    parameters.sampleFormatInp = GGWAVE_SAMPLE_FORMAT_I16;
    return parameters;
}

Samples at96kHz(const std::string& payload, int volume = 50) {
    ggwave_Parameters parameters = fixedLength();
    parameters.sampleRateOut = 96000;
    return transmission(payload, parameters, volume);
}

TEST(Receiving, HearsAnyLevelFromSixtyDecibelsDownToClipping) {
    for (const double gain_db : {-54.0, -40.0, -20.0, 0.0, 12.0, 30.0}) { // a peak of 0.5 before
        Samples sound = silence(5000) + at96kHz(kPayload) + silence(9600 * 2);
        for (float& x : sound)
            x = std::clamp(x * static_cast<float>(std::pow(10.0, gain_db / 20)), -1.0F, 1.0F);
        EXPECT_THAT(received(listening(), sound, 9600), Contains(kPayload)) << gain_db;
    }
}

TEST(Receiving, HearsThroughNoiseEchoAndClockError) {
    for (unsigned seed = 1; seed <= 6; ++seed) {
        const Samples sound = silence(7000 + 977 * seed) + at96kHz(kPayload) + silence(9600 * 4);
        Samples noisy = sound;
        air::addWhiteNoise(noisy, 0.0, air::tonePower(sound), 96000, seed);
        const Samples echoing = air::convolved(sound, air::roomResponse(0.4, 0.0, 96000, seed));
        for (const auto& [name, heard] : {
                 std::pair{"noise at 0 dB in the band", noisy},
                 std::pair{"room of RT60 0.4 s", echoing},
                 std::pair{"fast clock", air::reclocked(sound, 200.0)},
                 std::pair{"slow clock", air::reclocked(sound, -200.0)}
        }) {
            Samples quiet = heard;
            air::amplify(quiet, -12.0);
            EXPECT_THAT(received(listening(), quiet, 9600), Contains(kPayload)) << name << ", seed " << seed;
        }
    }
}

TEST(Receiving, KeepsTransmissionsApartAndDropsATruncatedOne) {
    const auto both = received(listening(), at96kHz(kPayload) + at96kHz(kOther) + silence(9600 * 2), 9600);
    EXPECT_THAT(both, Contains(kPayload));
    EXPECT_THAT(both, Contains(kOther));
    Samples half = at96kHz(kPayload);
    half.resize(half.size() * 3 / 5);
    EXPECT_THAT(received(listening(), half + silence(96000), 9600), Not(Contains(kPayload)));
}

TEST(Receiving, TakesLongBlocksWhole) {
    const Bytes sound = stored(at96kHz(kPayload) + silence(9600), GGWAVE_SAMPLE_FORMAT_I16);
    GGWave modem(listening());
    EXPECT_TRUE(modem.decode(sound.data(), static_cast<unsigned>(sound.size())));
    ggvector<std::uint8_t> data;
    ASSERT_EQ(modem.rxTakeData(data), 13);
    EXPECT_EQ(std::string(data.begin(), data.end()), kPayload);
    EXPECT_EQ(modem.rxProtocolId(), 12);
    EXPECT_STREQ(modem.rxProtocol().name, "[s] dt custom");
    EXPECT_EQ(modem.rxTakeData(data), 0);
}

TEST(Receiving, DropsFramesAsItsBlockSizesSay) {
    // Frames that complete in 100 s at 96 kHz: a remainder of 128 samples or fewer costs the frame
    // being filled.
    const auto share = [](std::size_t blockSamples) {
        GGWave modem(listening());
        const Bytes block(2 * blockSamples);
        int frames = 0;
        const int blocks = static_cast<int>(9600000 / blockSamples);
        ggvector<float> amplitude;
        for (int i = 0; i < blocks; ++i) {
            // One block can complete several frames; the flag tells of at least one, the counter of
            // the rest.
            modem.decode(block.data(), static_cast<unsigned>(block.size()));
            frames += modem.rxTakeAmplitude(amplitude) ? 1 : 0;
        }
        return static_cast<double>(frames) / std::min(blocks, 9600000 / 2048);
    };
    EXPECT_GT(share(2048), 0.99);
    EXPECT_GT(share(9600), 0.99);
    EXPECT_LT(share(441), 0.9);
    EXPECT_EQ(share(2000), 0.0);
    EXPECT_EQ(share(100), 0.0);
}

TEST(Receiving, AtTheOperatingRateOnlyWholeFramesCount) {
    const Samples sound = transmission(kPayload) + kTail;
    EXPECT_THAT(received(fixedLength(), sound, 1024), Contains(kPayload));
    EXPECT_THAT(received(fixedLength(), sound, 3 * 1024), Contains(kPayload));
    EXPECT_THAT(received(fixedLength(), sound, 1000), IsEmpty());
}

TEST(Receiving, NeedsThreeQuartersOfTheNibbles) {
    // All zero, so that missing nibbles, which count as zero, are right and only the gate decides.
    // A nibble goes missing when each of its nine frames sounds another tone.
    const auto heardWithout = [](int nibbles, std::size_t payloadLength) {
        const std::string payload(payloadLength, '\0');
        const ggwave_Parameters parameters = fixedLength(static_cast<int>(payloadLength));
        Samples sound = transmission(payload, parameters);
        for (std::size_t i = 0; i < static_cast<std::size_t>((nibbles + 1) / 2) * 9 * kFrame; ++i) {
            const double frame = static_cast<double>(i / kFrame % 9);
            const bool isLastHalf =
                nibbles % 2 != 0 && i / kFrame / 9 == static_cast<std::size_t>(nibbles / 2);
            const double turn = 2 * std::numbers::pi * static_cast<double>(i) / kFrame;
            sound[i] = static_cast<float>(0.25 * std::sin(turn * (384 + frame)) +
                                          0.25 * std::sin(turn * (isLastHalf ? 400 : 400 + frame)));
        }
        const auto heard = received(parameters, sound);
        return std::count(heard.begin(), heard.end(), payload) > 0;
    };
    for (const std::size_t length : {13U, 12U}) { // of 32 nibbles 24 are three quarters to the letter
        EXPECT_TRUE(heardWithout(8, length)) << length;
        EXPECT_FALSE(heardWithout(9, length)) << length;
    }
}

TEST(Receiving, HearsATextFarBelowSoundOutsideTheBand) {
    Samples sound = silence(5000) + transmission(kPayload) + kTail;
    sound.resize(sound.size() / kFrame * kFrame);
    for (std::size_t i = 0; i < sound.size(); ++i)
        sound[i] = 0.1F * sound[i] + 0.9F * std::sin(static_cast<float>(2 * std::numbers::pi * 300 / 48000) *
                                                     static_cast<float>(i));
    EXPECT_THAT(received(fixedLength(), sound), Contains(kPayload));
}

TEST(Receiving, StartsOverWithInitAndWithASecondPreparation) {
    const Bytes sound = stored(transmission(kPayload) + kTail, GGWAVE_SAMPLE_FORMAT_F32);
    const auto cut = std::span(sound).first(140 * kFrame * sizeof(float));
    const auto rest = std::span(sound).subspan(cut.size());
    GGWave modem(fixedLength());
    EXPECT_THAT(received(modem, cut, kFrame), IsEmpty());
    EXPECT_TRUE(modem.init(0, nullptr, 0, 100));
    EXPECT_THAT(received(modem, rest, kFrame), IsEmpty());
    EXPECT_THAT(received(modem, sound, kFrame), Contains(kPayload));

    // From 153 rows of history to 27, and with what the tables say now.
    ggwave_rxToggleProtocol(12, 0);
    EXPECT_TRUE(modem.prepare(fixedLength(1)));
    ggwave_rxToggleProtocol(12, 1);
    EXPECT_FALSE(modem.rxProtocols()[12].enabled);
    EXPECT_EQ(modem.rxProtocolId(), 22);
    EXPECT_TRUE(modem.prepare(fixedLength(1)));
    const Bytes one = stored(transmission("x", fixedLength(1)) + kTail, GGWAVE_SAMPLE_FORMAT_F32);
    EXPECT_THAT(received(modem, one, kFrame), Contains("x"));
}

TEST(Receiving, RoundsHalvesAwayFromZeroInTheHistory) {
    Samples power{0.49999997F, 0.5F, 254.49998F, 254.5F, 1e30F, INFINITY, NAN, -3.0F, 1e-42F};
    std::vector<int> expected{0, 1, 254, 255, 255, 255, 0, 0, 0};
    for (int k = 0; k < 255; ++k) {
        const float half = static_cast<float>(k) + 0.5F;
        for (const float x : {half, std::nextafter(half, 0.0F), std::nextafter(half, 999.0F)}) {
            power.push_back(x);
            expected.push_back(static_cast<int>(std::round(x)));
        }
    }
    std::vector<std::uint8_t> levels(power.size());
    sorvel::modem::quantise(power, 1.0F, levels.data());
    EXPECT_EQ(std::vector<int>(levels.begin(), levels.end()), expected);
}

TEST(Receiving, SpreadsAndUnspreadsWithDss) {
    ggwave_Parameters parameters = fixedLength();
    parameters.operatingMode |= GGWAVE_OPERATING_MODE_USE_DSS;
    const Samples sound = transmission("short", parameters) + kTail;
    EXPECT_THAT(received(parameters, sound), Contains(std::string("short\0\0\0\0\0\0\0\0", 13)));
    EXPECT_THAT(received(fixedLength(), sound), Not(Contains(std::string("short\0\0\0\0\0\0\0\0", 13))));
}

struct RxTables : testing::Test {
    ~RxTables() override {
        GGWave::Protocols::rx() = GGWave::Protocols::tx() = GGWave::Protocols::kDefault();
    }
    static void add(int id, GGWave::Protocol row) {
        row.enabled = true;
        GGWave::Protocols::rx()[static_cast<std::size_t>(id)] =
            GGWave::Protocols::tx()[static_cast<std::size_t>(id)] = row;
    }
};
using ReceivingOtherProtocols = RxTables;

TEST_F(ReceivingOtherProtocols, PrefersTheLowerIdWhereTwoMatch) {
    GGWave::Protocol twin = GGWave::Protocols::kDefault()[12];
    add(2, twin);
    GGWave modem(fixedLength());
    EXPECT_THAT(received(modem, stored(transmission(modem, kPayload), 5), kFrame), Contains(kPayload));
    EXPECT_EQ(modem.rxProtocolId(), 2);
    modem.rxProtocols().disableAll();
    EXPECT_THAT(received(modem, stored(transmission(modem, kPayload), 5), kFrame), IsEmpty());
    modem.rxProtocols()[0] = {.name = "late",
                              .freqStart = 1000,
                              .framesPerTx = 127,
                              .bytesPerTx = 127,
                              .extra = 127,
                              .enabled = true};
    EXPECT_THAT(received(modem, stored(silence(50 * kFrame), 5), kFrame),
                IsEmpty()); // beyond the plan: not searched for
}

TEST_F(ReceivingOtherProtocols, AgreesWithTheLiteralForm) {
    // Up to three rows at a time, overlapping and beyond the band, in noise at which some are lost.
    std::mt19937 generator(41);
    const auto pick = [&generator](int least, int most) {
        return least + static_cast<int>(generator() % static_cast<unsigned>(most - least + 1));
    };
    int heard = 0, lost = 0;
    for (int trial = 0; trial < 40; ++trial) {
        const int spf = 256 << trial % 3, length = pick(1, 20);
        GGWave::Protocols::rx().disableAll();
        GGWave::Protocols::tx().disableAll();
        std::vector<int> ids;
        for (int i = 0; i < pick(1, 3); ++i) {
            ids.push_back(pick(0, 21));
            add(ids.back(), {.name = "any",
                             .freqStart = static_cast<std::int16_t>(pick(0, spf / 2)),
                             .framesPerTx = static_cast<std::int8_t>(pick(1, 6)),
                             .bytesPerTx = static_cast<std::int8_t>(pick(1, 4)),
                             .extra = static_cast<std::int8_t>(pick(1, 2))});
        }
        ggwave_Parameters parameters = fixedLength(length);
        parameters.samplesPerFrame = spf;
        LogCapture log;
        GGWave modem(parameters);
        std::string payload(static_cast<std::size_t>(length), '\0');
        for (char& c : payload) c = static_cast<char>(generator());
        Samples sound = silence(static_cast<std::size_t>(pick(0, 5 * spf)));
        for (const int id : ids) sound = sound + transmission(modem, payload, 50, id);
        sound = sound + silence(static_cast<std::size_t>(4 * spf));
        const Samples hiss =
            noise(sound.size(), 0.02F * static_cast<float>(trial % 5), static_cast<unsigned>(generator()));
        for (std::size_t i = 0; i < sound.size(); ++i) sound[i] += hiss[i];

        SCOPED_TRACE(testing::Message() << "trial " << trial);
        LiteralFixedReceiver literal(GGWave::Protocols::rx(), length, spf);
        const auto frame = static_cast<std::size_t>(spf);
        bool isHeard = false;
        for (std::size_t at = 0; at + frame <= sound.size(); at += frame) {
            ggvector<std::uint8_t> data;
            modem.decode(sound.data() + at, static_cast<unsigned>(frame * sizeof(float)));
            const auto expected = literal.hear(std::span(sound).subspan(at, frame));
            ASSERT_EQ(modem.rxTakeData(data), expected ? length : 0) << at / frame;
            if (!expected) continue;
            ASSERT_EQ(modem.rxProtocolId(), expected->first);
            ASSERT_EQ(std::string(data.begin(), data.end()), expected->second);
            isHeard |= expected->second == payload;
        }
        ++(isHeard ? heard : lost);
    }
    EXPECT_GT(heard, 10); // the noise was chosen to give both
    EXPECT_GT(lost, 5);
}

TEST(Receiving, RefusesWhatItCannotTransform) {
    LogCapture log;
    ggwave_Parameters parameters = fixedLength();
    parameters.samplesPerFrame = 1000;
    GGWave odd(parameters);
    const Samples samples(1000);
    EXPECT_FALSE(odd.decode(samples.data(), 4000));
    EXPECT_THAT(log.take(), testing::HasSubstr("power of two"));
    EXPECT_EQ(transmission(odd, "hello").size(), 153000U); // sending has no such need

    GGWave modem(listening());
    EXPECT_TRUE(modem.decode(nullptr, 0));
    EXPECT_TRUE(modem.decode(samples.data(), 333));
    EXPECT_EQ(log.take(),
              "Failure during capture - provided bytes (333) are not multiple of sample size (2)\n");
    ASSERT_TRUE(modem.init("hello", 12, 50));
    EXPECT_FALSE(modem.decode(samples.data(), 4000));
    EXPECT_EQ(log.take(), "Cannot decode while transmitting\n");
}

TEST(Receiving, SurvivesSamplesThatAreNoNumbers) {
    Samples sound = silence(20 * kFrame) + transmission(kPayload) + kTail;
    for (std::size_t i = 0; i < 20 * kFrame; ++i)
        sound[i] = std::array{NAN, INFINITY, -INFINITY, 3e38F, 1e-42F}[i % 5];
    EXPECT_THAT(received(fixedLength(), sound), Contains(kPayload));
}

TEST(Receiving, DeliversNothingInAnHourOfNoise) {
    GGWave modem(fixedLength());
    std::uint32_t state = 2463534242U;
    std::array<float, 8 * kFrame> block;
    for (int i = 0; i < 3600 * 48000 / static_cast<int>(block.size()); ++i) {
        for (float& x : block) {
            state = state * 1664525U + 1013904223U;
            x = static_cast<float>(static_cast<std::int32_t>(state)) * 1e-10F;
        }
        ASSERT_TRUE(modem.decode(block.data(), sizeof block));
        ASSERT_EQ(modem.rxDataLength(), 0) << "after " << i << " blocks";
    }
}

TEST(Modem, AllocatesNothingWhileItSendsAndReceives) {
    GGWave modem(listening());
    const Bytes captured = stored(at96kHz(kPayload) + silence(9600 * 2), GGWAVE_SAMPLE_FORMAT_I16);
    std::size_t heard = 0;
    const AllocationCount count;
    for (std::size_t at = 0; at + 19200 <= captured.size(); at += 19200) {
        modem.decode(captured.data() + at, 19200);
        ggvector<std::uint8_t> data;
        heard += modem.rxTakeData(data) == 13 ? 1U : 0U;
    }
    modem.init("hello", 12, 50);
    const auto sent = modem.encode();
    EXPECT_EQ(count.total(), 0U);
    EXPECT_GT(heard, 0U);
    EXPECT_GT(sent, 0U);
}

} // namespace
