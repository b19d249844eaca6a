#include "deep/small_receiver.hpp"
#include "payload/encoding.hpp"
#include "tests/support/allocation_count.hpp"
#include "tests/support/transmissions.hpp"
#include "tools/simulated_air.hpp"

#include <gmock/gmock.h>
#include <limits>
#include <memory>

namespace {

using sorvel::deep::Reception;
using sorvel::deep::SmallReceiver;
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
Samples inRoom(Samples sound) {
    const Samples added = noise(sound.size(), 0.03F, 1);
    for (std::size_t i = 0; i < sound.size(); ++i) sound[i] += added[i];
    return sound;
}

/// A transmission `at_s` into its noise, 0.9 s of which are left behind it.
Samples inNoise(const std::string& text, double snr_db, double at_s, unsigned seed,
                std::size_t rate_hz = kRate_hz) {
    const Samples alone = sent(text, rate_hz);
    Samples sound = pause(at_s, rate_hz) + alone + pause(0.9, rate_hz);
    sorvel::air::addWhiteNoise(sound, snr_db, sorvel::air::tonePower(alone), static_cast<double>(rate_hz),
                               seed);
    return sound;
}

/// Too large for a stack.
std::unique_ptr<SmallReceiver> made(std::string_view prefix, std::size_t rate_hz = kRate_hz) {
    return std::make_unique<SmallReceiver>(static_cast<double>(rate_hz), prefix);
}

std::vector<Reception> polled(SmallReceiver& receiver) {
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
std::vector<Reception> heardIn(SmallReceiver& receiver, const std::vector<Sample>& sound,
                               std::size_t block = 4800) {
    std::vector<Reception> heard;
    for (std::size_t at = 0; at < sound.size(); at += block) {
        receiver.push(std::span<const Sample>(sound).subspan(at, std::min(block, sound.size() - at)));
        for (const Reception& reception : polled(receiver)) heard.push_back(reception);
    }
    return heard;
}

Texts textsIn(const Samples& sound, std::string_view prefix) { return texts(heardIn(*made(prefix), sound)); }

class SmallReceiverAtRate : public testing::TestWithParam<std::size_t> {};

// 96 and 192 kHz are halved on their way, 44.1 kHz has weights between the table's.
INSTANTIATE_TEST_SUITE_P(Rates, SmallReceiverAtRate, testing::Values(44100, 48000, 96000, 192000));

TEST_P(SmallReceiverAtRate, HearsATransmissionOnceWhateverTheBlocksAndTheFormat) {
    const std::size_t rate_hz = GetParam();
    const auto receiver = made("acme", rate_hz);
    for (const double snr_db : {20.0, -10.0}) {
        const Samples sound = inNoise("acme_9 x", snr_db, 0.731, 1, rate_hz);
        const float peak = *std::max_element(sound.begin(), sound.end());
        std::vector<std::int16_t> rounded;
        for (const float x : sound)
            rounded.push_back(
                static_cast<std::int16_t>(std::clamp(std::lround(30000.0F * x / peak), -32768L, 32767L)));
        const auto expectHeard = [&](const std::vector<Reception>& heard) {
            ASSERT_THAT(texts(heard), ElementsAre("acme_9 x"));
            EXPECT_NEAR(heard[0].end_s, 0.731 + kTransmission_s, 0.03);
            EXPECT_NEAR(heard[0].speed_m_s, 0.0F, 0.03F);
            EXPECT_NEAR(heard[0].snr_db, snr_db, 2.0F);
            EXPECT_GT(heard[0].margin, 0.0F);
        };
        for (const std::size_t block : {1U, 441U, 4800U, 100000U}) {
            SCOPED_TRACE(testing::Message() << snr_db << " dB, blocks of " << block);
            receiver->reset();
            expectHeard(heardIn(*receiver, sound, block));
        }
        receiver->reset();
        expectHeard(heardIn(*receiver, rounded));
    }
}

TEST(SmallReceiver, HearsThroughNoiseElevenDecibelsOverTheTones) {
    int heard = 0;
    for (unsigned seed = 1; seed <= 5; ++seed) {
        const std::string text = "acme7_kq0 zx8" + std::to_string(seed);
        const Samples sound = inNoise(text, -11.0, 0.8 + 0.003 * seed, seed);
        for (const char* const prefix : {"acme", "ACME7_", ""})
            heard += textsIn(sound, prefix) == Texts{text};
        EXPECT_THAT(textsIn(sound, "acmf"), IsEmpty());
        EXPECT_THAT(textsIn(sound, "kq0"), IsEmpty());
    }
    EXPECT_GE(heard, 14); // of 15
}

TEST(SmallReceiver, HearsASourceThatComesCloserOrRingsOrIsBesideAWhistle) {
    for (const double closer_m_s : {1.9, -1.9}) {
        const Samples still = inNoise("acme_walks", 10.0, 0.5, 3);
        const auto heard =
            heardIn(*made("acme"), sorvel::air::reclocked(still, -closer_m_s / 343.0 * 1e6, 0.2));
        ASSERT_THAT(texts(heard), ElementsAre("acme_walks"));
        EXPECT_NEAR(heard[0].speed_m_s, closer_m_s, 0.1);
    }
    const Samples ringing = sorvel::air::convolved(inNoise("acme_rings", 20.0, 0.4, 30),
                                                   sorvel::air::roomResponse(0.8, 0.0, kRate_hz, 4));
    EXPECT_THAT(textsIn(ringing, "acme"), ElementsAre("acme_rings"));
    Samples whistling = inNoise("acme_whistles", -6.0, 5.0, 6);
    for (std::size_t i = 0; i < whistling.size(); ++i)
        whistling[i] += 2.0F * static_cast<float>(std::sin(2.39 * static_cast<double>(i)));
    EXPECT_THAT(textsIn(whistling, "acme"), ElementsAre("acme_whistles"));
}

// The last of them wait until there are steps again.
TEST(SmallReceiver, HearsTransmissionsThatFollowOneAnother) {
    Samples sound;
    Texts expected;
    for (int i = 0; i < 8; ++i) {
        expected.push_back("acme_" + std::to_string(i * 7919));
        sound = sound + sent(expected.back());
    }
    EXPECT_EQ(textsIn(inRoom(sound + pause(1.0)), "acme"), expected);
    EXPECT_EQ(textsIn(inRoom(sound + pause(1.0)), ""), expected);
}

TEST(SmallReceiver, KeepsTheLastFourTextsAndCompletesARecordingThatEndsWithItsText) {
    const auto receiver = made("n");
    for (int i = 0; i < 6; ++i) receiver->push(inRoom(sent("n" + std::to_string(i))));
    receiver->finish();
    EXPECT_THAT(texts(polled(*receiver)), ElementsAre("n2", "n3", "n4", "n5"));
    receiver->finish();
    EXPECT_THAT(polled(*receiver), IsEmpty());
}

TEST(SmallReceiver, ForgetsEverythingWithReset) {
    const Samples text = inRoom(sent("acme_reset"));
    const std::span<const float> sound(text);
    const auto receiver = made("acme");
    receiver->push(sound.first(sound.size() / 4 * 3)); // the last quarter is parity, and no text alone
    receiver->reset();
    receiver->push(sound.subspan(sound.size() / 4 * 3));
    receiver->finish();
    EXPECT_THAT(polled(*receiver), IsEmpty());

    receiver->push(sound);
    receiver->finish();
    receiver->reset(); // with a text that waits, and its hold-off
    EXPECT_THAT(polled(*receiver), IsEmpty());
    receiver->push(sound);
    receiver->finish();
    const auto heard = polled(*receiver);
    ASSERT_THAT(texts(heard), ElementsAre("acme_reset"));
    EXPECT_NEAR(heard[0].end_s, kTransmission_s, 0.03);
}

TEST(SmallReceiver, RefusesRatesAndPrefixesThatAreNone) {
    constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();
    const Samples sound = sent("acme");
    const auto expectRefused = [&](double rate_hz, std::string_view prefix) {
        const auto receiver = std::make_unique<SmallReceiver>(rate_hz, prefix);
        EXPECT_FALSE(receiver->isReady()) << rate_hz << prefix;
        receiver->push(sound);
        receiver->push(std::vector<std::int16_t>(4800, 32767));
        receiver->finish();
        receiver->reset();
        EXPECT_THAT(polled(*receiver), IsEmpty());
    };
    for (const double rate_hz : {kNoNumber, -48000.0, 0.0, 31999.0, 384001.0, 1.0 / 0.0})
        expectRefused(rate_hz, "acme");
    for (const std::string_view prefix : {"a-b", "1234567890123456", "\xC3\xA4"})
        expectRefused(48000.0, prefix);
    for (const std::size_t rate_hz : {32000U, 384000U})
        EXPECT_TRUE(made("123456789012345", rate_hz)->isReady());
}

TEST(SmallReceiver, HearsAgainAfterSamplesThatAreNoSound) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    for (const float wrong :
         {std::numeric_limits<float>::quiet_NaN(), kInfinity, -kInfinity, 3e38F, 1e6F, 1.0F, 0.0F}) {
        SCOPED_TRACE(wrong);
        Samples hostile(2 * kRate_hz, wrong);
        for (std::size_t i = 0; i < hostile.size(); ++i)
            if (i / 7 % 2 == 0) hostile[i] = -wrong; // a square wave
        EXPECT_THAT(textsIn(hostile + pause(0.3) + sent("acme_after") + pause(1.0), "acme"),
                    ElementsAre("acme_after"));
        if (std::abs(wrong) <= 1e6F) continue; // loud, but a number
        Samples spoilt = sent("acme_within") + pause(1.0);
        for (std::size_t i = 0; i < spoilt.size(); i += 4800) spoilt[i] = wrong;
        EXPECT_THAT(textsIn(spoilt, "acme"), ElementsAre("acme_within"));
    }
}

// From deep in noise to digital silence around it.
TEST(SmallReceiver, FindsTheEndAtAnyLoudness) {
    for (const double snr_db : {-8.0, 20.0, 50.0, 130.0}) {
        const auto heard = heardIn(*made("acme"), inNoise("acme_9 x", snr_db, 0.731, 7));
        ASSERT_THAT(texts(heard), ElementsAre("acme_9 x")) << snr_db;
        EXPECT_NEAR(heard[0].end_s, 0.731 + kTransmission_s, 0.03) << snr_db;
    }
}

TEST(SmallReceiver, AllocatesNothingFromItsConstructionOn) {
    const Samples sound = inNoise("acme_allocates", -9.0, 0.5, 4) + sent("acme_last");
    alignas(SmallReceiver) static std::array<std::byte, sizeof(SmallReceiver)> memory;
    static_assert(sizeof(SmallReceiver) <= 65536);
    std::array<Reception, 4> heard;
    std::size_t count = 0;
    const AllocationCount allocations;
    auto* const receiver = new (memory.data()) SmallReceiver(48000.0, "acme");
    for (std::size_t at = 0; at < sound.size(); at += 4800)
        receiver->push(
            std::span<const float>(sound).subspan(at, std::min<std::size_t>(4800, sound.size() - at)));
    receiver->finish();
    while (count < heard.size() && receiver->poll(heard[count])) ++count;
    receiver->reset();
    EXPECT_EQ(allocations.total(), 0U);
    ASSERT_EQ(count, 2U); // it did the work it was counted for
    EXPECT_STREQ(heard[1].text.data(), "acme_last");
}

TEST(SmallReceiver, HearsNothingInNoiseAndInTonesThatAreNone) {
    const auto receiver = made("");
    receiver->push(noise(60 * kRate_hz, 0.3F, 11));
    std::mt19937 generator(5);
    for (int chunk = 0; chunk < 150; ++chunk) {
        const double low = 0.0009765625 * static_cast<double>(384 + generator() % 16);
        const double high = 0.0009765625 * static_cast<double>(400 + generator() % 16);
        Samples tones;
        for (int i = 0; i < 9216; ++i)
            tones.push_back(0.2F * static_cast<float>(std::sin(6.283185307 * low * i) +
                                                      std::sin(6.283185307 * high * i)));
        receiver->push(tones);
    }
    receiver->finish();
    EXPECT_THAT(texts(polled(*receiver)), IsEmpty());
    // And then hears the next one.
    EXPECT_THAT(texts(heardIn(*receiver, inRoom(pause(1.0) + sent("acme_after") + pause(1.0)))),
                ElementsAre("acme_after"));
}

} // namespace
