#include "deep/receiver.hpp"
#include "payload/encoding.hpp"
#include "tests/support/allocation_count.hpp"
#include "tests/support/transmissions.hpp"
#include "tools/simulated_air.hpp"

#include <gmock/gmock.h>
#include <limits>
#include <numbers>

namespace {

using sorvel::deep::Receiver;
using sorvel::deep::Reception;
using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

constexpr double kTransmission_s = 3.264;
constexpr std::size_t kRate_hz = 48000;

/// A text as the transmitter sends it. Every sample twice where the transmitter knows no such rate.
Samples sent(const std::string& text, std::size_t rate_hz = kRate_hz) {
    std::array<char, encoding::kPayloadBytes> payload{};
    compressString(text, payload.data());
    ggwave_Parameters parameters = fixedLength();
    const bool isDoubled = static_cast<float>(rate_hz) > GGWave::kMaxSampleRate;
    parameters.sampleRateOut = static_cast<float>(isDoubled ? rate_hz / 2 : rate_hz);
    const Samples samples = transmission({payload.data(), payload.size()}, parameters);
    if (!isDoubled) return samples;
    Samples doubled;
    for (const float x : samples) doubled.insert(doubled.end(), 2, x);
    return doubled;
}

Samples pause(double duration_s, std::size_t rate_hz = kRate_hz) {
    return silence(static_cast<std::size_t>(duration_s * static_cast<double>(rate_hz)));
}

/// With noise 29 dB below the tones in the band, as in a quiet room.
Samples inRoom(Samples sound, std::size_t rate_hz = kRate_hz) {
    const float deviation = 0.03F * std::sqrt(static_cast<float>(rate_hz) / 48000.0F);
    const Samples added = noise(sound.size(), deviation, 1);
    for (std::size_t i = 0; i < sound.size(); ++i) sound[i] += added[i];
    return sound;
}

/// A transmission `at_s` into its noise, 0.9 s of which are left behind it.
Samples inNoise(const std::string& text, double snr_db, double at_s, unsigned seed) {
    const Samples alone = sent(text);
    Samples sound = silence(static_cast<std::size_t>(at_s * kRate_hz)) + alone + silence(43200);
    sorvel::air::addWhiteNoise(sound, snr_db, sorvel::air::tonePower(alone), kRate_hz, seed);
    return sound;
}

std::vector<Reception> polled(Receiver& receiver) {
    std::vector<Reception> heard;
    for (Reception reception; receiver.poll(reception);) heard.push_back(reception);
    return heard;
}

Texts texts(const std::vector<Reception>& heard) {
    Texts result;
    for (const Reception& reception : heard) result.emplace_back(reception.text.data());
    return result;
}

template <typename Sample>
std::vector<Reception> heardIn(Receiver& receiver, const std::vector<Sample>& sound,
                               std::size_t block = 4800) {
    std::vector<Reception> heard;
    for (std::size_t at = 0; at < sound.size(); at += block) {
        receiver.push(std::span<const Sample>(sound).subspan(at, std::min(block, sound.size() - at)));
        for (const Reception& reception : polled(receiver)) heard.push_back(reception);
    }
    return heard;
}

Texts textsIn(const Samples& sound, std::string_view prefix) {
    Receiver receiver(kRate_hz, prefix);
    return texts(heardIn(receiver, sound));
}

class ReceiverAtRate : public testing::TestWithParam<std::size_t> {};

INSTANTIATE_TEST_SUITE_P(Rates, ReceiverAtRate, testing::Values(44100, 48000, 96000, 192000));

TEST_P(ReceiverAtRate, HearsATransmissionOnceWhateverTheBlocksAndTheFormat) {
    const std::size_t rate_hz = GetParam();
    const Samples sound =
        inRoom(pause(0.731, rate_hz) + sent("acme_9 x", rate_hz) + pause(1.0, rate_hz), rate_hz);
    std::vector<std::int16_t> rounded;
    for (const float x : sound) rounded.push_back(static_cast<std::int16_t>(std::lround(32767.0F * x)));
    Receiver receiver(static_cast<double>(rate_hz), "acme");
    const auto expectHeard = [](const std::vector<Reception>& heard) {
        ASSERT_THAT(texts(heard), ElementsAre("acme_9 x"));
        EXPECT_NEAR(heard[0].end_s, 0.731 + kTransmission_s, 0.03);
        EXPECT_NEAR(heard[0].speed_m_s, 0.0F, 0.03F);
    };
    for (const std::size_t block : {1U, 64U, 441U, 4800U, 10000U}) {
        SCOPED_TRACE(block);
        receiver.reset();
        expectHeard(heardIn(receiver, sound, block));
    }
    receiver.reset();
    expectHeard(heardIn(receiver, rounded));
}

TEST(Receiver, HearsThroughNoiseTenDecibelsOverTheTones) {
    const Samples sound = inNoise("acme7_kq0 zx89", -10.0, 0.8, 5);
    for (const char* const prefix : {"acme", "ACME7_", ""}) {
        Receiver receiver(kRate_hz, prefix);
        const auto heard = heardIn(receiver, sound);
        ASSERT_THAT(texts(heard), ElementsAre("acme7_kq0 zx89")) << prefix;
        EXPECT_NEAR(heard[0].snr_db, -10.0F, 1.5F);
        EXPECT_NEAR(heard[0].end_s, 0.8 + kTransmission_s, 0.03);
        EXPECT_GT(heard[0].margin, 0.0F);
    }
    EXPECT_THAT(textsIn(sound, "acmf"), IsEmpty());
    EXPECT_THAT(textsIn(sound, "kq0"), IsEmpty());
}

TEST(Receiver, HearsTransmissionsThatFollowOneAnother) {
    const Samples sound =
        inRoom(sent("acme_one") + sent("acme_two") + pause(0.5) + sent("acme_two") + pause(1.0));
    EXPECT_THAT(textsIn(sound, "acme"), ElementsAre("acme_one", "acme_two", "acme_two"));
    EXPECT_THAT(textsIn(sound, ""), ElementsAre("acme_one", "acme_two", "acme_two"));
    // What ends with another prefix is not told, and so holds off nothing.
    const Samples others = inRoom(sent("beta_one") + sent("acme_two") + sent("acmf_two") + pause(1.0));
    EXPECT_THAT(textsIn(others, "acme"), ElementsAre("acme_two"));
}

// A second loudspeaker that runs behind is another end of the same text.
TEST(Receiver, TellsOneTextInASecond) {
    for (const double behind_s : {0.3, 0.9}) {
        Samples sound = pause(0.5) + sent("acme_twice") + pause(behind_s + 1.0);
        const Samples second = sent("acme_twice");
        const auto start = static_cast<std::size_t>((0.5 + behind_s) * kRate_hz);
        for (std::size_t i = 0; i < second.size(); ++i) sound[start + i] += 0.9F * second[i];
        EXPECT_THAT(textsIn(inRoom(sound), "acme"), ElementsAre("acme_twice")) << behind_s;
    }
}

TEST(Receiver, KeepsTheLastEightTexts) {
    Receiver receiver(kRate_hz, "n");
    for (int i = 0; i < 10; ++i) receiver.push(inRoom(sent("n" + std::to_string(i))));
    receiver.finish();
    EXPECT_THAT(texts(polled(receiver)), ElementsAre("n2", "n3", "n4", "n5", "n6", "n7", "n8", "n9"));
}

// Cut where the text ends, or some milliseconds before that.
TEST(Receiver, CompletesARecordingThatEndsWithItsText) {
    for (const std::size_t cut : {0U, 480U}) {
        Samples sound = inNoise("acme_at the end", -6.0, 0.4, 9);
        sound.resize(sound.size() - 43200 - cut);
        Receiver receiver(kRate_hz, "acme");
        EXPECT_THAT(texts(heardIn(receiver, sound)), IsEmpty());
        receiver.finish();
        const auto heard = polled(receiver);
        ASSERT_THAT(texts(heard), ElementsAre("acme_at the end"));
        EXPECT_NEAR(heard[0].end_s, 0.4 + kTransmission_s, 0.03);
        receiver.finish();
        EXPECT_THAT(polled(receiver), IsEmpty());
    }
}

TEST(Receiver, ForgetsEverythingWithReset) {
    const Samples text = inRoom(sent("acme_reset"));
    const std::span<const float> sound(text);
    Receiver receiver(kRate_hz, "acme");
    receiver.push(sound.first(sound.size() / 4 * 3)); // the last quarter is parity, and no text alone
    receiver.reset();
    receiver.push(sound.subspan(sound.size() / 4 * 3));
    receiver.finish();
    EXPECT_THAT(polled(receiver), IsEmpty());

    receiver.push(sound);
    receiver.finish();
    receiver.reset(); // with a text that waits, and its hold-off
    EXPECT_THAT(polled(receiver), IsEmpty());
    receiver.push(sound);
    receiver.finish();
    const auto heard = polled(receiver);
    ASSERT_THAT(texts(heard), ElementsAre("acme_reset"));
    EXPECT_NEAR(heard[0].end_s, kTransmission_s, 0.03);
}

TEST(Receiver, RefusesRatesAndPrefixesThatAreNone) {
    constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();
    std::vector<Receiver> refused;
    for (const double rate_hz : {kNoNumber, -48000.0, 0.0, 31999.0, 384001.0, 1.0 / 0.0})
        refused.emplace_back(rate_hz, "acme");
    for (const std::string_view prefix : {"a-b", "1234567890123456", "\xC3\xA4", "acme\n"})
        refused.emplace_back(48000.0, prefix);
    refused.emplace_back(48000.0, std::string_view("a\0b", 3));
    const Samples sound = sent("acme");
    const std::vector<std::int16_t> loud(4800, 32767);
    for (std::size_t i = 0; i < refused.size(); ++i) {
        Receiver& receiver = refused[i];
        EXPECT_FALSE(receiver.isReady()) << i;
        receiver.push(sound);
        receiver.push(loud);
        receiver.finish();
        receiver.reset();
        EXPECT_THAT(polled(receiver), IsEmpty());
    }
    for (const double rate_hz : {32000.0, 384000.0})
        EXPECT_TRUE(Receiver(rate_hz, "123456789012345").isReady()) << rate_hz;
}

TEST(Receiver, HearsAgainAfterSamplesThatAreNoSound) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    for (const float wrong : {std::numeric_limits<float>::quiet_NaN(), kInfinity, -kInfinity, 3e38F, 1e6F}) {
        SCOPED_TRACE(wrong);
        Receiver receiver(kRate_hz, "acme");
        Samples hostile(2 * kRate_hz, wrong);
        for (std::size_t i = 0; i < hostile.size(); i += 7) hostile[i] = -wrong;
        EXPECT_THAT(texts(heardIn(receiver, hostile + pause(0.3) + sent("acme_after") + pause(1.0))),
                    ElementsAre("acme_after"));
        if (wrong == 1e6F) continue; // loud, but a number
        Samples spoilt = sent("acme_within") + pause(1.0);
        for (std::size_t i = 0; i < spoilt.size(); i += 4800) spoilt[i] = wrong;
        EXPECT_THAT(texts(heardIn(receiver, spoilt)), ElementsAre("acme_within"));
    }
}

TEST(Receiver, AllocatesNothingWhileItHears) {
    const Samples sound = inNoise("acme_allocates", -9.0, 0.5, 4) + sent("acme_last");
    const std::vector<std::int16_t> silent(4800, 0);
    Receiver receiver(kRate_hz, "acme");
    std::array<Reception, 4> heard;
    std::size_t count = 0;
    const AllocationCount allocations;
    for (std::size_t at = 0; at < sound.size(); at += 4800) {
        receiver.push(
            std::span<const float>(sound).subspan(at, std::min<std::size_t>(4800, sound.size() - at)));
        while (count < heard.size() && receiver.poll(heard[count])) ++count;
    }
    receiver.push(silent);
    receiver.finish();
    while (count < heard.size() && receiver.poll(heard[count])) ++count;
    receiver.reset();
    EXPECT_EQ(allocations.total(), 0U);
    ASSERT_EQ(count, 2U); // it did the work it was counted for
    EXPECT_STREQ(heard[1].text.data(), "acme_last");
}

// Filters are longest at high rates, and have most rows where the baseband's samples fall between the
// device's.
TEST(Receiver, TakesHalfAMebibyteAtAnyRate) {
    for (const double rate_hz : {32000.0, 44100.0, 48000.0, 96000.0, 192000.0, 352800.0, 383999.0}) {
        const AllocationCount allocations;
        const Receiver receiver(rate_hz, "acme");
        EXPECT_LE(allocations.bytes(), 524288U) << rate_hz;
        EXPECT_GE(allocations.bytes(), 262144U) << rate_hz; // all of them were counted
    }
}

/// Two of the protocol's tones at a time, by lot, at its pace: every moment looks like an end.
Samples uncodedTones(std::size_t chunks, unsigned seed) {
    std::mt19937 generator(seed);
    constexpr std::size_t kChunk = 9216;
    Samples sound;
    for (std::size_t chunk = 0; chunk < chunks; ++chunk) {
        const double low_hz = 18000.0 + 46.875 * static_cast<double>(generator() % 16);
        const double high_hz = 18750.0 + 46.875 * static_cast<double>(generator() % 16);
        for (std::size_t i = 0; i < kChunk; ++i) {
            const double part = static_cast<double>(i) / kChunk;
            const double turn = 2.0 * std::numbers::pi * static_cast<double>(i) / kRate_hz;
            sound.push_back(static_cast<float>(0.25 * std::min({1.0, part / 0.15, (1.0 - part) / 0.15}) *
                                               (std::sin(turn * low_hz) + std::sin(turn * high_hz))));
        }
    }
    return sound;
}

// They use up the allowance for looking; the end must wait until it has grown again.
TEST(Receiver, HearsTheTransmissionAfterTonesThatAreNone) {
    for (const double gap_s : {0.0, 1.0}) {
        const Samples sound =
            inRoom(uncodedTones(104, 8) + pause(gap_s) + sent("acme_after all") + pause(1.5));
        EXPECT_THAT(textsIn(sound, "acme"), ElementsAre("acme_after all")) << gap_s;
        EXPECT_THAT(textsIn(sound, ""), ElementsAre("acme_after all")) << gap_s;
    }
}

// Fainter ones that go on meanwhile use it up as well; what stands out from them is looked at all the same.
TEST(Receiver, HearsATransmissionAmongFainterTonesThatAreNone) {
    int heard = 0;
    for (unsigned seed = 1; seed <= 4; ++seed) {
        Samples sound = uncodedTones(108, seed); // 20.7 s
        for (float& sample : sound) sample *= 0.2F;
        const Samples alone = sent("acme_after all");
        for (std::size_t i = 0; i < alone.size(); ++i) sound[800000 + seed * 700 + i] += alone[i];
        const Texts told = textsIn(inRoom(sound), "");
        EXPECT_TRUE(told.empty() || told == Texts{"acme_after all"}) << seed;
        heard += static_cast<int>(told.size());
    }
    EXPECT_GE(heard, 3);
}

// From deep in noise to digital silence around it.
TEST(Receiver, FindsTheEndAtAnyLoudness) {
    for (const double snr_db : {-8.0, 20.0, 50.0, 130.0}) {
        Receiver receiver(kRate_hz, "acme");
        const auto heard = heardIn(receiver, inNoise("acme_9 x", snr_db, 0.731, 7));
        ASSERT_THAT(texts(heard), ElementsAre("acme_9 x")) << snr_db;
        EXPECT_NEAR(heard[0].end_s, 0.731 + kTransmission_s, 0.03) << snr_db;
    }
}

// Whatever the modem hears, this one hears: on channels where that hears most or just some.
TEST(Receiver, HearsWhatTheModemHears) {
    int heardByBoth = 0;
    for (unsigned seed = 1; seed <= 3; ++seed) {
        const std::string text = "acme_" + std::to_string(seed * 7919U);
        const Samples alone = sent(text);
        std::vector<Samples> sounds{inNoise(text, -4.0, 0.5 + 0.013 * seed, seed),
                                    inNoise(text, -6.0, 0.5 + 0.013 * seed, seed + 10)};
        Samples clipped = inNoise(text, 20.0, 0.4, seed + 20);
        sorvel::air::clip(clipped, 0.2F);
        sounds.push_back(sorvel::air::reclocked(clipped, 500.0, 0.37 * seed));
        sounds.push_back(sorvel::air::convolved(inNoise(text, 20.0, 0.4, seed + 30),
                                                sorvel::air::roomResponse(0.8, 0.0, kRate_hz, seed)));
        for (std::size_t channel = 0; channel < sounds.size(); ++channel) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << " channel " << channel);
            const auto payloads = received(fixedLength(), sounds[channel]);
            const bool isHeard = std::any_of(payloads.begin(), payloads.end(), [&](const auto& payload) {
                return encoding::extractStrings(payload.data()) == text;
            });
            if (!isHeard) continue;
            ++heardByBoth;
            EXPECT_THAT(textsIn(sounds[channel], "acme"), ElementsAre(text));
            EXPECT_THAT(textsIn(sounds[channel], ""), ElementsAre(text));
        }
    }
    EXPECT_GE(heardByBoth, 9); // of 12; 11 measured
}

} // namespace
